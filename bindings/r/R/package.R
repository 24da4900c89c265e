#' Exact derivatives of small neural networks
#'
#' The package gives R the library libvemkn: a small dense feed-forward network, its residuals, a robust objective, and
#' exact derivatives of it, for optimisers of the caller's own. [vemkn()] makes a network, [vemkn_functions()] what
#' `optim` and `nlminb` want of it. [vemkn_fit()] is robust regression by the library libvemknfit.
#'
#' @section Matrices:
#' R keeps a matrix column by column, the library row by row. The package transposes inputs, targets, tangents and
#' results on every call, unless there is one row or one column only, so callers never see the library's order. Two
#' orders remain visible. *Weights*, gradients and Hessians are vectors in the library's flat order: layer by layer the
#' biases, then the weight matrix row by row, one row for each input of the layer. *Elements* of several outputs, the
#' rows of a Jacobian, stand in the order of `as.vector(y)`: all rows of the first output, then of the second.
#'
#' @section What the library does to R:
#' Every network is in the library's quiet mode. Arithmetic that overflows does not end R: `Inf` and `NaN` flow through
#' to the results. All shapes are checked before a call, so that nothing reaches the library that it would answer by
#' ending the process. Lack of memory in the library is an error, after which R goes on. While a call runs, OpenBLAS is
#' set to one thread, and back afterwards. A call cannot be interrupted; [vemkn_hessian()] can between its blocks of
#' tangents, and [vemkn_fit()] can. The library's first call prints one line with its version on standard output.
#'
#' @section Missing values:
#' `NA` in inputs, targets or weights is a NaN to the library, and flows through as such: what it enters is `NA` or
#' `NaN`, so ask with `is.na()`, which is true of both. One in a row of the data is enough for the objective and its
#' derivatives, so leave such rows out, see [complete.cases()]. [vemkn_fit()] does so by `na.action`, given a formula.
#'
#' @section Forks:
#' After a fork (`parallel::mclapply`) networks go on working in the child, on one thread and with the same results.
#'
#' @name vemkn-package
#' @docType package
#' @useDynLib vemkn, .registration = TRUE, .fixes = "C_"
#' @importFrom graphics abline
#' @importFrom stats .getXlevels coef confint df.residual dnorm fitted formula logLik model.response na.pass napredict naresid
#' @importFrom stats nobs predict qqnorm quantile residuals rnorm runif sigma simulate vcov weights
NULL
