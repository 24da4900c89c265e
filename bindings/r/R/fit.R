#' Robust regression by a small network
#'
#' Fits a curve to data so that up to 30 % of gross outliers leave it nearly where it was. Residuals within six standard
#' deviations of normal scatter, the *core*, count as Gaussian, those beyond as the tail of a Cauchy density. Core and
#' decay are estimated with the weights. The library libvemknfit computes the fit: on one machine the same
#' doubles, options and version give the same digits in R, in Python and in C.
#'
#' @param x a formula; or a numeric matrix or data frame of inputs with a row for each case, or a vector for one input.
#' @param formula `target ~ inputs`. Factors and interactions become columns as in [lm()], but for the intercept, which
#'   the network has anyway. An offset is refused.
#' @param data,subset,na.action,contrasts as in [lm()].
#' @param y numeric vector of targets.
#' @param hidden widths of the hidden layers.
#' @param activation of every layer: `"softplus"`, or `"id"`, a linear model.
#' @param core standard deviation of normal scatter, in units of `y`; estimated if it is `NULL`.
#' @param decay penalty `decay/2` times the squared weights, of scaled inputs and targets, beside the summed negative
#'   log-likelihood; 0 for none. Chosen by cross-validation if it is `NULL`.
#' @param starts number of random starts.
#' @param seed whole number that starts, folds and the rows that are searched follow. R's random numbers and
#'   [set.seed()] have no effect.
#' @param threads number of threads at most; no bit depends on it.
#' @param period named numbers: `c(hour = 24)` takes the sine and cosine of `2 pi hour / 24` as inputs, so that midnight
#'   is one time of day.
#' @param ... options as for the matrix form; there, nothing. `weights` and `offset` are refused: the library does not
#'   take them.
#' @return An object of class `"vemkn_fit"`, see [vemkn_fit_methods]. Its members are
#'   - from the library `columns`, `targets`, `core`, `shift`, `hidden`, `activation`, `method`, `decay`, `objective`,
#'     `gradient` (its norm), `settled`, `rows`, `beyond` (rows beyond six cores; 0 if `method` is not `"robust"`),
#'     `parameters` (that the rows determine) and `notes`, sentences to read before one trusts the fit;
#'   - `curve`, the library's model, and `call`;
#'   - but for a loaded model: `x`, `y` and `fitted.values` of the rows that were fitted;
#'   - of a formula: `terms`, `variables` (that new data have to have), `xlevels`, `contrasts` and `na.action`.
#'
#'   Weights and residuals are no members: ask `coef()` and `residuals()`.
#'
#' @section Columns:
#' Columns are found by name, in new data, too, in any order. Those without a name are called `x1`, `x2`, and so on.
#' Inputs are scaled by their median and quantiles, and bounded.
#'
#' @section Errors:
#' What the library refuses is an error of class `"vemkn_error"` with its sentence; `row` is the number of the row at
#' fault among those fitted, or `NULL`. An interrupt ends a fit within about a twentieth of a second, or one evaluation.
#'
#' @seealso [vemkn_fit_methods] for predictions and standard errors, [vemkn_save()] for model files.
#' @examples
#' set.seed(1)
#' d <- data.frame(t = runif(200, -2, 2))
#' d$height <- 3 + sin(2 * d$t) + rnorm(200, sd = 0.1)
#' d$height[1:10] <- d$height[1:10] + 50
#' fit <- vemkn_fit(height ~ t, d, decay = 0.1)
#' fit
#' predict(fit, data.frame(t = c(-1, 0, 1)), interval = "confidence")
#' 3 + sin(2 * c(-1, 0, 1))
#' @export
vemkn_fit <- function(x, ...) UseMethod("vemkn_fit")

#' @rdname vemkn_fit
#' @export
vemkn_fit.formula <- function(formula, data = NULL, subset, na.action, contrasts = NULL, ...) {
    call <- match.call()
    call[[1]] <- quote(vemkn_fit)
    frame_call <- call[c(1, match(c("formula", "data", "subset", "na.action"), names(call), 0))]
    frame_call[[1]] <- quote(stats::model.frame)
    frame_call$drop.unused.levels <- TRUE
    frame <- eval(frame_call, parent.frame())
    terms <- attr(frame, "terms")
    if (!is.null(attr(terms, "offset"))) stop("an offset is not taken: subtract it from the target", call. = FALSE)
    y <- model.response(frame)
    if (is.null(y)) stop("the formula has no target", call. = FALSE)
    if (!is.matrix(y)) y <- target_column(y, deparse1(formula(terms)[[2]]))
    made <- design(terms, frame, contrasts)
    if (ncol(made$x) == 0) stop("the formula has no inputs", call. = FALSE)

    fit <- naming_rows(rownames(frame), vemkn_fit.default(made$x, y, ...))
    fit$notes <- name_rows(fit$notes, rownames(frame))
    fit$call <- call
    fit$terms <- terms
    fit$variables <- variables_of(terms, data)
    fit$xlevels <- .getXlevels(terms, frame)
    fit$contrasts <- made$contrasts
    fit$na.action <- attr(frame, "na.action")
    fit
}

target_column <- function(y, name) {
    if (!is.numeric(y)) stop("the target ", quoted(name), " is not numeric", call. = FALSE)
    matrix(y, ncol = 1, dimnames = list(names(y), name))
}

