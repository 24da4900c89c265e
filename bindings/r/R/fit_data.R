# Rows for the library. Columns are found by name; those without one are called x1, x2, ..., as in model files.

# A matrix of doubles whose columns all have names.
named_matrix <- function(value, name) {
    if (is.data.frame(value)) {
        words <- !vapply(value, is.numeric, NA)
        if (any(words)) {
            stop("column ", quoted(names(value)[words][1]), " of '", name, "' is not numeric: leave it out, or take ",
                 "vemkn_fit(formula, data)", call. = FALSE)
        }
        value <- as.matrix(value)
    }
    value <- numeric_matrix(value, name)
    columns <- enc2utf8(if (is.null(colnames(value))) character(ncol(value)) else colnames(value))
    if (!all(validUTF8(columns))) stop("a column of '", name, "' has a name that is not UTF-8", call. = FALSE)
    bare <- is.na(columns) | columns == ""
    columns[bare] <- paste0("x", seq_along(columns))[bare]
    if (anyDuplicated(columns)) {
        stop("two columns of '", name, "' are called ", quoted(columns[duplicated(columns)][1]), call. = FALSE)
    }
    colnames(value) <- columns
    value
}

# The first names only: there may be thousands.
quoted <- function(names, most = 10) {
    text <- paste0("'", encodeString(names[seq_len(min(most, length(names)))]), "'", collapse = ", ")
    if (length(names) > most) paste(text, "and", length(names) - most, "more") else text
}

refuse_missing <- function(wanted, given) {
    missing <- setdiff(wanted, given)
    if (length(missing) == 0) return()
    stop("'newdata' has no ", if (length(missing) == 1) "column " else "columns ", quoted(missing), "; there ",
         if (length(given) == 1) "is " else "are ", if (length(given) > 0) quoted(given) else "none", call. = FALSE)
}

# The columns that a formula stands for. Biases are the network's own, so the intercept goes.
design <- function(terms, frame, contrasts) {
    x <- stats::model.matrix(terms, frame, contrasts)
    list(x = x[, attr(x, "assign") != 0, drop = FALSE], contrasts = attr(x, "contrasts"))
}

# Names on the right side that new data have to have: what is no variable of the data, as the degree of a polynomial,
# comes from the formula's environment.
variables_of <- function(terms, data) {
    names <- all.vars(stats::delete.response(terms))
    if (!is.null(data)) return(intersect(names, names(data)))
    Filter(function(name) NROW(get0(name, environment(terms))) > 1, names)
}

# newdata as rows of the fit's columns.
new_rows <- function(object, newdata, na.action) {
    if (is.null(object$terms)) {
        x <- named_matrix(newdata, "newdata")
        refuse_missing(object$columns, colnames(x))
        return(na.action(x[, object$columns, drop = FALSE]))
    }
    newdata <- as.data.frame(if (is.list(newdata)) newdata else named_matrix(newdata, "newdata"))
    refuse_missing(object$variables, names(newdata))
    terms <- stats::delete.response(object$terms)
    frame <- stats::model.frame(terms, newdata, na.action = na.action, xlev = object$xlevels)
    stats::.checkMFClasses(attr(terms, "dataClasses"), frame)
    structure(design(terms, frame, object$contrasts)$x, na.action = attr(frame, "na.action"))
}

# The rows that were fitted.
training_rows <- function(object) {
    if (is.null(object$x)) stop("the model comes from a file, which holds no rows: give 'newdata'", call. = FALSE)
    object$x
}

# What a call of the library gave, or its error, or the interrupt that ended it.
called <- function(answer) {
    if (inherits(answer, "interrupt")) interrupt(answer)
    if (inherits(answer, "condition")) stop(answer)
    answer
}

# As R does: first the handlers; then the prompt of a browser or a caller's restart, if there is one, or top level.
interrupt <- function(condition) {
    signalCondition(condition)
    cat("\n", file = stderr())
    ends <- Filter(function(restart) restart$name %in% c("browser", "tryRestart", "abort"), computeRestarts())
    invokeRestart(c(ends, "abort")[[1]])
}

# The library counts the rows that it is given, the caller those of the data.
name_rows <- function(texts, names) {
    at <- regexpr("\\brow [0-9]+", texts)
    rows <- as.integer(sub("row ", "", regmatches(texts, at)))
    regmatches(texts, at) <- paste("row", names[rows])
    texts
}

naming_rows <- function(names, value) {
    tryCatch(value, vemkn_error = function(e) {
        e$message <- name_rows(e$message, names)
        stop(e)
    })
}
