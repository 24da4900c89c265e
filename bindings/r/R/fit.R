#' A robust fit of a network
#'
#' Fits a network to data so that gross outliers do not pull the fit along: residuals within six core scales count as
#' Gaussian, those beyond as the tail of a Cauchy density, where one outlier costs little more than another.
#'
#' @param x numeric matrix of inputs with a row for each case, or a vector for one input. No missing values.
#' @param y numeric matrix of targets, or a vector for one target. No missing values.
#' @param hidden widths of the hidden layers.
#' @param activation of every layer, see [vemkn()].
#' @param core standard deviation of normal scatter, in units of `y`; one number, or one for each target. By default the
#'   scaled median absolute deviation from a least-absolute-deviations line, which is rather too large than too small.
#' @param shift value of `y` that maps to 0. The default suits the range of the activation.
#' @param decay precision of a Gaussian prior on every weight and bias: `decay/2` times the sum of their squares is added
#'   to the negative log-likelihood. 0 for none.
#' @param starts number of random starts; the best is kept. They follow R's random numbers, see [set.seed()].
#' @param method of minimisation: `"BFGS"` or `"CG"` of `optim`, or `nlminb` with the exact Hessian.
#' @param maxit iterations of a start at most.
#' @param threads,batch see [vemkn()].
#' @return An object of class `"vemkn_fit"`: a list of the fitted network `net`, the maps of inputs and targets, the
#'   objective `value`, the `convergence` code and `message` of the optimiser, the objectives `starts`, `counts` of
#'   calls, `decay`, and the mapped data.
#'
#' @section Scaling:
#' Inputs are brought to mean 0 and standard deviation 1. Targets are mapped by `(y - shift) / (3 core)`, as the
#' likelihood's core has standard deviation 1/3. Starting weights are Gaussian, with standard deviation 1 for biases and
#' 1 over the root of the number of inputs of the layer for the others. The biases of the output layer are moved until
#' the median output is the median target; otherwise all rows might start in the flat tail, where nothing pulls.
#'
#' @seealso [vemkn_fit_methods] for predictions, standard errors and the summary.
#' @examples
#' set.seed(1)
#' x <- runif(200, -2, 2)
#' y <- 3 + sin(2 * x) + rnorm(200, sd = 0.1)
#' y[1:10] <- y[1:10] + 50
#' fit <- vemkn_fit(x, y, hidden = 4, core = 0.1, decay = 0.1)
#' fit
#' p <- predict(fit, c(-1, 0, 1), se.fit = TRUE)
#' cbind(truth = 3 + sin(2 * c(-1, 0, 1)), fit = p$fit[, 1], se = p$se.fit[, 1])
#' @export
vemkn_fit <- function(x, y, hidden = 6, activation = "softplus", core = NULL, shift = NULL,
                      decay = 0, starts = 3, method = c("BFGS", "CG", "nlminb"), maxit = 1000, threads = 1,
                      batch = 64) {
    activation <- match.arg(activation, .Call(C_words, FALSE))
    method <- match.arg(method)
    starts <- counts(starts, "starts", 1)
    maxit <- counts(maxit, "maxit", 1)
    if (!is.numeric(decay) || length(decay) != 1 || !is.finite(decay) || decay < 0) {
        stop("'decay' has to be one number from 0 on")
    }
    x <- finite_matrix(x, "x")
    y <- finite_matrix(y, "y", rows = nrow(x))
    if (nrow(x) < 2) stop("'x' needs at least two rows")

    input_map <- make_input_map(x)
    mapped_x <- apply_input_map(input_map, x)
    target_map <- make_target_map(mapped_x, y, core, shift, activation)
    mapped_y <- apply_target_map(target_map, y)
    net <- vemkn(hidden, numin = ncol(x), numout = ncol(y), activation = activation, threads = threads, batch = batch)

    f <- penalised(vemkn_functions(net, mapped_x, mapped_y), decay / length(mapped_y))
    tries <- lapply(seq_len(starts), function(start) {
        minimise(f, starting_weights(net, mapped_x, mapped_y), method, maxit)
    })
    values <- vapply(tries, function(try) try$value, 0)
    if (!any(is.finite(values))) stop("no start came to a finite objective")
    best <- tries[[which.min(values)]]
    net$weights <- best$weights
    structure(list(net = net, input_map = input_map, target_map = target_map, value = best$value,
                   convergence = best$convergence, message = best$message, starts = values,
                   counts = Reduce(`+`, lapply(tries, function(try) try$counts)), decay = decay, method = method,
                   x = mapped_x, y = mapped_y, call = match.call()),
              class = "vemkn_fit")
}

finite_matrix <- function(value, name, ...) {
    value <- numeric_matrix(value, name, ...)
    if (!all(is.finite(value))) {
        stop("'", name, "' has missing or infinite values: leave such rows out, see complete.cases()", call. = FALSE)
    }
    value
}

# The functions of vemkn_functions() with decay/2 times the squared length of the weights added.
penalised <- function(f, decay) {
    list(fn = function(w) f$fn(w) + decay / 2 * sum(w^2),
         gr = function(w) f$gr(w) + decay * w,
         he = function(w) f$he(w) + diag(decay, length(w)))
}

# Random weights of the size that suits each layer, output biases found by bisection through the network.
starting_weights <- function(net, x, y) {
    shapes <- layer_shapes(net$sizes, net$numout, net$nmult)
    weights <- unlist(lapply(seq_len(nrow(shapes)), function(layer) {
        rows <- shapes[layer, "rows"]
        columns <- shapes[layer, "columns"]
        c(rnorm(columns), rnorm(rows * columns) / sqrt(rows))
    }))
    last <- nrow(shapes)
    biases <- net$numel - shapes[last, "rows"] * shapes[last, "columns"] - net$numout + seq_len(net$numout)
    wanted <- apply(y, 2, median)
    low <- rep(-max(abs(wanted)) - 20, net$numout)
    high <- -low
    for (halving in 1:40) {
        weights[biases] <- (low + high) / 2
        below <- apply(vemkn_compute(net, weights, x), 2, median) < wanted
        low[below] <- weights[biases][below]
        high[!below] <- weights[biases][!below]
    }
    weights
}

minimise <- function(f, weights, method, maxit) {
    if (method == "nlminb") {
        found <- nlminb(weights, f$fn, f$gr, f$he, control = list(iter.max = maxit, eval.max = 2 * maxit))
        found$value <- found$objective
        counts <- found$evaluations
    } else {
        found <- optim(weights, f$fn, f$gr, method = method, control = list(maxit = maxit, reltol = 1e-10))
        counts <- found$counts
    }
    list(weights = found$par, value = found$value, convergence = found$convergence,
         message = found$message, counts = counts)
}