#' @rdname vemkn_fit
#' @export
vemkn_fit.default <- function(x, y, hidden = 6, activation = c("softplus", "id"), core = NULL, decay = NULL,
                              starts = 3, seed = 1, threads = 1, period = NULL, ...) {
    call <- match.call(expand.dots = FALSE)
    refuse_arguments(call$...)
    if (!missing(y) && inherits(y, "formula")) stop(formula_first, call. = FALSE)
    call[[1]] <- quote(vemkn_fit)
    x <- named_matrix(x, "x")
    if (ncol(x) == 0) stop("'x' has no columns", call. = FALSE)
    y <- numeric_matrix(y, "y", rows = nrow(x))
    if (ncol(y) != 1) stop("'y' has ", ncol(y), " columns: a robust fit has one target", call. = FALSE)
    if (is.null(colnames(y))) colnames(y) <- "y"
    numbers <- c(if (is.null(core)) 0 else number_from(core, "core", 0, above = TRUE),
                 decay_number(decay),
                 whole_number(seed, "seed"),
                 counts(starts, "starts", 1),
                 counts(threads, "threads", 1))
    handle <- called(.Call(C_fit, x, y, counts(hidden, "hidden"), match.arg(activation), numbers, colnames(x),
                           periods(period, colnames(x)), enc2utf8(colnames(y))))
    fit <- model_of(handle)
    fit$call <- call
    fit$x <- x
    fit$y <- y[, 1]
    fit$fitted.values <- predictions(fit, x)
    fit
}

formula_first <- "put the formula first, as in vemkn_fit(y ~ a + b, data)"

# Names alone: the values may be names of columns that nobody could evaluate.
refuse_arguments <- function(dots) {
    if (length(dots) == 0) return()
    given <- if (is.null(names(dots))) "" else names(dots)
    if ("weights" %in% given) stop("'weights' are not taken: every row counts alike", call. = FALSE)
    if ("offset" %in% given) stop("an offset is not taken: subtract it from the target", call. = FALSE)
    stop(if (given[1] == "") "an argument too many" else paste("there is no argument", quoted(given[1])),
         if (any(c("data", "formula") %in% given)) paste0(": ", formula_first), call. = FALSE)
}

# As the library takes it: 0 stands for the choice by cross-validation, -1 for none.
decay_number <- function(decay) {
    if (is.null(decay)) return(0)
    decay <- number_from(decay, "decay", 0)
    if (decay == 0) -1 else decay
}

# Doubles hold every whole number up to 2^53.
whole_number <- function(value, name) {
    value <- number_from(value, name, 0)
    if (value != floor(value) || value > 2^53) stop("'", name, "' has to be a whole number up to 2^53", call. = FALSE)
    value
}

# A number for each column, 0 where it has no period.
periods <- function(period, columns) {
    all <- stats::setNames(numeric(length(columns)), columns)
    if (is.null(period)) return(all)
    if (!is.numeric(period) || is.null(names(period)) || !all(is.finite(period) & period > 0)) {
        stop("'period' has to be named numbers above 0, as in c(hour = 24)", call. = FALSE)
    }
    unknown <- setdiff(names(period), columns)
    if (length(unknown) > 0) {
        stop("'period' names ", quoted(unknown[1]), ", which is no column; there are ", quoted(columns), call. = FALSE)
    }
    all[names(period)] <- period
    all
}

# The R object of a handle, without rows.
model_of <- function(handle) structure(c(list(curve = handle), called(.Call(C_fit_summary, handle))), class = "vemkn_fit")

check_fit <- function(fit) {
    if (!inherits(fit, "vemkn_fit")) stop("'fit' has to be a fit made by vemkn_fit() or vemkn_load()", call. = FALSE)
}

one_path <- function(path) {
    if (!is.character(path) || length(path) != 1 || is.na(path)) stop("'path' has to be one string", call. = FALSE)
    path.expand(path)
}

#' Model files
#'
#' A model file, JSON, holds all that predictions take. The library writes and reads it, so every front end reads what
#' another wrote: this package, Python, C and the program `vemkn-fit`.
#'
#' @param fit a fit made by [vemkn_fit()].
#' @param path of the file. An older one survives what goes wrong.
#' @return `vemkn_save()`: `path`, invisibly. `vemkn_load()`: an object of class `"vemkn_fit"` whose predictions are those
#'   of the fit that was saved, to the bit.
#' @details A file holds columns, not the formula that made them, and no rows: a loaded model predicts from a matrix or
#'   data frame that has the columns, and has no residuals. `saveRDS()` keeps everything.
#' @examples
#' x <- cbind(speed = cars$speed)
#' fit <- vemkn_fit(x, cars$dist, hidden = 2, decay = 1)
#' path <- tempfile(fileext = ".json")
#' vemkn_save(fit, path)
#' model <- vemkn_load(path)
#' predict(model, data.frame(speed = c(10, 20)))
#' unlink(path)
#' @export
vemkn_save <- function(fit, path) {
    check_fit(fit)
    called(.Call(C_fit_save, fit$curve, one_path(path)))
    invisible(path)
}

#' @rdname vemkn_save
#' @export
vemkn_load <- function(path) {
    fit <- model_of(called(.Call(C_fit_load, one_path(path))))
    fit$call <- match.call()
    fit
}
