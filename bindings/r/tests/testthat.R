library(testthat)
library(vemkn)

test_check("vemkn")
