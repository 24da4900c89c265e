#' Outputs and residuals
#'
#' @param net a network made by [vemkn()].
#' @param weights numeric vector in the flat order, or `NULL` for the network's own.
#' @param x numeric matrix with a row for each case and `numin` columns, or a vector for one column.
#' @param y numeric matrix of targets with as many rows and `numout` columns, or a vector for one column.
#' @return `vemkn_compute()`: outputs, `vemkn_residual()`: outputs minus targets; each a matrix with a row for each case
#'   and `numout` columns. `NA` and `NaN` in a row make the results of that row `NA` or `NaN`; `is.na()` is true of
#'   both.
#' @details An argument of another shape is an error. This holds for fewer columns of `x`, too, although the library
#'   itself would count them as zeros.
#' @examples
#' net <- vemkn(3, numin = 1)
#' weights(net) <- c(0, 1, -1, 1, 2, 0.5, 0, 1, -1, 1)
#' vemkn_compute(net, NULL, c(-1, 0, 1))
#' vemkn_residual(net, NULL, c(-1, 0, 1), c(1, 1, 2))
#' @export
vemkn_compute <- function(net, weights, x) {
    weights <- flat_weights(net, weights)
    .Call(C_compute, net$handle, weights, inputs(net, x))
}

#' @rdname vemkn_compute
#' @export
vemkn_residual <- function(net, weights, x, y) {
    weights <- flat_weights(net, weights)
    x <- inputs(net, x)
    .Call(C_residual, net$handle, weights, x, targets(net, y, x))
}

# What a call takes, checked. The derivatives want at least one row.
batch_of <- function(net, weights, x, y) {
    weights <- flat_weights(net, weights)
    x <- inputs(net, x)
    check_rows(x)
    list(w = weights, x = x, y = targets(net, y, x))
}

# Tangents: a vector is one of them.
tangents <- function(net, v) numeric_matrix(v, "v", rows = net$numel)

#' Objective, gradient and Hessian
#'
#' The objective is the mean of the norm over all elements of the residuals. All derivatives are exact. Where a residual
#' of the likelihood lies on the jump between core and tail, they are those of its own piece.
#'
#' @inheritParams vemkn_compute
#' @param v tangents in weight space: a matrix with a row for each weight and a column for each tangent, or a vector
#'   for a single one.
#' @param block number of tangents in one call of the library. Memory grows with it, and between calls R can be
#'   interrupted.
#' @return `vemkn_objective()`: a number. `vemkn_gradient()`: the same number with the gradient as attribute
#'   `"gradient"`, the form that `nlm` takes. `vemkn_hessian_product()`: a list of `value`, `gradient` and `product`, a
#'   matrix of the shape of `v`. `vemkn_hessian()`: the symmetric matrix.
#' @seealso [vemkn_functions()] for `optim` and `nlminb`.
#' @examples
#' set.seed(1)
#' x <- seq(-2, 2, length.out = 50)
#' y <- 1 + x^2 / 2 + rnorm(50) / 3
#' net <- vemkn(3, numin = 1)
#' w <- rnorm(10)
#' vemkn_gradient(net, w, x, y)
#' fit <- nlm(function(w) vemkn_gradient(net, w, x, y), w)
#' fit$minimum
#' sqrt(diag(vemkn_hessian(net, fit$estimate, x, y)))
#' @export
vemkn_objective <- function(net, weights, x, y) {
    b <- batch_of(net, weights, x, y)
    .Call(C_objective, net$handle, b$w, b$x, b$y)
}

#' @rdname vemkn_objective
#' @export
vemkn_gradient <- function(net, weights, x, y) {
    b <- batch_of(net, weights, x, y)
    .Call(C_gradient, net$handle, b$w, b$x, b$y)
}

#' @rdname vemkn_objective
#' @export
vemkn_hessian_product <- function(net, weights, x, y, v) {
    b <- batch_of(net, weights, x, y)
    .Call(C_hessian_product, net$handle, b$w, b$x, b$y, tangents(net, v))
}

#' @rdname vemkn_objective
#' @export
vemkn_hessian <- function(net, weights, x, y, block = 32) {
    check_network(net)
    n <- net$numel
    block <- counts(block, "block", 1)
    hessian <- matrix(0, n, n)
    for (first in seq(1, n, by = block)) {
        columns <- first:min(first + block - 1, n)
        unit <- matrix(0, n, length(columns))
        unit[cbind(columns, seq_along(columns))] <- 1
        hessian[, columns] <- vemkn_hessian_product(net, weights, x, y, unit)$product
    }
    # Rounding leaves it a few units in the last place from symmetric.
    (hessian + t(hessian)) / 2
}

