# R's nnet at given weights; see with_nnet.py, which writes the commands:
#
#     time N     seconds of a call, over N calls
#     value      the objective
#     gradient   the gradient in the flat order of vemkn.h
#
# The package computes objective and gradient only within its optimiser. With no iterations the optimiser computes the
# objective once; with every weight masked it computes objective and gradient once and stops.

suppressPackageStartupMessages(library(nnet))

arguments <- commandArgs(trailingOnly = TRUE)
directory <- arguments[1]
widths <- as.integer(arguments[2:4])
operation <- arguments[5]

numbers <- function(name) {
    path <- file.path(directory, paste0(name, ".f64"))
    readBin(path, "double", file.size(path) / 8)
}

# nnet keeps, unit by unit, the bias and then the weights of its inputs: the transposed of [b; W].
k <- widths[1]; h <- widths[2]; n <- widths[3]
index <- seq_len((k + 1) * h + (h + 1) * n)
first <- matrix(index[seq_len((k + 1) * h)], k + 1, h, byrow = TRUE)
last <- matrix(index[-seq_len((k + 1) * h)], h + 1, n, byrow = TRUE)
order_of_nnet <- c(first, last)

wts <- numbers("w")[order_of_nnet]
x <- matrix(numbers("x"), ncol = k, byrow = TRUE)
y <- matrix(numbers("y"), ncol = n, byrow = TRUE)

net <- nnet(x[1:2, , drop = FALSE], y[1:2, , drop = FALSE], size = h, Wts = wts, linout = TRUE,
            maxit = 0, trace = FALSE, MaxNWts = length(wts))
z <- as.double(cbind(x, y))
weights <- rep(1.0, nrow(x))
none <- integer(length(wts))
all <- rep(1L, length(wts))
ns <- asNamespace("nnet")

invisible(.C(ns$VR_set_net, as.integer(net$n), as.integer(net$nconn), as.integer(net$conn),
             double(length(wts)), as.integer(net$nsunits), 0L, 0L, 0L))

optimiser <- function(maxit, mask, abstol) {
    .C(ns$VR_dovm, nrow(x), z, weights, length(wts), wts = wts, val = double(1), as.integer(maxit),
       FALSE, mask, abstol, 1e-8, ifail = integer(1))
}

objective <- function() optimiser(0, none, 0)$val
objective_and_gradient <- function() optimiser(100, none, 0)$val

# One accepted step of steepest descent goes from w to w - s g, with s a power of 0.2; the step that a difference of the
# objective agrees with best gives s.
gradient <- function() {
    step <- wts - optimiser(100, all, 1e300)$wts
    along <- step / sqrt(sum(step^2))
    value_at <- function(w) {
        .C(ns$VR_dovm, nrow(x), z, weights, length(w), wts = w, val = double(1), 0L,
           FALSE, none, 0, 1e-8, ifail = integer(1))$val
    }
    slope <- (value_at(wts + 1e-5 * along) - value_at(wts - 1e-5 * along)) / 2e-5
    s <- 0.2^round(log(sqrt(sum(step^2)) / slope) / log(0.2))
    flat <- numeric(length(wts))
    flat[order_of_nnet] <- step / s
    flat
}

call <- if (operation == "obj") objective else objective_and_gradient

input <- file("stdin", "r")
while (length(line <- readLines(input, 1)) > 0) {
    words <- strsplit(line, " ")[[1]]
    answer <- switch(words[1],
        value = call(),
        gradient = gradient(),
        time = {
            count <- as.integer(words[2])
            start <- as.numeric(Sys.time())
            for (i in seq_len(count)) call()
            (as.numeric(Sys.time()) - start) / count
        })
    cat(sprintf("%.17g", answer), "\n")
    flush(stdout())
}
