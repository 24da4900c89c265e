# The library promises equal bits on x86-64 only; there covariances agree to 1e-8.
same_digits <- function(found, expected) {
    if (R.version$arch == "x86_64") expect_identical(found, expected) else expect_equal(found, expected, tolerance = 1e-6)
}

test_that("weights and predictions are those that Python has", {
    fit <- vemkn_fit(cbind(exact_rows()$a, exact_rows()$b), exact_rows()$y, hidden = 4, starts = 2, seed = 5)
    same_digits(unname(coef(fit)), fixture$weights)
    same_digits(fit[c("core", "shift", "decay")], fixture[c("core", "shift", "decay")])
    p <- predict(fit, unname(as.matrix(new_data)), interval = "prediction", level = 0.9, se.fit = TRUE)
    same_digits(p$fit[, "fit"], fixture$prediction)
    expect_equal(p$se.fit, fixture$error, tolerance = 1e-8)
    expect_equal(p$fit[, "lwr"], fixture$lower, tolerance = 1e-8)
    expect_equal(p$fit[, "upr"], fixture$upper, tolerance = 1e-8)
})

test_that("outliers are counted and do not move the curve", {
    fit <- exact_fit()
    expect_identical(c(fit$rows, fit$beyond), c(120, 12))
    d <- exact_rows()
    truth <- 3 + d$a - d$a^3 / 4 + d$b / 2
    # Three standard deviations of the scatter of a single row, 0.052.
    expect_lt(max(abs(fitted(fit) - truth)), 0.15)
    # That of the 23 equidistant values.
    expect_equal(fit$core, sd(-11:11 / 128), tolerance = 0.2)
})

test_that("formula, matrix and data frame are one fit", {
    d <- exact_rows()
    by_formula <- exact_fit()
    by_matrix <- vemkn_fit(as.matrix(d[c("a", "b")]), d$y, hidden = 3, decay = 0.1, starts = 1)
    by_frame <- vemkn_fit(d[c("a", "b")], d$y, hidden = 3, decay = 0.1, starts = 1, threads = 2)
    expect_identical(coef(by_matrix), coef(by_formula))
    expect_identical(coef(by_frame), coef(by_formula))
    expect_identical(vcov(by_frame), vcov(by_formula))
    expect_false(identical(coef(exact_fit(seed = 2)), coef(by_formula)))
})

test_that("columns of new data are found by name", {
    by_matrix <- vemkn_fit(exact_rows()[c("a", "b")], exact_rows()$y, hidden = 3, decay = 0.1, starts = 1)
    for (fit in list(exact_fit(), by_matrix)) {
        expected <- predict(fit, new_data)
        expect_identical(predict(fit, cbind(z = 7, new_data[c("b", "a")])), expected)
        expect_identical(unname(predict(fit, as.matrix(new_data[c("b", "a")]))), unname(expected))
        expect_error(predict(fit, new_data["a"]), "no column 'b'; there is 'a'")
        expect_error(predict(fit, data.frame(a = 1, B = 1)), "no column 'b'; there are 'a', 'B'")
        expect_error(predict(fit, unname(as.matrix(new_data))), "no columns 'a', 'b'; there are 'x1', 'x2'")
        # A variable of that name elsewhere is not the data's.
        b <- 1:3
        expect_error(predict(fit, new_data["a"]), "no column 'b'")
    }
    bare <- vemkn_fit(exact_rows()$a, exact_rows()$y, hidden = 3, decay = 0.1, starts = 1)
    expect_identical(predict(bare, 0.5), unname(predict(bare, data.frame(x1 = 0.5))))
    expect_error(predict(bare, data.frame(a = 0.5)), "no column 'x1'")
    expect_error(vemkn_fit(cbind(a = 1:9, a = 9:1), 1:9), "two columns of 'x' are called 'a'")
})

