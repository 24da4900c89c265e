p <- example_problem()

test_that("a network survives being saved", {
    weights(p$net) <- p$w
    file <- tempfile()
    on.exit(unlink(file))
    saveRDS(p$net, file)
    loaded <- readRDS(file)
    copy <- loaded
    expect_identical(vemkn_gradient(loaded, NULL, p$x, p$y), vemkn_gradient(p$net, p$w, p$x, p$y))
    expect_identical(vemkn_compute(copy, NULL, p$x), vemkn_compute(p$net, p$w, p$x))
})

test_that("a released network is an error, and so are its copies", {
    net <- vemkn(2, numin = 1)
    copy <- net
    saved <- serialize(net, NULL)
    vemkn_release(net)
    expect_error(vemkn_compute(net, NULL, 1), "released")
    expect_error(vemkn_compute(copy, NULL, 1), "released")
    expect_error(vemkn_release(net), "released")
    expect_error(vemkn_compute(unserialize(serialize(net, NULL)), NULL, 1), "released")
    expect_identical(vemkn_compute(unserialize(saved), NULL, 1), matrix(log(2)))
})

test_that("copies keep weights of their own", {
    net <- vemkn(2, numin = 1)
    copy <- net
    weights(copy) <- 1:7
    expect_identical(weights(net), numeric(7))
    expect_identical(weights(copy), as.double(1:7))
})

resident_megabytes <- function() {
    line <- grep("^VmRSS", readLines("/proc/self/status"), value = TRUE)
    as.numeric(gsub("[^0-9]", "", line)) / 1024
}

# 3,001 weights in two models each: 10,000 of them would take more than 480 MB.
test_that("garbage collection frees networks", {
    make <- function(count) {
        for (i in seq_len(count)) vemkn(1000, numin = 1)
        gc()
    }
    make(500)
    before <- resident_megabytes()
    for (i in 1:20) make(500)
    expect_lt(resident_megabytes() - before, 100)
    expect_identical(vemkn_compute(p$net, p$w, p$x), vemkn_compute(p$net, p$w, p$x))
})

test_that("printing shows the network", {
    expect_output(print(vemkn(3, numin = 2)), "network 2-3-1 softplus.*weights  13, all zero")
    expect_output(print(vemkn(2, numin = 2, nmult = 3)), "3 times")
})

test_that("the library gives its version", {
    expect_match(vemkn_version(), "^[0-9]+\\.[0-9]+\\.[0-9]+$")
})
