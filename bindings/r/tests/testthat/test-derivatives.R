for (activation in names(activations)) {
    test_that(paste("outputs, residuals and objective agree with plain R:", activation), {
        p <- example_problem(activation)
        outputs <- plain_outputs(p$widths, activation, p$w, p$x)
        expect_equal(vemkn_compute(p$net, p$w, p$x), outputs, tolerance = rounding)
        expect_equal(vemkn_residual(p$net, p$w, p$x, p$y), outputs - p$y, tolerance = rounding)
        expect_equal(vemkn_objective(p$net, p$w, p$x, p$y), plain_objective(p, p$w), tolerance = rounding)
    })

    test_that(paste("derivatives agree with differences of plain R:", activation), {
        p <- example_problem(activation)
        n <- length(p$w)
        value <- vemkn_gradient(p$net, p$w, p$x, p$y)
        gradient <- attr(value, "gradient")
        expect_equal(as.double(value), plain_objective(p, p$w), tolerance = rounding)
        expect_equal(gradient, differences(function(w) plain_objective(p, w), p$w, diag(n)),
                     tolerance = difference_tolerance)

        v <- matrix(rnorm(3 * n), n)
        hv <- vemkn_hessian_product(p$net, p$w, p$x, p$y, v)
        # The gradient was checked above, so its differences are independent of the Hessian.
        along <- differences(function(w) attr(vemkn_gradient(p$net, w, p$x, p$y), "gradient"), p$w, v)
        expect_equal(hv$product, along, tolerance = difference_tolerance)
        expect_equal(hv$value, as.double(value), tolerance = rounding)
        expect_equal(hv$gradient, gradient, tolerance = rounding)
    })
}

test_that("the Hessian is symmetric and the same in blocks of any size", {
    p <- example_problem()
    hessian <- vemkn_hessian(p$net, p$w, p$x, p$y)
    expect_identical(hessian, t(hessian))
    expect_equal(hessian, vemkn_hessian(p$net, p$w, p$x, p$y, block = 7), tolerance = rounding)
    v <- cos(seq_along(p$w))
    expect_equal(vemkn_hessian_product(p$net, p$w, p$x, p$y, v)$product, hessian %*% v, tolerance = rounding)
})

for (norm in c("sum", "sum_log_dnorm_fat")) {
    test_that(paste("Jacobian products have their elements in the order of as.vector(y):", norm), {
        p <- example_problem(norm = norm)
        n <- length(p$w)
        norms <- function(w) {
            residual <- plain_outputs(p$widths, p$activation, w, p$x) - p$y
            if (norm == "sum") residual else plain_norm(residual)
        }
        v <- matrix(sin(seq_len(2 * n)), n)
        forward <- vemkn_jacobian_product(p$net, p$w, p$x, p$y, v)
        expect_equal(forward$norms, norms(p$w), tolerance = rounding)
        expect_equal(forward$product, differences(function(w) as.vector(norms(w)), p$w, v),
                     tolerance = difference_tolerance)

        u <- array(cos(seq_len(3 * length(p$y))), c(dim(p$y), 3))
        backward <- vemkn_product_jacobian(p$net, p$w, p$x, p$y, u)
        expect_equal(backward$residual, plain_outputs(p$widths, p$activation, p$w, p$x) - p$y, tolerance = rounding)
        expected <- differences(function(w) apply(u, 3, function(cotangent) sum(cotangent * norms(w))), p$w, diag(n))
        expect_equal(backward$product, t(expected), tolerance = difference_tolerance)

        # The three ways to write cotangents.
        as_columns <- matrix(u, ncol = 3)
        expect_identical(vemkn_product_jacobian(p$net, p$w, p$x, p$y, as_columns)$product, backward$product)
        first <- vemkn_product_jacobian(p$net, p$w, p$x, p$y, u[, , 1])
        expect_equal(first$product, backward$product[, 1, drop = FALSE], tolerance = rounding)
    })
}

test_that("hidden layers can be applied several times", {
    net <- vemkn(4, 2, numin = 2, activation = "atan", nmult = 2)
    set.seed(4)
    w <- rnorm(net$numel)
    x <- matrix(rnorm(10), 5)
    hidden <- w[1:22]
    first <- plain_outputs(c(2, 4, 2), "atan", hidden, x)
    second <- plain_outputs(c(2, 4, 2), "atan", hidden, first)
    expect_equal(vemkn_compute(net, w, x), plain_outputs(c(4, 1), "atan", w[23:27], cbind(first, second)),
                 tolerance = rounding)
})

test_that("threads change no more than rounding, and repeat to the bit", {
    p <- example_problem()
    one <- vemkn_gradient(p$net, p$w, p$x, p$y)
    two <- example_problem(threads = 2)$net
    expect_equal(vemkn_gradient(two, p$w, p$x, p$y), one, tolerance = rounding)
    expect_identical(vemkn_gradient(two, p$w, p$x, p$y), vemkn_gradient(two, p$w, p$x, p$y))
})

test_that("a network's own weights serve where none are given", {
    p <- example_problem()
    weights(p$net) <- p$w
    expect_identical(weights(p$net), p$w)
    expect_identical(vemkn_objective(p$net, NULL, p$x, p$y), vemkn_objective(p$net, p$w, p$x, p$y))
})