test_that("other columns of new data are ignored", {
    fit <- vemkn_fit(exact_rows()[c("a", "b")], exact_rows()$y, hidden = 3, decay = 0.1, starts = 1)
    path <- tempfile(fileext = ".json")
    on.exit(unlink(path))
    vemkn_save(fit, path)
    expected <- predict(fit, new_data)
    words <- cbind(who = letters[1:3], when = Sys.Date(), new_data, z = 1, z = 2)
    for (model in list(fit, vemkn_load(path))) {
        expect_identical(predict(model, words), expected)
        expect_identical(predict(model, cbind(as.matrix(new_data), z = 1, z = 2)), expected)
        expect_length(predict(model, words[0, ]), 0)
        expect_error(predict(model, words[c("who", "b")]), "no column 'a'; there are 'who', 'b'")
        expect_error(predict(model, data.frame()), "no columns 'a', 'b'; there are none")
        expect_error(predict(model, replace(new_data, "a", "1")), "column 'a' of 'newdata' is not numeric$")
        expect_error(predict(model, cbind(new_data, a = 1)), "two columns of 'newdata' are called 'a'")
    }
    several <- vemkn_fit(data.frame(a = I(cbind(u = 1:20, v = (1:20)^2))), sin(1:20), hidden = 2, decay = 1, starts = 1)
    expect_identical(several$columns, c("a.u", "a.v"))
    rows <- data.frame(who = "x", a = I(cbind(v = 4, u = 2)))
    expect_identical(predict(several, rows)[[1]], several$fitted.values[[2]])
})

test_that("a column of missing values gives NA", {
    fit <- vemkn_fit(exact_rows()[c("a", "b")], exact_rows()$y, hidden = 3, decay = 0.1, starts = 1)
    expect_identical(predict(fit, replace(new_data, "a", NA)), rep(NA_real_, 3))
    expect_identical(predict(fit, cbind(a = NA, b = NA)), NA_real_)
    expect_length(predict(fit, replace(new_data, "a", NA), na.action = na.omit), 0)
})

test_that("factors, transformations and variables outside the data come back in predictions", {
    d <- exact_rows()
    d$g <- rep(c("u", "v", "w"), 40)
    degree <- 2
    fit <- vemkn_fit(y ~ poly(a, degree) + g, d, hidden = 2, decay = 1, starts = 1, contrasts = list(g = "contr.sum"))
    expect_identical(fit$columns, c("poly(a, degree)1", "poly(a, degree)2", "g1", "g2"))
    expect_identical(predict(fit, d[7:5, ]), fitted(fit)[7:5])
    expect_error(predict(fit, data.frame(a = 1, g = "x")), "new level")
    a <- d$a
    y <- d$y
    without_data <- vemkn_fit(y ~ poly(a, degree), hidden = 2, decay = 1, starts = 1)
    expect_identical(predict(without_data, d[3:4, ]), fitted(without_data)[3:4])
    expect_error(predict(without_data, d["b"]), "no column 'a'")
})

test_that("a period makes the ends of a day one time", {
    hour <- (0:95 * 7) %% 96 / 4
    fit <- vemkn_fit(load ~ hour, data.frame(hour = hour, load = (hour - 12)^2), period = c(hour = 24), hidden = 3,
                     decay = 0.1, starts = 1)
    expect_length(coef(fit), 3 * 3 + 4)
    ends <- predict(fit, data.frame(hour = c(0.5, 24.5)))
    expect_equal(ends[[1]], ends[[2]], tolerance = 1e-9)
    expect_error(vemkn_fit(hour, hour, period = c(hour = 24)), "'period' names 'hour', which is no column")
    expect_error(vemkn_fit(hour, hour, period = 24), "named numbers")
})

test_that("missing values follow na.action", {
    d <- exact_rows()
    d$a[3] <- NA
    d$y[5] <- NaN
    left_out <- exact_fit_of(d)
    padded <- exact_fit_of(d, na.action = na.exclude)
    expect_identical(nobs(left_out), 118)
    expect_identical(names(residuals(left_out)), rownames(d)[-c(3, 5)])
    expect_identical(which(is.na(residuals(padded))), c("3" = 3L, "5" = 5L))
    expect_identical(residuals(padded)[-c(3, 5)], residuals(left_out))
    expect_identical(predict(padded), fitted(padded))
    expect_identical(dim(predict(padded, interval = "confidence")), c(120L, 3L))
    expect_error(exact_fit_of(d, na.action = na.pass), "x: row 3.* not a finite number", class = "vemkn_error")

    new <- replace(new_data, "b", c(0.25, NA, 1))
    p <- predict(padded, new, interval = "confidence", se.fit = TRUE)
    expect_identical(is.na(p$se.fit), c("1" = FALSE, "2" = TRUE, "3" = FALSE))
    expect_identical(unname(p$fit[c(1, 3), "fit"]), unname(predict(padded, new_data)[c(1, 3)]))
    expect_length(predict(padded, new, na.action = na.omit), 2)
    expect_length(predict(padded, new[0, ]), 0)
    expect_identical(unname(predict(padded, new[2, ])), NA_real_)
})

