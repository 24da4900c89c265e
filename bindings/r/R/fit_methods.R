#' Methods for fits
#'
#' Predictions, residuals, standard errors and the other usual functions of a fitted model, for fits by [vemkn_fit()].
#'
#' @param object,x,formula a fit made by [vemkn_fit()], or its summary.
#' @param newdata a data frame, or a matrix for a fit of a matrix, with the columns of the fit by name, in any order;
#'   others are ignored. By default the rows of the fit.
#' @param interval `"confidence"` for the band of the curve, `"prediction"` for where a new row lies that is no outlier.
#' @param level of the interval.
#' @param se.fit whether to give standard errors of the curve.
#' @param na.action what to do with rows of `newdata` that have missing values; by default they are predicted as `NA`.
#' @param nsim number of columns to draw.
#' @param seed as in [simulate()].
#' @param outliers whether rows are also drawn from the residuals beyond six cores, as often as there are such rows.
#' @param which 1 for residuals over fitted values, 2 for a normal QQ plot of residuals in cores.
#' @param digits number of significant digits.
#' @param parm not used.
#' @param ... further arguments of [plot()]; else not used.
#' @return `predict()`, in the form of [predict.lm()]: a vector, with an interval a matrix with the columns `fit`, `lwr`
#'   and `upr`, with `se.fit` a list of `fit`, `se.fit`, `df` and `residual.scale`, which is the core. The model of another fit than
#'   a robust one may have several targets, and gives a matrix with a column for each. `residuals()`: targets minus
#'   fitted values. `coef()`: the weights, of scaled inputs and outputs, in the flat order: `"b1[2]"` is the bias of the
#'   second unit of the first layer, `"W1[3,2]"` the weight from the third input to it. `vcov()`: their covariance.
#'   `nobs()`: the number of rows that were fitted. `df.residual()`: `rows - parameters`. `sigma()`: the core.
#'   `simulate()`: a data frame of new targets, a row for each fitted value.
#'
#' @section Standard errors:
#' They follow from the sandwich covariance of the weights, which `vcov()` gives; intervals take quantiles of Student's
#' distribution with `rows - parameters` degrees of freedom. Where the objective does not curve upwards, and above 500
#' weights, there are none, which is an error that says why. Prediction intervals hold for a row that is no outlier.
#' `confint()` is an error: weights mean nothing one by one.
#'
#' @section Log-likelihood:
#' `logLik()` is in units of the targets, without the penalty, with `parameters + 1` degrees of freedom, one for the
#' core. So `AIC()` can compare fits of the same rows with one core, given to all of them: at a wider core an outlier
#' costs less, and the fit with the wider core would win.
#' @examples
#' fit <- vemkn_fit(dist ~ speed, cars, hidden = 2, decay = 1)
#' summary(fit)
#' predict(fit, data.frame(speed = c(10, 20)), interval = "prediction")
#' update(fit, core = fit$core, decay = 10)
#' plot(fit, which = 1)
#' @name vemkn_fit_methods
NULL

predictions <- function(object, x) {
    found <- called(.Call(C_fit_predict, object$curve, x))
    if (ncol(found) > 1) return(structure(found, dimnames = list(rownames(x), object$targets)))
    structure(found[, 1], names = rownames(x))
}

# A matrix with the columns fit, se, lwr and upr.
intervals <- function(object, x, is_prediction, level) {
    found <- called(.Call(C_fit_interval, object$curve, x, is_prediction, level))
    structure(found, dimnames = list(rownames(x), c("fit", "se", "lwr", "upr")))
}

# find(x) of the rows without missing values; NA for the others.
rows_present <- function(x, find) {
    present <- rowSums(is.na(x)) == 0
    found <- naming_rows(which(present), find(x[present, , drop = FALSE]))
    if (all(present)) return(found)
    at <- match(seq_along(present), which(present))
    if (is.matrix(found)) found <- found[at, , drop = FALSE] else found <- found[at]
    if (is.matrix(found)) rownames(found) <- rownames(x) else names(found) <- rownames(x)
    found
}

