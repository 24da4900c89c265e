# A network of activation "id" with one hidden unit is b2 + W2 (b1 + W1 x): linear regression, written with two
# parameters more than it has. All residuals lie in the Gaussian core, so least squares is the likelihood's optimum.
linear_data <- function() {
    set.seed(11)
    x <- cbind(runif(60, -1, 1), rnorm(60))
    list(x = x, y = 5 + 2 * x[, 1] - x[, 2] + rnorm(60, sd = 0.2))
}

test_that("standard errors of linear regression are those of theory for a known scatter", {
    d <- linear_data()
    line <- lm(y ~ x, d)
    # With shift 0 and core 1/3 the network's targets are the caller's.
    fit <- vemkn_fit(d$x, d$y, hidden = 1, activation = "id", core = 1 / 3, shift = 0, method = "nlminb")
    expect_lt(max(abs(residuals(fit))), 2)
    expect_equal(as.vector(fitted(fit)), unname(fitted(line)), tolerance = 1e-6)
    expect_warning(p <- predict(fit, d$x, se.fit = TRUE), "2 of 5 directions")
    theory <- sqrt(hatvalues(line)) / 3
    # nlminb stops within about 1e-8 of the optimum, where residuals and inputs are not quite orthogonal.
    expect_equal(as.vector(p$se.fit), unname(theory), tolerance = 1e-5)
})

test_that("the Hessian holds lm's covariance where the weights are those of a line", {
    d <- linear_data()
    line <- lm(y ~ x, d)
    net <- vemkn(1, numin = 2, activation = "id")
    # b1 = 0 and W2 = 1 leave W1 and b2 as slopes and intercept.
    w <- c(0, coef(line)[2:3], coef(line)[1], 1)
    hessian <- length(d$y) * vemkn_hessian(net, w, d$x, d$y)
    covariance <- solve(hessian[c(4, 2, 3), c(4, 2, 3)])
    expect_equal(covariance, unname(vcov(line)) / summary(line)$sigma^2 / 9, tolerance = 1e-10)
})

test_that("outliers do not move the fit", {
    set.seed(2)
    x <- runif(150, -2, 2)
    truth <- function(x) 3 + sin(2 * x)
    y <- truth(x) + rnorm(150, sd = 0.1)
    y[1:15] <- y[1:15] + 40
    fit <- vemkn_fit(x, y, hidden = 5, core = 0.1, decay = 0.1)
    at <- seq(-1.8, 1.8, by = 0.1)
    expect_warning(p <- predict(fit, at, se.fit = TRUE), "directions in weight space")
    # Three standard deviations of a single row; the mean is known better than that.
    expect_lt(max(abs(p$fit - truth(at))), 0.3)
    # Laplace's errors have the right size: nearly all errors within four of them.
    expect_gt(mean(abs(p$fit - truth(at)) < 4 * p$se.fit), 0.9)
    expect_equal(unname(suppressWarnings(summary(fit))$errors[, "beyond six cores"]), 0.1)
})

test_that("vcov, coef and standard errors of predictions agree", {
    set.seed(5)
    x <- matrix(runif(160, -1, 1), 80)
    y <- cbind(exp(x[, 1]), 2 + x[, 2]) + rnorm(160, sd = 0.05)
    fit <- vemkn_fit(x, y, hidden = 3, core = c(0.05, 0.1), decay = 1, starts = 2, method = "nlminb", threads = 2)
    # The posterior once more in plain R: its gradient vanishes at the fit, its curvature is the inverse of vcov.
    posterior <- function(w) {
        sum(plain_norm(plain_outputs(c(2, 3, 2), "softplus", w, fit$x) - fit$y)) + sum(w^2) / 2
    }
    slope <- function(w) differences(posterior, w, diag(17), step = 1e-4)
    w <- unname(coef(fit))
    # Beside a curvature of at least 1, so the weights are within 1e-3 of the optimum.
    expect_lt(max(abs(slope(w))), 1e-3)
    # Differences of differences: rounding leaves eps * 500 / 1e-4^2 = 1e-5 beside a least curvature of about 1.
    curvature <- differences(slope, w, diag(17), step = 1e-4)
    expect_equal(unname(vcov(fit, least_curvature = 0.01)), solve((curvature + t(curvature)) / 2), tolerance = 1e-4)
    expect_named(coef(fit), rownames(vcov(fit, least_curvature = 0.01)))
    expect_identical(names(coef(fit))[c(1, 4, 5, 17)], c("b1[1]", "W1[1,1]", "W1[1,2]", "W2[3,2]"))

    p <- predict(fit, x[1:3, ], se.fit = TRUE, least_curvature = 0.01)
    output <- function(w) {
        net <- fit$net
        weights(net) <- w
        as.vector(predict(replace(fit, "net", list(net)), x[1:3, ]))
    }
    jacobian <- differences(output, unname(coef(fit)), diag(17))
    expected <- sqrt(diag(jacobian %*% vcov(fit, least_curvature = 0.01) %*% t(jacobian)))
    expect_equal(as.vector(p$se.fit), unname(expected), tolerance = 1e-6)
    # In the units of y: the two targets have cores of their own.
    expect_equal(fitted(fit) + residuals(fit), y, tolerance = rounding)
})