test_that("the row at fault is that of the data", {
    d <- exact_rows()
    d$a[3] <- NA
    d$b[8] <- Inf
    e <- tryCatch(exact_fit_of(d), vemkn_error = identity)
    expect_match(conditionMessage(e), "x: row 8, column 2 is not a finite number")
    e <- tryCatch(vemkn_fit(d[-3, "b"], d[-3, "y"]), vemkn_error = identity)
    expect_identical(e$row, 7)
    expect_error(predict(exact_fit(), d[2:9, ]), "row 7", class = "vemkn_error")
    d$b[8] <- 1e6
    expect_match(exact_fit_of(d)$notes, "1 rows have an input far from the others, .* the first is row 8$", all = FALSE)
    rownames(d)[8] <- "a\\1"
    expect_match(exact_fit_of(d)$notes, "the first is row a\\1", all = FALSE, fixed = TRUE)
})

test_that("columns that are called as rows keep their names", {
    d <- data.frame(exact_rows(), 1, check.names = FALSE)[2:120, ]
    names(d)[4] <- "row 99"
    fit <- vemkn_fit(y ~ ., d, hidden = 2, decay = 1, starts = 1)
    expect_true("column '`row 99`' holds one value only" %in% fit$notes)
    d[["row 99"]][7] <- Inf
    expect_error(vemkn_fit(y ~ ., d), "^x: row 8, column 3 is not a finite number", class = "vemkn_error")
})

test_that("a single row keeps its name", {
    fit <- exact_fit()
    row <- exact_rows()[7, ]
    p <- predict(fit, row, interval = "confidence", se.fit = TRUE)
    expect_identical(c(names(p$se.fit), rownames(p$fit)), c("7", "7"))
    expect_identical(predict(fit, row, se.fit = TRUE)$fit, predict(fit, row))
    expect_null(names(predict(vemkn_fit(exact_rows()$a, exact_rows()$y, decay = 1, starts = 1), 1, se.fit = TRUE)$se.fit))
})

test_that("intervals are those of Student's distribution", {
    fit <- exact_fit()
    band <- predict(fit, new_data, interval = "confidence", level = 0.9, se.fit = TRUE)
    rows <- predict(fit, new_data, interval = "prediction", level = 0.9)
    expect_identical(colnames(rows), c("fit", "lwr", "upr"))
    expect_identical(band$fit[, "fit"], predict(fit, new_data))
    expect_identical(band$residual.scale, fit$core)
    expect_identical(band$df, nobs(fit) - fit$parameters)
    expect_identical(c(df.residual(fit), sigma(fit)), c(band$df, fit$core))
    t <- qt(0.95, band$df)
    expect_equal(band$fit[, "upr"] - band$fit[, "fit"], t * band$se.fit, tolerance = 1e-9)
    expect_equal(rows[, "fit"] - rows[, "lwr"], t * sqrt(band$se.fit^2 + fit$core^2), tolerance = 1e-9)
    inside <- predict(fit, interval = "prediction", level = 0.9)
    held <- mean((inside[, "lwr"] < exact_rows()$y & exact_rows()$y < inside[, "upr"])[1:120 %% 10 != 0])
    # The scatter is uniform: 0.95 cores of either side hold all but those beyond 1.65 of its 1.73 deviations.
    expect_gt(held, 0.85)
    expect_error(predict(fit, new_data, interval = "confidence", level = 2), "level", class = "vemkn_error")
    expect_error(predict(fit, new_data, interval = "credible"), "should be one of")
})

test_that("the standard errors follow from vcov and the network", {
    fit <- exact_fit()
    # Near the median nothing is bounded, so that inputs are straight functions of the columns.
    path <- tempfile(fileext = ".json")
    on.exit(unlink(path))
    vemkn_save(fit, path)
    rule <- function(name) as.numeric(regmatches(readLines(path), regexpr(sprintf('(?<="%s": )[-0-9.e]+', name),
                                                                          readLines(path), perl = TRUE)))
    scaled <- sweep(sweep(as.matrix(new_data), 2, rule("centre")), 2, rule("spread"), "/")
    net <- vemkn(3, numin = 2, norm = "sum")
    w <- unname(coef(fit))
    expect_equal(predict(fit, new_data), fit$shift + 3 * fit$core * vemkn_compute(net, w, unname(scaled))[, 1],
                 tolerance = rounding, ignore_attr = TRUE)
    jacobian <- vemkn_jacobian_product(net, w, unname(scaled), numeric(3), diag(length(w)))$product
    errors <- 3 * fit$core * sqrt(diag(jacobian %*% vcov(fit) %*% t(jacobian)))
    expect_equal(predict(fit, new_data, se.fit = TRUE)$se.fit, errors, tolerance = 1e-6, ignore_attr = TRUE)
    expect_identical(dimnames(vcov(fit)), list(names(coef(fit)), names(coef(fit))))
    expect_identical(names(coef(fit))[c(1, 4, 5, 13)], c("b1[1]", "W1[1,1]", "W1[1,2]", "W2[3,1]"))
})

