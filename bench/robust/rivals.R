# Fits train.csv in a folder with one of the methods of R and writes its predictions for test.csv to of_r.csv.
#
#     Rscript rivals.R METHOD FOLDER

arguments <- commandArgs(TRUE)
folder <- arguments[2]
train <- read.csv(file.path(folder, "train.csv"))
test <- read.csv(file.path(folder, "test.csv"))
inputs <- setdiff(names(train), "y")

smooth <- function(name) {
    values <- length(unique(train[[name]]))
    if (values < 4) name else sprintf("s(%s, k = %d)", name, min(10, values))
}

fits <- list(
    "lmrob" = function() {
        model <- robustbase::lmrob(y ~ ., train, setting = "KS2014")
        predict(model, test)
    },
    "gam scat" = function() {
        formula <- as.formula(paste("y ~", paste(vapply(inputs, smooth, ""), collapse = " + ")))
        environment(formula) <- asNamespace("mgcv")
        predict(mgcv::gam(formula, data = train, family = mgcv::scat(), method = "REML"), test)
    },
    "nnet" = function() {
        set.seed(1)
        centre <- colMeans(train)
        spread <- pmax(apply(train, 2, sd), 1e-12)
        x <- function(rows) scale(as.matrix(rows[inputs]), centre[inputs], spread[inputs])
        model <- nnet::nnet(x(train), (train$y - centre["y"]) / spread["y"], size = 6, decay = 0.1,
                            linout = TRUE, maxit = 1000, trace = FALSE)
        centre["y"] + spread["y"] * predict(model, x(test))
    },
    "rlm" = function() predict(MASS::rlm(y ~ ., train, maxit = 100), test)
)

predictions <- suppressWarnings(fits[[arguments[1]]]())
write.csv(data.frame(y = as.numeric(predictions)), file.path(folder, "of_r.csv"), row.names = FALSE)
