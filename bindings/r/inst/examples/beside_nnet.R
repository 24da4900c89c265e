# The same data and the same widths, fitted by vemkn_fit() and by nnet: the robust likelihood beside least squares.
#
# Usage: Rscript beside_nnet.R flight_delays.csv
library(vemkn)
library(nnet)

path <- commandArgs(trailingOnly = TRUE)
if (length(path) != 1) stop("usage: Rscript beside_nnet.R flight_delays.csv")
flights <- read.csv(path)[c("hour", "day_of_year", "distance_miles", "delay_min")]
set.seed(1)
held_out <- sample(nrow(flights), nrow(flights) / 5)
train <- flights[-held_out, ]
test <- flights[held_out, ]

robust <- vemkn_fit(delay_min ~ ., train, hidden = 6, period = c(hour = 24, day_of_year = 365))

# nnet wants inputs and targets of size one, and the sine and cosine of what comes round.
turn <- function(value, period) cbind(sin(2 * pi * value / period), cos(2 * pi * value / period))
inputs <- function(rows) {
    cbind(turn(rows$hour, 24), turn(rows$day_of_year, 365),
          (rows$distance_miles - mean(train$distance_miles)) / sd(train$distance_miles))
}
centre <- mean(train$delay_min)
spread <- sd(train$delay_min)
tries <- lapply(1:3, function(start) {
    nnet(inputs(train), (train$delay_min - centre) / spread, size = 6, linout = TRUE, decay = 0.1, maxit = 1000,
         trace = FALSE)
})
squares <- tries[[which.min(vapply(tries, function(try) try$value, 0))]]

errors <- function(error) {
    c("median |error|" = median(abs(error)), "median error" = median(error), "root mean square" = sqrt(mean(error^2)),
      "beyond six cores (%)" = 100 * mean(abs(error) >= 6 * robust$core))
}
cat("arrival delays in minutes,", nrow(train), "flights for training,", nrow(test), "held out\n\n")
print(cbind("vemkn" = errors(residuals(robust)),
            "nnet" = errors(train$delay_min - centre - spread * fitted(squares)),
            "vemkn held out" = errors(test$delay_min - predict(robust, test)),
            "nnet held out" = errors(test$delay_min - centre - spread * predict(squares, inputs(test)))),
      digits = 4)