#' @rdname vemkn_fit_methods
#' @export
predict.vemkn_fit <- function(object, newdata, interval = c("none", "confidence", "prediction"), level = 0.95,
                              se.fit = FALSE, na.action = na.pass, ...) {
    interval <- match.arg(interval)
    level <- number_from(level, "level", 0)
    is_new <- !missing(newdata) && !is.null(newdata)
    x <- if (is_new) new_rows(object, newdata, na.action) else training_rows(object)
    pad <- function(found) napredict(if (is_new) attr(x, "na.action") else object$na.action, found)
    if (interval == "none" && !se.fit) return(pad(rows_present(x, function(x) predictions(object, x))))
    found <- rows_present(x, function(x) intervals(object, x, interval == "prediction", level))
    # A matrix of one row would lose its name.
    column <- function(name) structure(found[, name], names = rownames(x))
    fit <- pad(if (interval == "none") column("fit") else found[, c("fit", "lwr", "upr"), drop = FALSE])
    if (!se.fit) return(fit)
    list(fit = fit, se.fit = pad(column("se")), df = df.residual(object), residual.scale = sigma(object))
}

#' @rdname vemkn_fit_methods
#' @export
fitted.vemkn_fit <- function(object, ...) {
    training_rows(object)
    napredict(object$na.action, object$fitted.values)
}

#' @rdname vemkn_fit_methods
#' @export
residuals.vemkn_fit <- function(object, ...) naresid(object$na.action, plain_residuals(object))

plain_residuals <- function(object) {
    training_rows(object)
    object$y - object$fitted.values
}

#' @rdname vemkn_fit_methods
#' @export
coef.vemkn_fit <- function(object, ...) {
    weights <- called(.Call(C_fit_weights, object$curve))
    structure(weights, names = weight_names(fitted_network(object, length(weights))))
}

# What weight_names() asks of a network. Periodic columns are two inputs, so their number is that of the weights.
fitted_network <- function(object, numel) {
    numout <- length(object$targets)
    later <- number_of_weights(object$hidden, numout, 1)
    list(sizes = c((numel - later) / object$hidden[1] - 1, object$hidden), numout = numout, nmult = 1)
}

#' @rdname vemkn_fit_methods
#' @export
vcov.vemkn_fit <- function(object, ...) {
    names <- names(coef(object))
    structure(called(.Call(C_fit_covariance, object$curve)), dimnames = list(names, names))
}

#' @rdname vemkn_fit_methods
#' @export
nobs.vemkn_fit <- function(object, ...) object$rows

#' @rdname vemkn_fit_methods
#' @export
df.residual.vemkn_fit <- function(object, ...) object$rows - object$parameters

#' @rdname vemkn_fit_methods
#' @export
sigma.vemkn_fit <- function(object, ...) object$core

#' @rdname vemkn_fit_methods
#' @export
formula.vemkn_fit <- function(x, ...) {
    if (is.null(x$terms)) stop("the fit is of a matrix, so it has no formula", call. = FALSE)
    formula(x$terms)
}

#' @rdname vemkn_fit_methods
#' @export
confint.vemkn_fit <- function(object, parm, level = 0.95, ...) {
    stop("weights have no meaning one by one; predict(fit, newdata, interval = \"confidence\") is the band of the curve",
         call. = FALSE)
}

#' @rdname vemkn_fit_methods
#' @export
logLik.vemkn_fit <- function(object, ...) {
    residual <- plain_residuals(object)
    n <- length(residual)
    scale <- object$core / core_deviation
    # The outputs of a network without weights are 0: its objective is the library's loss of the residuals.
    loss <- vemkn_objective(vemkn(1, numin = 1, activation = "id"), NULL, numeric(n), residual / scale)
    structure(n * (dnorm(0, sd = core_deviation, log = TRUE) - loss - log(scale)),
              df = object$parameters + 1, nobs = n, class = "logLik")
}

core_deviation <- 1 / 3 # of the library's likelihood
tail_from <- 6          # cores

