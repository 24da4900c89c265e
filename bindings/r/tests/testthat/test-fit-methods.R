test_that("update fits anew", {
    fit <- exact_fit()
    expect_identical(update(fit)$core, fit$core)
    expect_identical(update(fit, . ~ . - b)$columns, "a")
    wider <- update(fit, hidden = 4, subset = a > 0)
    expect_identical(wider$hidden, 4L)
    expect_identical(nobs(wider), sum(exact_rows()$a > 0) + 0)
    expect_identical(formula(fit), y ~ a + b, ignore_formula_env = TRUE)
    x <- exact_rows()$a
    by_matrix <- vemkn_fit(x, exact_rows()$y, hidden = 2, decay = 1, starts = 1)
    expect_identical(update(by_matrix, hidden = 3)$hidden, 3L)
    expect_error(formula(by_matrix), "no formula")
})

test_that("a fit survives being saved", {
    fit <- exact_fit()
    file <- tempfile()
    on.exit(unlink(file))
    saveRDS(fit, file)
    loaded <- readRDS(file)
    copy <- loaded
    expect_identical(predict(loaded, new_data, interval = "prediction"), predict(fit, new_data, interval = "prediction"))
    expect_identical(vcov(copy), vcov(fit))
    expect_identical(residuals(loaded), residuals(fit))
    expect_output(print(unserialize(serialize(loaded, NULL))), "network    2-3-1 softplus")
    broken <- fit
    broken$curve <- NULL
    expect_error(predict(broken, new_data), "not a fit")
})

test_that("model files keep every bit", {
    fit <- exact_fit()
    path <- tempfile(fileext = ".json")
    again <- tempfile(fileext = ".json")
    on.exit(unlink(c(path, again)))
    expect_identical(vemkn_save(fit, path), path)
    model <- vemkn_load(path)
    vemkn_save(model, again)
    expect_identical(readLines(again), readLines(path))
    expect_identical(predict(model, new_data[2:1]), unname(predict(fit, new_data)), ignore_attr = TRUE)
    expect_identical(coef(model), coef(fit))
    expect_identical(model$targets, "y")
    for (call in list(residuals, fitted, predict, logLik, summary)) expect_error(call(model), "holds no rows")
    expect_output(print(model), "120 of which 12 lie beyond")
    # Of another method the library knows no number of rows beyond six cores.
    writeLines(sub('"robust"', '"squares"', readLines(path), fixed = TRUE), path)
    expect_output(print(vemkn_load(path)), "rows       120\n")
})

test_that("files that cannot be used are errors", {
    path <- tempfile(fileext = ".json")
    on.exit(unlink(path))
    expect_error(vemkn_load(path), "cannot be read", class = "vemkn_error")
    writeLines("{\"vemkn_model\": 99}", path)
    expect_error(vemkn_load(path), "model", class = "vemkn_error")
    expect_error(vemkn_save(exact_fit(), file.path(path, "model.json")), class = "vemkn_error")
    expect_identical(readLines(path), "{\"vemkn_model\": 99}")
    expect_error(vemkn_save(1, path), "'fit' has to be a fit")
    expect_error(vemkn_load(c("a", "b")), "one string")
})

test_that("simulated targets scatter by the core", {
    fit <- exact_fit()
    drawn <- simulate(fit, 50, seed = 1)
    expect_identical(simulate(fit, 50, seed = 1), drawn)
    expect_identical(dim(drawn), c(120L, 50L))
    # 6,000 draws: the deviation is known to 1 %.
    expect_equal(sd(unlist(drawn - fitted(fit))), fit$core, tolerance = 0.05)
    with_outliers <- unlist(simulate(fit, 50, seed = 1, outliers = TRUE) - fitted(fit))
    # A tenth of 6,000, give or take four deviations.
    expect_lt(abs(mean(abs(with_outliers) > 6 * fit$core) - 0.1), 4 * sqrt(0.1 * 0.9 / 6000))
    d <- exact_rows()
    d$a[3] <- NA
    padded <- exact_fit_of(d, na.action = na.exclude)
    expect_identical(rownames(simulate(padded, seed = 1)), names(fitted(padded)))
    expect_identical(which(is.na(simulate(padded, 2, seed = 1)$sim_2)), 3L)
    expect_identical(rownames(simulate(exact_fit_of(d), seed = 1)), rownames(d)[-3])
    set.seed(3)
    state <- .Random.seed
    simulate(fit, seed = 1)
    expect_identical(.Random.seed, state)
})

