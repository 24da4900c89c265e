# Between the caller's units and the network's: inputs of mean 0 and standard deviation 1, targets whose normal scatter
# is the likelihood's core.

core_deviation <- 1 / 3 # of the likelihood
tail_from <- 2          # residuals from here on, six core deviations, count as the Cauchy tail

make_input_map <- function(x) {
    centre <- colMeans(x)
    spread <- apply(x, 2, sd)
    # A constant column maps to 0.
    constant <- spread <= 1e-12 * abs(centre)
    spread[constant] <- pmax(1, abs(centre[constant]))
    list(centre = centre, spread = spread)
}

apply_input_map <- function(map, x) {
    sweep(sweep(x, 2, map$centre), 2, map$spread, "/")
}

# Residuals of a least-absolute-deviations line, by iteratively reweighted least squares.
residuals_of_robust_line <- function(x, y) {
    design <- cbind(1, x)
    least <- 1e-6 * sd(y)
    residual <- y
    weight <- rep(1, length(y))
    for (round in 1:30) {
        residual <- lm.wfit(design, y, weight)$residuals
        weight <- 1 / pmax(abs(residual), least)
    }
    residual
}

# What a straight line leaves is an upper estimate of the scatter, on the harmless side: too large a core brings a fit
# nearer to least squares, too small a core lets it ignore good data.
default_core <- function(x, y) {
    if (all(y == y[1])) stop("a target has the value ", y[1], " in every row", call. = FALSE)
    own <- mad(y)
    if (own == 0) own <- sd(y)
    max(mad(residuals_of_robust_line(x, y)), 0.01 * own)
}

# atan reaches pi/2 for infinite arguments only.
atan_reach <- 1.4

# The activation acts on the output layer too, so the targets have to lie where it reaches: for softplus and relu the
# lowest maps to 1, for atan the middle to 0, for id the median to 0.
default_shift <- function(y, core, activation) {
    switch(activation,
           atan = (min(y) + max(y)) / 2,
           id = median(y),
           min(y) - 3 * core)
}

make_target_map <- function(x, y, core, shift, activation) {
    for_each <- function(value, name) {
        if (!is.numeric(value) || !all(is.finite(value)) || !length(value) %in% c(1, ncol(y))) {
            stop("'", name, "' has to be one number, or one for each target", call. = FALSE)
        }
        rep_len(as.double(value), ncol(y))
    }
    least_for_atan <- apply(y, 2, function(column) diff(range(column))) / (6 * atan_reach)
    if (is.null(core)) {
        core <- apply(y, 2, function(column) default_core(x, column))
        if (activation == "atan") core <- pmax(core, least_for_atan)
    } else {
        core <- for_each(core, "core")
        if (any(core <= 0)) stop("'core' has to be positive", call. = FALSE)
    }
    if (is.null(shift)) {
        shift <- vapply(seq_len(ncol(y)), function(i) default_shift(y[, i], core[i], activation), 0)
    } else {
        shift <- for_each(shift, "shift")
    }
    map <- list(core = core, shift = shift)
    if (activation == "atan" && any(abs(apply_target_map(map, y)) > pi / 2)) {
        stop("the targets do not fit into the range of atan, (-pi/2, pi/2): take a larger 'core', at least ",
             paste(signif(least_for_atan, 4), collapse = ", "), ", or another activation", call. = FALSE)
    }
    map
}

apply_target_map <- function(map, y) {
    sweep(sweep(y, 2, map$shift), 2, map$core / core_deviation, "/")
}

undo_target_map <- function(map, y) {
    sweep(sweep(y, 2, map$core / core_deviation, "*"), 2, map$shift, "+")
}