#' @rdname vemkn_fit_methods
#' @export
simulate.vemkn_fit <- function(object, nsim = 1, seed = NULL, outliers = FALSE, ...) {
    nsim <- counts(nsim, "nsim", 1)
    if (!exists(".Random.seed", envir = globalenv(), inherits = FALSE)) runif(1)
    before <- get(".Random.seed", envir = globalenv())
    if (!is.null(seed)) {
        on.exit(assign(".Random.seed", before, envir = globalenv()))
        set.seed(seed)
    }
    residual <- plain_residuals(object)
    n <- length(residual)
    drawn <- matrix(rnorm(n * nsim, sd = object$core), n)
    far <- residual[abs(residual) >= tail_from * object$core]
    if (outliers && length(far) > 0) {
        hit <- runif(n * nsim) < length(far) / n
        drawn[hit] <- far[sample.int(length(far), sum(hit), replace = TRUE)]
    }
    drawn <- object$fitted.values + drawn
    rownames(drawn) <- names(object$fitted.values)
    drawn <- as.data.frame(napredict(object$na.action, drawn))
    names(drawn) <- paste0("sim_", seq_len(nsim))
    structure(drawn, seed = if (is.null(seed)) before else structure(seed, kind = as.list(RNGkind())))
}

#' @rdname vemkn_fit_methods
#' @export
print.vemkn_fit <- function(x, digits = 4, ...) {
    line <- function(...) cat(paste(...), "\n", sep = "")
    number <- function(value) format(value, digits = digits)
    cat("\nCall:\n", paste(deparse(x$call), collapse = "\n"), "\n\n", sep = "")
    line("curve      of", quoted(x$targets), "over", quoted(x$columns))
    line("network   ", widths_text(fitted_network(x, length(coef(x)))), x$activation)
    line("rows      ", paste(c(x$rows, if (x$method == "robust") c("of which", x$beyond, "lie beyond six cores")),
                             collapse = " "))
    line("core      ", paste(number(x$core), collapse = " "))
    if (!is.na(x$decay)) line("decay     ", number(x$decay))
    if (!is.na(x$parameters)) line("parameters", number(x$parameters))
    for (note in x$notes) cat(strwrap(note, initial = "note: ", exdent = 6), sep = "\n")
    invisible(x)
}

#' @rdname vemkn_fit_methods
#' @export
summary.vemkn_fit <- function(object, ...) {
    residual <- plain_residuals(object)
    structure(list(fit = object,
                   residuals = structure(quantile(residual), names = c("Min", "1Q", "Median", "3Q", "Max")),
                   logLik = logLik(object)),
              class = "summary.vemkn_fit")
}

#' @rdname vemkn_fit_methods
#' @export
print.summary.vemkn_fit <- function(x, digits = 4, ...) {
    print(x$fit, digits = digits)
    cat("\nResiduals:\n")
    print(x$residuals, digits = digits)
    cat("\nlog-likelihood ", format(c(x$logLik), digits = digits), "\nobjective      ",
        format(x$fit$objective, digits = digits), " with a gradient of ", format(x$fit$gradient, digits = 2),
        if (!x$fit$settled) " (not settled)", "\n", sep = "")
    invisible(x)
}

#' @rdname vemkn_fit_methods
#' @export
plot.vemkn_fit <- function(x, which = 1:2, ...) {
    residual <- plain_residuals(x)
    if (length(which) > 1 && grDevices::dev.interactive()) {
        before <- grDevices::devAskNewPage(TRUE)
        on.exit(grDevices::devAskNewPage(before))
    }
    if (1 %in% which) {
        plot(x$fitted.values, residual, xlab = "fitted values", ylab = "residuals", ...)
        abline(h = c(-tail_from, 0, tail_from) * x$core, lty = c(3, 1, 3))
    }
    if (2 %in% which) {
        qqnorm(residual / x$core, ylab = "residuals / core", ...)
        abline(0, 1, lty = 3)
    }
    invisible(x)
}
