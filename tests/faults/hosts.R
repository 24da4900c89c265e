# An R host: floating-point flags that R leaves pending, and processes that mclapply forks.
#
# Usage: Rscript hosts.R SHIM stale_flags|fork
# SHIM is r_shim.c as a shared library: R's .C passes pointers only.

arguments <- commandArgs(trailingOnly = TRUE)
dyn.load(arguments[1])

text <- "3 2 2 1 8 3 8 softplus sum_log_dnorm_fat"
nw <- 3 * 8 + 8 + 8 * 2 + 2
rows <- 203
numbers <- function(n, scale) scale * ((7 * (seq_len(n) - 1)) %% 11 - 5)

# Value, gradient and status; compared with identical(), to the bit.
gradient <- function() {
    .C("shim_gradient", numbers(nw, 0.1), as.integer(nw), numbers(3 * rows, 0.2),
       numbers(2 * rows, 0.3), as.integer(rows), value = 0, gradient = double(nw),
       status = 99L)[c("value", "gradient", "status")]
}

leave_flags <- function() {
    stopifnot(is.nan(sum(c(Inf, -Inf))), is.infinite(1 / 0))
}

stale_flags <- function() {
    leave_flags()
    .C("shim_create", text, nchar(text))
    expected <- gradient()
    stopifnot(expected$status == 0, is.finite(expected$value))
    for (i in 1:10) {
        leave_flags()
        stopifnot(identical(gradient(), expected))
    }
}

fork <- function() {
    .C("shim_create", text, nchar(text))
    expected <- gradient()
    stopifnot(expected$status == 0)
    children <- parallel::mclapply(1:12, function(i) gradient(), mc.cores = 3)
    stopifnot(all(vapply(children, identical, NA, expected)))
    stopifnot(identical(gradient(), expected))
}

list(stale_flags = stale_flags, fork = fork)[[arguments[2]]]()
cat("done\n")
