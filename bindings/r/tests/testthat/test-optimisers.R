# A problem with one optimum near the start, curved enough in all directions for conjugate gradients to get there.
curve_problem <- function() {
    set.seed(1)
    net <- vemkn(1, numin = 1, activation = "atan")
    truth <- c(0.5, 2, 0, 1)
    x <- matrix(seq(-2, 2, length.out = 120))
    y <- plain_outputs(c(1, 1, 1), "atan", truth, x) + rnorm(120) / 3
    y[c(20, 70)] <- y[c(20, 70)] + 60
    list(net = net, x = x, y = y, start = truth + rnorm(4) / 10)
}

test_that("optim, nlm and nlminb come to the same optimum", {
    p <- curve_problem()
    f <- vemkn_functions(p$net, p$x, p$y)
    tight <- list(maxit = 5000, reltol = 1e-14)
    found <- list(
        bfgs = optim(p$start, f$fn, f$gr, method = "BFGS", control = tight)$par,
        lbfgsb = optim(p$start, f$fn, f$gr, method = "L-BFGS-B", control = list(maxit = 5000, factr = 10))$par,
        cg = optim(p$start, f$fn, f$gr, method = "CG", control = tight)$par,
        nlm = nlm(f$nlm, p$start, gradtol = 1e-9, steptol = 1e-12, iterlim = 2000, check.analyticals = TRUE)$estimate,
        nlminb = nlminb(p$start, f$fn, f$gr, f$he)$par,
        # As the manual shows it: the package's functions themselves, with the data as further arguments.
        direct = nlminb(p$start, vemkn_objective, function(w, ...) attr(vemkn_gradient(weights = w, ...), "gradient"),
                        net = p$net, x = p$x, y = p$y)$par
    )
    best <- f$fn(found$nlminb)
    expect_lt(best, f$fn(p$start) - 0.01)
    expect_lt(max(abs(f$gr(found$nlminb))), 1e-6)
    # A value 1e-9 above the optimum, with curvatures above 0.01, is within sqrt(2e-9 / 0.01) = 5e-4 of it.
    expect_gt(min(eigen(f$he(found$nlminb), symmetric = TRUE)$values), 0.01)
    for (name in names(found)) {
        expect_lt(f$fn(found[[name]]) - best, 1e-9, label = name)
        expect_lt(max(abs(found[[name]] - found$nlminb)), 5e-4, label = name)
    }
})

test_that("fn and gr answer for the weights that they are given, in any order", {
    p <- curve_problem()
    f <- vemkn_functions(p$net, p$x, p$y)
    other <- p$start + 0.1
    fn_other <- f$fn(other)
    gr_start <- f$gr(p$start)
    expect_identical(f$gr(p$start), attr(vemkn_gradient(p$net, p$start, p$x, p$y), "gradient"))
    expect_identical(gr_start, f$gr(p$start))
    expect_identical(f$fn(other), fn_other)
    expect_false(f$fn(p$start) == fn_other)
    expect_identical(f$he(other), vemkn_hessian(p$net, other, p$x, p$y))
})
