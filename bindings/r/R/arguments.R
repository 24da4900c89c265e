# Checks for callers of R. The compiled code checks shapes once more.

# A whole number from 1 on, or several of them.
counts <- function(value, name, length = NULL) {
    if (!is.numeric(value) || length(value) == 0 || anyNA(value) ||
        any(value < 1 | value != floor(value) | value > .Machine$integer.max)) {
        stop("'", name, "' has to be whole numbers from 1 on", call. = FALSE)
    }
    if (!is.null(length) && length(value) != length) stop("'", name, "' has to be one number", call. = FALSE)
    as.integer(value)
}

refuse_long <- function(value, name) {
    if (length(value) > .Machine$integer.max) {
        stop("'", name, "' is a long vector, which is not supported", call. = FALSE)
    }
}

check_network <- function(net) {
    if (!inherits(net, "vemkn")) stop("'net' has to be a network made by vemkn()", call. = FALSE)
}

# The weights as doubles; NULL stands for the network's own.
flat_weights <- function(net, weights) {
    check_network(net)
    if (is.null(weights)) return(net$weights)
    if (!is.numeric(weights)) stop("'weights' has to be numeric", call. = FALSE)
    if (length(weights) != net$numel) {
        stop(length(weights), " weights, but the network has ", net$numel, call. = FALSE)
    }
    as.double(weights)
}

# One number from the least value on, or above it.
number_from <- function(value, name, least, above = FALSE) {
    if (!is.numeric(value) || length(value) != 1 || !is.finite(value) || value < least || above && value == least) {
        stop("'", name, "' has to be one number ", if (above) "above " else "from ", least, if (!above) " on", call. = FALSE)
    }
    as.double(value)
}

# A matrix of doubles with that many columns, and rows if it matters. A plain vector is one column.
numeric_matrix <- function(value, name, columns = NULL, rows = NULL) {
    refuse_long(value, name)
    if (!is.numeric(value)) {
        hint <- if (is.data.frame(value)) ": take as.matrix() or model.matrix()" else ""
        stop("'", name, "' has to be a numeric vector or matrix", hint, call. = FALSE)
    }
    if (length(dim(value)) > 2) stop("'", name, "' has ", length(dim(value)), " dimensions, not two", call. = FALSE)
    if (!is.matrix(value)) value <- matrix(value, ncol = 1, dimnames = if (!is.null(names(value))) list(names(value), NULL))
    if (!is.null(columns) && ncol(value) != columns) {
        stop("'", name, "' has ", ncol(value), " columns, but the network has ", columns, call. = FALSE)
    }
    if (!is.null(rows) && nrow(value) != rows) {
        stop("'", name, "' has ", nrow(value), " rows, but needs ", rows, call. = FALSE)
    }
    storage.mode(value) <- "double"
    value
}

inputs <- function(net, x) numeric_matrix(x, "x", columns = net$sizes[1])

targets <- function(net, y, x) numeric_matrix(y, "y", columns = net$numout, rows = nrow(x))

check_rows <- function(x) if (nrow(x) == 0) stop("'x' has no rows", call. = FALSE)