test_that("targets are scaled as the activation needs", {
    d <- linear_data()
    lowest <- function(activation) min(vemkn_fit(d$x, d$y, 2, activation, starts = 1, maxit = 1)$y)
    expect_equal(lowest("softplus"), 1)
    expect_equal(lowest("relu"), 1)
    expect_equal(median(vemkn_fit(d$x, d$y, 2, "id", starts = 1, maxit = 1)$y), 0)
    atan_y <- vemkn_fit(d$x, d$y, 2, "atan", starts = 1, maxit = 1)$y
    expect_lte(max(abs(atan_y)), 1.4 + rounding)
    expect_error(vemkn_fit(d$x, d$y, 2, "atan", core = 0.001), "range of atan")
    # A line explains these data, so the core is its scatter.
    expect_equal(vemkn_fit(d$x, d$y, 2, starts = 1, maxit = 1)$target_map$core, 0.2, tolerance = 0.3)
})

test_that("inputs come to mean 0 and deviation 1, and constant ones to 0", {
    x <- cbind(c(3, 5, 7), 0, 5)
    expect_equal(vemkn:::apply_input_map(vemkn:::make_input_map(x), x), cbind(c(-1, 0, 1), 0, 0))
})

test_that("starts have the median output at the median target", {
    set.seed(1)
    x <- matrix(rnorm(202), 101)
    y <- matrix(40 + rnorm(202), 101)
    net <- vemkn(3, numin = 2, numout = 2)
    w <- vemkn:::starting_weights(net, x, y)
    expect_equal(apply(vemkn_compute(net, w, x), 2, median), apply(y, 2, median), tolerance = 1e-6)
})

test_that("data that cannot be fitted are errors", {
    d <- linear_data()
    expect_error(vemkn_fit(d$x, replace(d$y, 3, NA)), "complete.cases")
    expect_error(vemkn_fit(replace(d$x, 3, Inf), d$y), "missing or infinite")
    expect_error(vemkn_fit(d$x, d$y[-1]), "'y' has 59 rows, but needs 60")
    expect_error(vemkn_fit(d$x, rep(1, 60)), "in every row")
    expect_error(vemkn_fit(d$x, d$y, core = -1), "positive")
    expect_error(vemkn_fit(d$x, d$y, core = 1:2), "one for each target")
    expect_error(vemkn_fit(d$x, d$y, core = Inf), "'core' has to be one number")
    expect_error(vemkn_fit(d$x, d$y, shift = -Inf), "'shift' has to be one number")
    expect_error(vemkn_fit(d$x, d$y, decay = -1), "decay")
    fit <- vemkn_fit(d$x, d$y, 2, starts = 1, maxit = 1)
    expect_error(predict(fit, d$x[, 1]), "'x' has 1 columns")
})

test_that("a fit prints and sums up", {
    d <- linear_data()
    fit <- vemkn_fit(d$x, d$y, 2, decay = 1, starts = 1)
    expect_output(print(fit), "network    2-2-1 softplus")
    expect_output(print(suppressWarnings(summary(fit))), "Std. Error")
})
