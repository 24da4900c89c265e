p <- example_problem()
n <- length(p$w)

test_that("every wrong shape is an error", {
    expect_error(vemkn_compute(p$net, p$w, cbind(p$x, 1)), "'x' has 3 columns, but the network has 2")
    expect_error(vemkn_compute(p$net, p$w, p$x[, 1]), "'x' has 1 columns, but the network has 2")
    expect_error(vemkn_compute(p$net, p$w[-1], p$x), "weights, but the network has")
    expect_error(vemkn_residual(p$net, p$w, p$x, p$y[, 1]), "'y' has 1 columns")
    expect_error(vemkn_residual(p$net, p$w, p$x, p$y[-1, ]), "'y' has 36 rows, but needs 37")
    for (call in list(vemkn_objective, vemkn_gradient, vemkn_hessian)) {
        expect_error(call(p$net, c(p$w, 1), p$x, p$y), "weights, but the network has")
        expect_error(call(p$net, p$w, cbind(p$x, 1), p$y), "'x' has 3 columns")
        expect_error(call(p$net, p$w, p$x, cbind(p$y, 1)), "'y' has 3 columns")
        expect_error(call(p$net, p$w, p$x[-1, ], p$y), "'y' has 37 rows, but needs 36")
        expect_error(call(p$net, p$w, p$x[0, ], p$y[0, ]), "no rows")
    }
    for (call in list(vemkn_hessian_product, vemkn_jacobian_product)) {
        expect_error(call(p$net, p$w, p$x, p$y, p$w[-1]), "'v' has")
        expect_error(call(p$net, p$w, cbind(p$x, 1), p$y, p$w), "'x' has 3 columns")
        expect_error(call(p$net, p$w, p$x, p$y[-1, ], p$w), "'y' has 36 rows")
    }
    expect_error(vemkn_product_jacobian(p$net, p$w, p$x, p$y, p$y[-1, ]), "'u' has to have the shape of 'y'")
    expect_error(vemkn_product_jacobian(p$net, p$w, p$x, p$y, array(1, c(2, 37, 1))), "'u' has to have the shape")
    expect_error(vemkn_functions(p$net, cbind(p$x, 1), p$y), "'x' has 3 columns")
    expect_error(weights(p$net) <- 1, "1 weights, but the network has")
})

test_that("every wrong type is an error", {
    expect_error(vemkn_compute(p$net, p$w, as.data.frame(p$x)), "as.matrix")
    expect_error(vemkn_compute(p$net, p$w, matrix("1", 1, 2)), "numeric")
    expect_error(vemkn_compute(p$net, as.character(p$w), p$x), "numeric")
    expect_error(vemkn_compute(p$net, p$w, NULL), "numeric")
    expect_error(vemkn_compute(unclass(p$net), p$w, p$x), "network made by vemkn")
    expect_error(vemkn_hessian_product(p$net, p$w, p$x, p$y, "1"), "numeric")
    expect_error(vemkn_product_jacobian(p$net, p$w, p$x, p$y, "1"), "numeric")
    expect_error(vemkn_hessian(p$net, p$w, p$x, p$y, block = 0), "whole numbers")
})

test_that("integers are taken as doubles", {
    x <- matrix(1:4, 2)
    expect_identical(vemkn_compute(p$net, p$w, x), vemkn_compute(p$net, p$w, x + 0))
})

test_that("descriptions of no network are errors", {
    expect_error(vemkn(numin = 2), "hidden widths")
    expect_error(vemkn(0, numin = 2), "whole numbers")
    expect_error(vemkn(2.5, numin = 2), "whole numbers")
    expect_error(vemkn(NA, numin = 2), "whole numbers")
    expect_error(vemkn(2, numin = c(2, 2)), "one number")
    expect_error(vemkn(2, numin = 2, numout = -1), "whole numbers")
    expect_error(vemkn(2, numin = 2, activation = "tanh"), "should be one of")
    expect_error(vemkn(2, numin = 2, norm = "max"), "should be one of")
    expect_error(vemkn(2, numin = 2, threads = 100000), "at most 99999")
    expect_error(vemkn(2, numin = 2, batch = 0), "whole numbers")
    expect_error(vemkn(3, numin = 2, nmult = 2), "has to be 'numin'")
    expect_error(vemkn(1e5, 1e5, numin = 1), "too many weights")
})

# 1:3e9 takes no memory until somebody reads it.
test_that("long vectors are refused", {
    net <- vemkn(1, numin = 1)
    expect_error(vemkn_compute(net, numeric(4), 1:3e9), "long vector")
    expect_error(vemkn_objective(net, numeric(4), 1, 1:3e9), "long vector")
    expect_error(vemkn_product_jacobian(net, numeric(4), 1, 1, 1:3e9), "long vector")
    expect_error(.Call(vemkn:::C_compute, net$handle, 1:3e9, matrix(1)), "long vector")
})

# Past the checks in R.
test_that("the compiled code checks for itself", {
    compute <- function(handle = p$net$handle, w = p$w, x = p$x) .Call(vemkn:::C_compute, handle, w, x)
    expect_error(compute(handle = NULL), "not a network")
    expect_error(compute(handle = "net"), "not a network")
    expect_error(compute(w = p$w[-1]), "weights, but the network has")
    expect_error(compute(w = seq_len(n)), "type double")
    expect_error(compute(x = cbind(p$x, 1)), "'x' has 3 columns")
    expect_error(compute(x = as.vector(p$x)), "matrix")
    expect_error(compute(x = matrix(1L, 1, 2)), "type double")
    gradient <- function(x = p$x, y = p$y) .Call(vemkn:::C_gradient, p$net$handle, p$w, x, y)
    expect_error(gradient(y = p$y[-1, ]), "'y' has 36 rows")
    expect_error(gradient(y = cbind(p$y, 1)), "'y' has 3 columns")
    expect_error(gradient(y = NULL), "type double")
    expect_error(gradient(x = p$x[0, ], y = p$y[0, ]), "no rows")
    for (entry in list(vemkn:::C_hessian_product, vemkn:::C_jacobian_product, vemkn:::C_product_jacobian)) {
        call <- function(v) .Call(entry, p$net$handle, p$w, p$x, p$y, v)
        expect_error(call(matrix(1, 3, 1)), "has 3 rows, but needs")
        expect_error(call(p$w), "matrix")
        expect_error(call(matrix(1L, n, 1)), "type double")
    }
    create <- function(text, threads = 1L, batch = 32L) .Call(vemkn:::C_create, text, threads, batch)
    why <- "no network: numin is \"nonsense\", not a whole number below 2^32 (description \"nonsense"
    expect_error(create("nonsense"), why, fixed = TRUE)
    expect_error(create(paste("nonsense", strrep("1 ", 8000))), why, fixed = TRUE) # of which R shows 8 kB
    expect_error(create("3 1 2 1 32 2 4 id sum"), "makes no network") # first layer narrower than numin
    expect_error(create(1), "not the description")
    expect_error(create("1 1 2 1 32 1 1 id sum", threads = NA_integer_), "not the description")
    expect_error(create("1 1 2 1 32 1 1 id sum", batch = 0L), "not the description")
})