test_that("confint names the band of the curve", {
    expect_error(confint(exact_fit()), "predict(fit, newdata, interval = ", fixed = TRUE)
})

test_that("a fit prints, sums up and plots", {
    fit <- exact_fit()
    expect_output(print(fit), "vemkn_fit\\(formula = y ~ a \\+ b.*'y' over 'a', 'b'.*12 lie beyond six cores")
    expect_output(print(summary(fit)), "Residuals:.*log-likelihood")
    expect_identical(unname(summary(fit)$residuals[["Median"]]), median(residuals(fit)))
    file <- tempfile(fileext = ".pdf")
    pdf(file)
    on.exit({
        dev.off()
        unlink(file)
    })
    expect_identical(plot(fit), fit)
})

# A saved fit whose text of a model is empty, as no call makes one. The text stands after its length, four bytes.
forged_fit <- function(fit) {
    bytes <- serialize(fit, NULL, xdr = TRUE)
    start <- grepRaw("{\n \"vemkn_model\"", bytes, fixed = TRUE)
    end <- grepRaw(as.raw(0), bytes, offset = start, fixed = TRUE)
    unserialize(c(bytes[seq_len(start - 5)], raw(4), bytes[-seq_len(end)]))
}

# Fits that would take minutes. The limit's error and the interrupt come up inside the library's call.
long_fit <- function() exact_fit_of(exact_rows(), hidden = 10, starts = 1e5)

test_that("a time limit ends a fit", {
    limited <- function() {
        setTimeLimit(elapsed = 0.5, transient = TRUE)
        on.exit(setTimeLimit())
        long_fit()
    }
    expect_error(limited(), "time limit")
    expect_identical(exact_fit()$beyond, 12)
})

test_that("an interrupt ends a fit", {
    signal <- sprintf("(sleep 0.5; kill -INT %d) &", Sys.getpid())
    answer <- tryCatch({
        system(signal)
        long_fit()
    }, interrupt = function(condition) "interrupted")
    expect_identical(answer, "interrupted")
    expect_identical(exact_fit()$beyond, 12)
})

test_that("an interrupt of a fit passes calling handlers and restarts", {
    interrupted <- function(code) {
        signal <- sprintf("(sleep 0.5; kill -INT %d) &", Sys.getpid())
        system(signal)
        code
    }
    for (name in c("browser", "tryRestart", "abort")) {
        outer <- stats::setNames(list(function() name), name)
        expect_identical(do.call(withRestarts, c(quote(interrupted(long_fit())), outer)), name)
    }
    seen <- 0
    jumped <- withRestarts(withCallingHandlers(interrupted(long_fit()), interrupt = function(condition) {
        seen <<- seen + 1
        invokeRestart("elsewhere")
    }), elsewhere = function() "there")
    expect_identical(list(jumped, seen), list("there", 1))
})

test_that("the compiled code checks fits for itself", {
    fit <- exact_fit()
    expect_error(.Call(vemkn:::C_fit_predict, NULL, matrix(1)), "not a fit")
    expect_error(.Call(vemkn:::C_fit_predict, vemkn(1, numin = 1)$handle, matrix(1)), "not a fit")
    expect_error(.Call(vemkn:::C_fit_predict, fit$curve, 1), "matrix")
    expect_s3_class(.Call(vemkn:::C_fit_predict, fit$curve, matrix(1)), "vemkn_error")
    expect_error(.Call(vemkn:::C_fit_save, fit$curve, 1), "one string")
    expect_error(predict(forged_fit(fit), new_data), "not a fit")
    call <- function(y = matrix(1, 2, 1), hidden = 2L, names = "a") {
        .Call(vemkn:::C_fit, matrix(1, 2, 1), y, hidden, "softplus", c(1, 1, 1, 1, 1), names, 0, "y")
    }
    expect_error(call(y = matrix(1, 3, 1)), "'y' has 3 rows")
    expect_error(call(y = matrix(1, 2, 2)), "'y' has 2 columns")
    expect_error(call(hidden = 2), "not the options")
    expect_error(call(names = c("a", "b")), "do not fit")
})