test_that("a fit without standard errors says why", {
    fit <- vemkn_fit(y ~ a, exact_rows(), hidden = 167, decay = 10, core = 0.05, starts = 1)
    expect_error(vcov(fit), "more than 500 weights", class = "vemkn_error")
    expect_error(predict(fit, new_data, interval = "confidence"), "more than 500 weights", class = "vemkn_error")
    expect_length(predict(fit, new_data), 3)
})

test_that("the log-likelihood is that of the targets", {
    fit <- exact_fit()
    # plain_norm() is 0 at 0, the density of a Gaussian core there.
    expected <- sum(dnorm(0, sd = fit$core, log = TRUE) - plain_norm(residuals(fit) / (3 * fit$core)))
    expect_equal(c(logLik(fit)), expected, tolerance = rounding)
    expect_identical(attr(logLik(fit), "df"), fit$parameters + 1)
    expect_equal(AIC(fit), 2 * (fit$parameters + 1) - 2 * expected, tolerance = rounding)
})

test_that("targets of any size are fitted", {
    large <- vemkn_fit(y ~ a + b, transform(exact_rows(), y = y * 2^600), hidden = 3, decay = 0.1, starts = 1)
    expect_identical(predict(large, new_data), predict(exact_fit(), new_data) * 2^600)
    expect_error(vemkn_fit(1:9, c(1:8, 1e308)), "row 9", class = "vemkn_error")
})

test_that("what cannot be fitted is an error", {
    d <- exact_rows()
    expect_error(vemkn_fit(d$a, d$y[-1]), "'y' has 119 rows, but needs 120")
    expect_error(vemkn_fit(array(1, c(2, 3, 4)), 1:2), "'x' has 3 dimensions")
    expect_error(vemkn_fit(d$a, array(1, c(120, 1, 1))), "'y' has 3 dimensions")
    expect_error(vemkn_fit(d$a, cbind(d$y, d$y)), "one target")
    expect_error(vemkn_fit(matrix(0, 5, 0), 1:5), "'x' has no columns")
    expect_error(vemkn_fit(1, 1), "2 or more", class = "vemkn_error")
    expect_error(vemkn_fit(letters, 1:26), "'x' has to be a numeric")
    expect_error(vemkn_fit(d$a, as.character(d$y)), "'y' has to be a numeric")
    expect_error(vemkn_fit(iris, 1:150), "column 'Species' of 'x' is not numeric")
    expect_error(vemkn_fit(Species ~ Sepal.Width, iris), "the target 'Species' is not numeric")
    expect_error(vemkn_fit(cbind(a, b) ~ y, d), "one target")
    expect_error(vemkn_fit(~ a, d), "no target")
    expect_error(vemkn_fit(y ~ 1, d), "no inputs")
    for (hidden in list(integer(0), NULL, 0, 2.5, "3", NA)) expect_error(exact_fit_of(d, hidden = hidden), "whole numbers")
    expect_error(exact_fit_of(d, hidden = c(100, 100)), "take fewer", class = "vemkn_error")
    for (core in list(0, -1, Inf, NA, 1:2, "1")) expect_error(exact_fit(core = core), "'core' has to be one number above 0")
    for (decay in list(-1, NaN, 1:2)) expect_error(vemkn_fit(d$a, d$y, decay = decay), "'decay' has to be one number")
    for (seed in list(-1, 0.5, 2^54, NA)) expect_error(exact_fit(seed = seed), "'seed' has to be")
    expect_error(exact_fit(threads = 0), "'threads' has to be")
    expect_error(exact_fit(activation = "relu"), "should be one of")
    expect_error(vemkn_fit(d$a, rep(1, 120)), "give the core", class = "vemkn_error")
    expect_error(exact_fit(weights = nowhere), "'weights' are not taken")
    expect_error(exact_fit(offset = a), "offset is not taken")
    expect_error(vemkn_fit(y ~ a + offset(b), d), "offset is not taken")
    expect_error(exact_fit(maxit = 3), "no argument 'maxit'$")
    expect_error(vemkn_fit(data = d, formula = y ~ a), "no argument 'data': put the formula first")
    expect_error(vemkn_fit(d, y ~ a), "put the formula first")
})
