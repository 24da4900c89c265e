# The same data and the same widths, fitted by vemkn_fit() and by nnet.
#
# Usage: Rscript beside_nnet.R flight_delays.csv
#
# Both see the same inputs, targets, rows and random starts' number, and the same prior on the weights. They differ in
# what they minimise, the robust likelihood or the sum of squares, and in the network: softplus in both layers, or
# logistic units and a linear output.
library(vemkn)
library(nnet)

path <- commandArgs(trailingOnly = TRUE)
if (length(path) != 1) stop("usage: Rscript beside_nnet.R flight_delays.csv")
flights <- read.csv(path)

core <- 15 # minutes; the scatter of ordinary flights
decay <- 1
hidden <- 6
starts <- 3
maxit <- 1000

turn <- function(value, period) cbind(sin(2 * pi * value / period), cos(2 * pi * value / period))
x <- cbind(turn(flights$hour, 24), turn(flights$day_of_year, 365), flights$distance_miles)
y <- flights$delay_min
set.seed(1)
held_out <- sample(nrow(x), nrow(x) / 5)
train <- -held_out

robust_fit <- function() {
    vemkn_fit(x[train, ], y[train], hidden, core = core, decay = decay, starts = starts, maxit = maxit)
}

# In the likelihood's core half a squared residual is divided by 1/9, so the prior's share is decay / 9 here.
x_map <- list(centre = colMeans(x[train, ]), spread = apply(x[train, ], 2, sd))
mapped_x <- scale(x, x_map$centre, x_map$spread)
mapped_y <- (y - median(y[train])) / (3 * core)
squares_fit <- function() {
    tries <- lapply(seq_len(starts), function(start) {
        nnet(mapped_x[train, ], mapped_y[train], size = hidden, linout = TRUE, decay = decay / 9, maxit = maxit,
             reltol = 1e-10, abstol = 0, trace = FALSE)
    })
    tries[[which.min(vapply(tries, function(try) try$value, 0))]]
}

seconds <- function(fit) system.time(fit())[["elapsed"]]

robust <- robust_fit()
squares <- squares_fit()
robust_error <- as.vector(y - predict(robust, x))
squares_error <- as.vector(y - (median(y[train]) + 3 * core * predict(squares, mapped_x)))

errors <- function(error) {
    c("median |error|" = median(abs(error)), "median error" = median(error),
      "root mean square" = sqrt(mean(error^2)), "beyond six cores (%)" = 100 * mean(abs(error) >= 6 * core))
}
cat("arrival delays in minutes,", length(y) - length(held_out), "flights for training,", length(held_out),
    "held out,", length(coef(robust)), "weights\n\n")
print(cbind("vemkn" = errors(robust_error[train]), "nnet" = errors(squares_error[train]),
            "vemkn held out" = errors(robust_error[held_out]), "nnet held out" = errors(squares_error[held_out])),
      digits = 4)

# In turn, so that what else the machine does strikes both.
times <- vapply(1:5, function(turn) c(vemkn = seconds(robust_fit), nnet = seconds(squares_fit)), c(0, 0))
ratios <- times["vemkn", ] / times["nnet", ]
cat("\nseconds of a fit with", starts, "starts, medians of 5: vemkn", format(median(times["vemkn", ]), digits = 3),
    "and nnet", format(median(times["nnet", ]), digits = 3))
cat("\nratio vemkn / nnet: median", format(median(ratios), digits = 3), "from", format(min(ratios), digits = 3), "to",
    format(max(ratios), digits = 3), "\n")
