# Fuel economy of cars: a fit with standard errors, then the same objective in three of R's optimisers.
#
# Usage: Rscript cars.R auto_mpg.csv
library(vemkn)

path <- commandArgs(trailingOnly = TRUE)
if (length(path) != 1) stop("usage: Rscript cars.R auto_mpg.csv")
cars <- read.csv(path)

fit <- vemkn_fit(mpg ~ horsepower + weight_lb + year, cars, hidden = 4) # rows with missing values are left out
print(fit)
light_and_heavy <- data.frame(weight_lb = c(2000, 4000), horsepower = c(70, 150), year = c(1980, 1972))
print(cbind(light_and_heavy, predict(fit, light_and_heavy, interval = "prediction")), digits = 4)
print(residuals(fit)[abs(residuals(fit)) > 4 * fit$core], digits = 3) # cars that are unlike the others

# An optimiser of one's own: scaled data, a network, and its functions of the weights.
cars <- na.omit(cars)
net <- vemkn(1, numin = 1)
weight <- as.vector(scale(cars$weight_lb))
mpg <- (cars$mpg - min(cars$mpg)) / (3 * 3.5) + 1 # a core of 3.5 mpg, and positive as softplus is
f <- vemkn_functions(net, weight, mpg)
start <- c(0, -1, 0, 1) # b1, W1, b2, W2: falls with the weight
cat("\nobjective at the start", f$fn(start),
    "\noptim, BFGS          ", optim(start, f$fn, f$gr, method = "BFGS", control = list(reltol = 1e-12))$value,
    "\nnlm                  ", nlm(f$nlm, start)$minimum,
    "\nnlminb with Hessian  ", nlminb(start, f$fn, f$gr, f$he)$objective, "\n")