#' Jacobian products
#'
#' Products with the Jacobian of the normed residuals (the residuals themselves under the norm `"sum"`, their negative
#' log-likelihood under `"sum_log_dnorm_fat"`) with respect to the weights.
#'
#' @inheritParams vemkn_objective
#' @param u cotangents of the elements: a matrix of the shape of `y` for one; for `k` of them, an array of `numout`
#'   columns and `k` layers, or a matrix with `k` columns, each in the order of `as.vector(y)`.
#' @return `vemkn_jacobian_product()`: a list of `norms`, a matrix of the shape of `y` that is divided by nothing, and
#'   `product`, with a row for each element in the order of `as.vector(y)` and a column for each tangent.
#'
#'   `vemkn_product_jacobian()`: a list of `residual`, a matrix of the shape of `y`, and `product`, with a row for each
#'   weight and a column for each cotangent: the gradient of the weighted sum of the normed residuals.
#' @examples
#' net <- vemkn(3, numin = 1, norm = "sum")
#' w <- sin(1:10)
#' x <- c(-1, 0, 1)
#' jacobian <- vemkn_jacobian_product(net, w, x, c(0, 0, 0), diag(10))$product
#' vemkn_product_jacobian(net, w, x, c(0, 0, 0), c(1, 2, 3))$product - t(jacobian) %*% c(1, 2, 3)
#' @export
vemkn_jacobian_product <- function(net, weights, x, y, v) {
    b <- batch_of(net, weights, x, y)
    .Call(C_jacobian_product, net$handle, b$w, b$x, b$y, tangents(net, v))
}

#' @rdname vemkn_jacobian_product
#' @export
vemkn_product_jacobian <- function(net, weights, x, y, u) {
    b <- batch_of(net, weights, x, y)
    .Call(C_product_jacobian, net$handle, b$w, b$x, b$y, cotangents(u, nrow(b$x), net$numout))
}

# One column for each cotangent. A matrix of the shape of y is one cotangent; one with a row for each element is
# taken column by column; with one output the two readings agree but for the number of columns.
cotangents <- function(u, rows, numout) {
    refuse_long(u, "u")
    if (!is.numeric(u)) stop("'u' has to be numeric", call. = FALSE)
    shape <- if (is.null(dim(u))) c(length(u), 1) else dim(u)
    if (length(shape) == 3 && all(shape[1:2] == c(rows, numout))) {
        shape <- c(rows * numout, shape[3])
    } else if (length(shape) == 2 && all(shape == c(rows, numout))) {
        shape <- c(rows * numout, 1)
    } else if (length(shape) != 2 || shape[1] != rows * numout) {
        stop("'u' has to have the shape of 'y', or a row for each of its ", rows * numout, " elements", call. = FALSE)
    }
    matrix(as.double(u), shape[1], shape[2])
}

#' Functions for optimisers
#'
#' The objective of a network on fixed data, as functions of the weights alone. `fn` and `gr` share one call of the
#' library where they are asked for the same weights, one after the other, as `optim` and `nlminb` do.
#'
#' @inheritParams vemkn_objective
#' @return A list of functions of a weight vector: `fn`, the objective; `gr`, its gradient; `he`, its Hessian; `nlm`,
#'   the objective with attribute `"gradient"`.
#' @details A line search may step so far that the objective is `Inf` or `NaN`. The methods `"BFGS"` and `"CG"` of
#'   `optim` and `nlminb` take a smaller step then; `"L-BFGS-B"` ends with an error.
#' @examples
#' set.seed(1)
#' x <- seq(-2, 2, length.out = 50)
#' y <- 1 + x^2 / 2 + rnorm(50) / 3
#' net <- vemkn(3, numin = 1)
#' f <- vemkn_functions(net, x, y)
#' w <- rnorm(10)
#' optim(w, f$fn, f$gr, method = "BFGS", control = list(maxit = 500))$value
#' nlminb(w, f$fn, f$gr, f$he)$objective
#' @export
vemkn_functions <- function(net, x, y) {
    check_network(net)
    x <- inputs(net, x)
    check_rows(x)
    y <- targets(net, y, x)
    asked <- NULL
    answer <- NULL
    # The names that an optimiser hangs on its vector are no part of the question.
    both <- function(w) {
        w <- as.double(w)
        if (!identical(w, asked)) {
            answer <<- vemkn_gradient(net, w, x, y)
            asked <<- w
        }
        answer
    }
    list(fn = function(w) as.double(both(w)),
         gr = function(w) attr(both(w), "gradient"),
         he = function(w) vemkn_hessian(net, w, x, y),
         nlm = function(w) both(w))
}
