test_that("children of a fork compute the same", {
    p <- example_problem(threads = 2)
    expected <- vemkn_gradient(p$net, p$w, p$x, p$y)
    children <- parallel::mclapply(1:4, function(i) {
        list(vemkn_gradient(p$net, p$w, p$x, p$y), vemkn_gradient(example_problem(threads = 2)$net, p$w, p$x, p$y))
    }, mc.cores = 2)
    for (child in children) expect_identical(child, list(expected, expected))
    expect_identical(vemkn_gradient(p$net, p$w, p$x, p$y), expected)
})

test_that("NaN and missing values flow through", {
    p <- example_problem()
    expected <- vemkn_compute(p$net, p$w, p$x)
    x <- p$x
    x[4, 1] <- NaN
    x[9, 2] <- NA
    out <- vemkn_compute(p$net, p$w, x)
    expect_true(all(is.nan(out[4, ])))
    expect_true(all(is.na(out[9, ])))
    expect_equal(out[-c(4, 9), ], expected[-c(4, 9), ], tolerance = rounding)
    value <- vemkn_gradient(p$net, p$w, x, p$y)
    expect_true(is.na(value))
    expect_true(anyNA(attr(value, "gradient")))
    expect_true(is.nan(vemkn_objective(p$net, replace(p$w, 1, NaN), p$x, p$y)))
})

test_that("weights that have run away do not end R", {
    p <- example_problem()
    far <- 1e200 * p$w
    expect_false(all(is.finite(vemkn_compute(p$net, far, p$x))))
    expect_false(is.finite(vemkn_objective(p$net, far, p$x, p$y)))
    expect_false(all(is.finite(vemkn_hessian(p$net, far, p$x, p$y))))
    expect_true(is.finite(vemkn_objective(p$net, p$w, p$x, p$y)))
})

test_that("R goes on after lack of memory", {
    program <- tempfile(fileext = ".R")
    writeLines(c(
        "library(vemkn)",
        "said <- NULL",
        "width <- 1000",
        "while (is.null(said)) {",
        "    said <- tryCatch({ vemkn_release(vemkn(width, width, numin = 1)); NULL }, error = conditionMessage)",
        "    width <- width + 250",
        "}",
        "cat(said, 1 / 0, 0 / 0, 1e200 * 1e200, vemkn_compute(vemkn(1, numin = 1, activation = \"id\"), NULL, 1))"
    ), program)
    # Four times what R takes by itself; each thread of OpenBLAS would reserve memory besides.
    limited <- paste("ulimit -v 600000; exec", shQuote(file.path(R.home("bin"), "Rscript")), shQuote(program))
    libraries <- paste(.libPaths(), collapse = ":")
    said <- system2("sh", c("-c", shQuote(limited)), stdout = TRUE,
                    env = c("OPENBLAS_NUM_THREADS=1", paste0("R_LIBS=", shQuote(libraries))))
    expect_match(said[length(said)], "vemkn: not enough memory Inf NaN Inf 0", fixed = TRUE)
})
