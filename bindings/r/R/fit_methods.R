#' What a fit knows
#'
#' @param object,x a fit made by [vemkn_fit()], or its summary.
#' @param newdata inputs as `x` of the fit; by default those of the fit.
#' @param se.fit whether to give standard errors, too.
#' @param least_curvature what directions in weight space are taken to curve by that curve by less. By default the
#'   `decay` of the fit, if it has one, else 1.
#' @param digits number of significant digits.
#' @param ... not used.
#' @return `predict()` and `fitted()`: outputs in the units of the targets, a matrix with a row for each case; with
#'   `se.fit` a list of `fit` and `se.fit`, matrices of the same shape. `residuals()`: targets minus outputs, such a
#'   matrix. `coef()`: the weights in the flat order, with names: `"b1[2]"` is the bias of the second unit of the first
#'   layer, `"W1[3,2]"` the weight from the third input to it. `vcov()`: their covariance. `summary()`: a list of `fit`,
#'   `errors`, a row of figures for each target, and `coefficients`, the weights with their standard errors.
#'
#' @section Standard errors:
#' `vcov()` is Laplace's approximation: the inverse Hessian of the whole negative log-likelihood at the optimum, for the
#' weights in the network's units. The likelihood's scale is fixed by `core`, so nothing is estimated from the
#' residuals. Data often leave directions in weight space undetermined, and an optimum may lie at a jump of the
#' likelihood, where the Hessian is not positive. Directions that curve by less than `least_curvature` are therefore
#' taken to curve by that much, and a warning gives their number. Without `decay` they so become uncertain by 1, the
#' spread of the starting weights; with it, as uncertain as the prior says. Standard errors of predictions follow from
#' `vcov()` by the exact Jacobian of the outputs.
#' @examples
#' set.seed(1)
#' x <- runif(100, -2, 2)
#' fit <- vemkn_fit(x, 2 + x + rnorm(100, sd = 0.2), hidden = 2, decay = 1)
#' summary(fit)
#' predict(fit, c(-1, 1), se.fit = TRUE)
#' @name vemkn_fit_methods
NULL

#' @rdname vemkn_fit_methods
#' @export
print.vemkn_fit <- function(x, digits = 5, ...) {
    cat("network   ", widths_text(x$net), x$net$activation, "\n")
    cat("rows      ", nrow(x$y), "\n")
    cat("core      ", format(x$target_map$core, digits = digits), "\n")
    cat("shift     ", format(x$target_map$shift, digits = digits), "\n")
    cat("objective ", format(x$value, digits = digits), "of starts", format(sort(x$starts), digits = digits), "\n")
    if (x$convergence != 0) cat("the optimiser stopped before it converged, code", x$convergence, x$message, "\n")
    invisible(x)
}

#' @rdname vemkn_fit_methods
#' @export
coef.vemkn_fit <- function(object, ...) {
    structure(object$net$weights, names = weight_names(object$net))
}

#' @rdname vemkn_fit_methods
#' @export
vcov.vemkn_fit <- function(object, least_curvature = NULL, ...) {
    tcrossprod(covariance_root(object, least_curvature))
}

# The negative log-likelihood's Hessian: the objective is a mean.
information <- function(object) {
    hessian <- vemkn_hessian(object$net, NULL, object$x, object$y)
    length(object$y) * hessian + diag(object$decay, nrow(hessian))
}

# A matrix whose product with its own transpose is the covariance. Sums of squares of it stay positive.
covariance_root <- function(object, least_curvature) {
    if (is.null(least_curvature)) least_curvature <- if (object$decay > 0) object$decay else 1
    parts <- eigen(information(object), symmetric = TRUE)
    # Directions of which the data say nothing at all curve by the decay, but for rounding.
    low <- sum(parts$values < least_curvature - 1e-10 * max(abs(parts$values)))
    if (low > 0) {
        warning(low, " of ", length(parts$values), " directions in weight space are not determined by the data: ",
                "they are taken to curve by ", least_curvature, call. = FALSE)
    }
    root <- sweep(parts$vectors, 2, sqrt(pmax(parts$values, least_curvature)), "/")
    rownames(root) <- weight_names(object$net)
    root
}

#' @rdname vemkn_fit_methods
#' @export
predict.vemkn_fit <- function(object, newdata, se.fit = FALSE, least_curvature = NULL, ...) {
    x <- if (missing(newdata)) object$x else apply_input_map(object$input_map, inputs(object$net, newdata))
    fit <- undo_target_map(object$target_map, vemkn_compute(object$net, NULL, x))
    if (!se.fit) return(fit)
    list(fit = fit, se.fit = standard_errors(object, x, covariance_root(object, least_curvature)))
}

rows_at_a_time <- 1024

# In units of y. The Jacobian of the outputs is that of the residuals themselves, under the norm "sum".
standard_errors <- function(object, x, root) {
    net <- object$net
    plain <- vemkn(net$sizes[-1], numin = net$sizes[1], numout = net$numout, activation = net$activation, norm = "sum")
    errors <- matrix(0, nrow(x), net$numout)
    for (first in seq(1, by = rows_at_a_time, length.out = ceiling(nrow(x) / rows_at_a_time))) {
        rows <- first:min(first + rows_at_a_time - 1, nrow(x))
        zeros <- matrix(0, length(rows), net$numout)
        along_root <- vemkn_jacobian_product(plain, net$weights, x[rows, , drop = FALSE], zeros, root)$product
        errors[rows, ] <- sqrt(rowSums(along_root^2))
    }
    sweep(errors, 2, object$target_map$core / core_deviation, "*")
}

#' @rdname vemkn_fit_methods
#' @export
fitted.vemkn_fit <- function(object, ...) predict(object)

#' @rdname vemkn_fit_methods
#' @export
residuals.vemkn_fit <- function(object, ...) undo_target_map(object$target_map, object$y) - fitted(object)

#' @rdname vemkn_fit_methods
#' @export
summary.vemkn_fit <- function(object, least_curvature = NULL, ...) {
    residual <- residuals(object)
    limit <- tail_from / core_deviation * object$target_map$core
    errors <- cbind("median |error|" = apply(abs(residual), 2, median),
                    "median error" = apply(residual, 2, median),
                    "root mean square" = sqrt(colMeans(residual^2)),
                    "beyond six cores" = colMeans(sweep(abs(residual), 2, limit, ">=")))
    rownames(errors) <- paste("target", seq_len(ncol(residual)))
    coefficients <- cbind(Estimate = coef(object), "Std. Error" = sqrt(diag(vcov(object, least_curvature))))
    structure(list(fit = object, errors = errors, coefficients = coefficients), class = "summary.vemkn_fit")
}

#' @rdname vemkn_fit_methods
#' @export
print.summary.vemkn_fit <- function(x, digits = 5, ...) {
    print(x$fit, digits = digits)
    cat("calls     ", sum(x$fit$counts, na.rm = TRUE), "of objective and gradient\n")
    cat("\nResiduals in the units of the targets:\n")
    print(x$errors, digits = digits)
    cat("\nWeights in the units of the network:\n")
    print(x$coefficients, digits = digits)
    invisible(x)
}
