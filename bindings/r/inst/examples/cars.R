# Fuel economy of cars: a fit with standard errors, then the same objective in three of R's optimisers.
#
# Usage: Rscript cars.R auto_mpg.csv
library(vemkn)

path <- commandArgs(trailingOnly = TRUE)
if (length(path) != 1) stop("usage: Rscript cars.R auto_mpg.csv")
cars <- read.csv(path)
cars <- cars[complete.cases(cars), ]
x <- as.matrix(cars[c("horsepower", "weight_lb", "year")])

set.seed(1)
fit <- vemkn_fit(x, cars$mpg, hidden = 4, decay = 1)
print(fit)
print(summary(fit)$errors, digits = 3)
light_and_heavy <- rbind(c(70, 2000, 1980), c(150, 4000, 1972))
p <- predict(fit, light_and_heavy, se.fit = TRUE)
print(cbind(light_and_heavy, mpg = p$fit[, 1], se = p$se.fit[, 1]), digits = 4)

# An optimiser of one's own: scaled data, a network, and its functions of the weights.
net <- vemkn(1, numin = 1)
weight <- as.vector(scale(cars$weight_lb))
mpg <- (cars$mpg - min(cars$mpg)) / (3 * 3.5) + 1 # a core of 3.5 mpg, and positive as softplus is
f <- vemkn_functions(net, weight, mpg)
start <- c(0, -1, 0, 1) # b1, W1, b2, W2: falls with the weight
cat("\nobjective at the start", f$fn(start),
    "\noptim, BFGS          ", optim(start, f$fn, f$gr, method = "BFGS", control = list(reltol = 1e-12))$value,
    "\nnlm                  ", nlm(f$nlm, start)$minimum,
    "\nnlminb with Hessian  ", nlminb(start, f$fn, f$gr, f$he)$objective, "\n")
