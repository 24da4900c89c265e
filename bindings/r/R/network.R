#' A network
#'
#' A dense feed-forward network with the library's objective. The value is an ordinary R object that carries its
#' weights: a changed copy leaves the original alone, and a saved one comes back with its weights.
#'
#' The activation acts on every layer, the last one included: softplus and relu networks have positive outputs, atan
#' networks outputs within pi/2 of zero, and with `"id"` the whole network is affine. A network starts with all weights
#' zero, from where no optimiser gets far: set random ones.
#'
#' The norm `"sum_log_dnorm_fat"` is the mean of a negative log-likelihood with a Gaussian core of standard deviation
#' 1/3 for residuals within 2 of zero, and a Cauchy tail beyond; so targets have to be scaled to it. `"sum"` is the
#' signed mean of the residuals: it has no minimum, and serves for residuals and their Jacobian products.
#'
#' @section Life of a network:
#' The compiled part of a network is shared by its copies. It is freed when the last copy is garbage; or at once by
#' `vemkn_release()`, after which all copies are refused with an error. One that was saved and loaded, or sent to another
#' process, is built anew when it is first used.
#'
#' @param ... widths of the hidden layers, at least one.
#' @param numin,numout number of inputs and outputs.
#' @param activation of every layer: `"softplus"`, `"atan"`, `"relu"`, `"id"`, or another word that the library knows.
#' @param norm what is made of the residuals: `"sum_log_dnorm_fat"` or `"sum"`.
#' @param threads number of threads at most. The same data with the same `batch` give the same bits.
#' @param batch rows that are worked on at a time.
#' @param nmult how often the hidden layers are applied in a chain. Above 1 the last hidden width has to be `numin`.
#' @return `vemkn()`: an object of class `"vemkn"`. `weights()`: its weights in the flat order, see [vemkn-package].
#'   `vemkn_version()`: the version of the library that runs.
#' @examples
#' net <- vemkn(4, numin = 2)
#' weights(net) <- rnorm(length(weights(net)))
#' net
#' @export
vemkn <- function(..., numin, numout = 1, activation = "softplus",
                  norm = "sum_log_dnorm_fat", threads = 1, batch = 32, nmult = 1) {
    hidden <- counts(c(...), "hidden widths")
    numin <- counts(numin, "numin", 1)
    numout <- counts(numout, "numout", 1)
    threads <- counts(threads, "threads", 1)
    batch <- counts(batch, "batch", 1)
    nmult <- counts(nmult, "nmult", 1)
    activation <- match.arg(activation, .Call(C_words, FALSE))
    norm <- match.arg(norm, .Call(C_words, TRUE))
    if (threads > 99999) stop("'threads' has to be at most 99999")
    if (nmult > 1 && hidden[length(hidden)] != numin) {
        stop("with 'nmult' above 1 the last hidden width has to be 'numin', as its outputs are the next inputs")
    }
    sizes <- c(numin, hidden)
    if (number_of_weights(sizes, numout, nmult) > .Machine$integer.max) stop("the network has too many weights")
    text <- paste(c(numin, numout, length(sizes), nmult, batch, sizes, activation, norm), collapse = " ")
    handle <- .Call(C_create, text, threads, batch)
    numel <- .Call(C_numel, handle)
    structure(list(handle = handle, sizes = sizes, numout = numout, nmult = nmult, activation = activation, norm = norm,
                   threads = threads, batch = batch, numel = numel, weights = numeric(numel)),
              class = "vemkn")
}

# Rows and columns of every weight matrix, a row for each layer. In doubles: the product may pass the integers.
layer_shapes <- function(sizes, numout, nmult) {
    rows <- as.double(sizes)
    rows[length(rows)] <- rows[length(rows)] * nmult
    cbind(rows = rows, columns = c(sizes[-1], numout))
}

number_of_weights <- function(sizes, numout, nmult) {
    shapes <- layer_shapes(sizes, numout, nmult)
    sum((shapes[, "rows"] + 1) * shapes[, "columns"])
}

# "b1[2]" is the bias of the second unit of the first layer, "W1[3,2]" the weight from the third input to it.
weight_names <- function(net) {
    shapes <- layer_shapes(net$sizes, net$numout, net$nmult)
    unlist(lapply(seq_len(nrow(shapes)), function(layer) {
        to <- seq_len(shapes[layer, "columns"])
        from <- rep(seq_len(shapes[layer, "rows"]), each = length(to))
        c(sprintf("b%d[%d]", layer, to), sprintf("W%d[%d,%d]", layer, from, to))
    }))
}

widths_text <- function(net) paste(c(net$sizes, net$numout), collapse = "-")

#' @rdname vemkn
#' @param x,object a network.
#' @export
print.vemkn <- function(x, ...) {
    cat("network", widths_text(x), x$activation)
    if (x$nmult > 1) cat(", hidden layers", x$nmult, "times")
    cat("\nnorm    ", x$norm, "\nweights ", x$numel)
    if (all(x$weights == 0)) cat(", all zero")
    cat("\nthreads ", x$threads, ", batch ", x$batch, "\n", sep = "")
    invisible(x)
}

#' @rdname vemkn
#' @export
weights.vemkn <- function(object, ...) object$weights

#' @rdname vemkn
#' @param value numeric vector, one number for each weight.
#' @export
`weights<-` <- function(object, value) UseMethod("weights<-")

#' @rdname vemkn
#' @export
`weights<-.vemkn` <- function(object, value) {
    if (is.null(value)) stop("'weights' has to be numeric")
    object$weights <- flat_weights(object, value)
    object
}

#' @rdname vemkn
#' @param net a network.
#' @export
vemkn_release <- function(net) {
    check_network(net)
    invisible(.Call(C_release, net$handle))
}

#' @rdname vemkn
#' @export
vemkn_version <- function() .Call(C_version)
