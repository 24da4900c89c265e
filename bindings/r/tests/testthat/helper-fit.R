# The rows of tests/python/fixture.py, exact in binary: a curve in a, a slope in b, small scatter, every tenth row far off.
exact_rows <- function() {
    i <- 1:120
    a <- (i * 37) %% 120 / 32 - 2
    b <- (i * 53) %% 97 / 64
    y <- 3 + a - a * a * a / 4 + b / 2 + ((i * 71) %% 23 - 11) / 128
    data.frame(a = a, b = b, y = y + ifelse(i %% 10 == 0, 40, 0))
}

# Quick: the decay is given. The same for every test that does not care.
exact_fit <- function(...) vemkn_fit(y ~ a + b, exact_rows(), hidden = 3, decay = 0.1, starts = 1, ...)

new_data <- data.frame(a = c(-1.5, 0, 1.25), b = c(0.25, 0.5, 1))

exact_fit_of <- function(data, ..., hidden = 3) vemkn_fit(y ~ a + b, data, hidden = hidden, decay = 0.1, ...)
