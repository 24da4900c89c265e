# The network and the likelihood once more, in plain R.

activations <- list(softplus = function(z) pmax(z, 0) + log1p(exp(-abs(z))), atan = atan, relu = function(z) pmax(z, 0),
                    id = identity)

# widths: of all layers, from the inputs to the outputs. w: in the flat order.
plain_outputs <- function(widths, activation, w, x) {
    h <- x
    at <- 0
    for (layer in seq_len(length(widths) - 1)) {
        from <- widths[layer]
        to <- widths[layer + 1]
        bias <- w[at + seq_len(to)]
        weight <- matrix(w[at + to + seq_len(from * to)], from, to, byrow = TRUE)
        h <- activations[[activation]](sweep(h %*% weight, 2, bias, "+"))
        dim(h) <- c(nrow(x), to)
        at <- at + to * (from + 1)
    }
    stopifnot(at == length(w))
    h
}

# Densities are R's own; 0 at a residual of 0.
plain_norm <- function(r) {
    core <- dnorm(r, sd = 1 / 3, log = TRUE)
    tail <- dcauchy(r, scale = 0.0004785973257525766, log = TRUE)
    dnorm(0, sd = 1 / 3, log = TRUE) - ifelse(abs(r) < 2, core, tail)
}

# Two inputs, two outputs, and rows enough for several slices. Some residuals lie far out in the tail.
example_problem <- function(activation = "softplus", norm = "sum_log_dnorm_fat", ...) {
    set.seed(3)
    widths <- c(2, 5, 4, 2)
    net <- vemkn(5, 4, numin = 2, numout = 2, activation = activation, norm = norm, batch = 8, ...)
    x <- matrix(rnorm(2 * 37), 37)
    w <- rnorm(net$numel) / 2
    outputs <- plain_outputs(widths, activation, w, x)
    y <- outputs + rnorm(length(outputs)) / 3
    y[c(3, 17), 2] <- y[c(3, 17), 2] + c(20, -30)
    # Differences must not step over the jump.
    stopifnot(all(abs(abs(outputs - y) - 2) > 0.1))
    list(net = net, widths = widths, activation = activation, norm = norm, w = w, x = x, y = y)
}

plain_objective <- function(p, w) {
    residual <- plain_outputs(p$widths, p$activation, w, p$x) - p$y
    mean(if (p$norm == "sum") residual else plain_norm(residual))
}

# Central differences along the columns of v of a function that may have several values. With a step of 1e-5 they are
# off by about step^2 = 1e-10 from the third derivative and eps / step = 2e-11 from rounding, both times the function's
# size; 1e-7 leaves room for that size.
differences <- function(f, w, v, step = 1e-5) {
    apply(as.matrix(v), 2, function(d) (f(w + step * d) - f(w - step * d)) / (2 * step))
}
difference_tolerance <- 1e-7

# Rounding of sums of a few hundred terms.
rounding <- 1e-12
