# Rows for the library. Columns are found by name; those without one are called x1, x2, ..., as in model files.

# A matrix of doubles whose columns all have names; only those wanted, if there are such.
named_matrix <- function(value, name, wanted = NULL) {
    if (is.data.frame(value)) {
        words <- !vapply(value, function(column) is.numeric(column) || is_missing(column), NA)
        columns <- column_names(names(value), length(value), name)
        extra <- words & !is.null(wanted) & !columns %in% wanted
        if (any(words & !extra)) {
            stop("column ", quoted(columns[words & !extra][1]), " of '", name, "' is not numeric",
                 if (is.null(wanted)) ": leave it out, or take vemkn_fit(formula, data)", call. = FALSE)
        }
        value[extra] <- list(rep(NA, nrow(value)))
        value <- as.matrix(value)
    }
    if (is_missing(value)) storage.mode(value) <- "double"
    value <- numeric_matrix(value, name)
    columns <- column_names(colnames(value), ncol(value), name)
    if (!is.null(wanted)) {
        refuse_missing(wanted, columns)
        value <- value[, columns %in% wanted, drop = FALSE]
        columns <- columns[columns %in% wanted]
    }
    if (anyDuplicated(columns)) {
        stop("two columns of '", name, "' are called ", quoted(columns[duplicated(columns)][1]), call. = FALSE)
    }
    colnames(value) <- columns
    if (is.null(wanted)) value else value[, wanted, drop = FALSE]
}

# NA is logical in R, and a column of nothing else is numbers that are missing.
is_missing <- function(values) is.logical(values) && all(is.na(values))

column_names <- function(given, n, name) {
    columns <- enc2utf8(if (is.null(given)) character(n) else given)
    if (!all(validUTF8(columns))) stop("a column of '", name, "' has a name that is not UTF-8", call. = FALSE)
    bare <- is.na(columns) | columns == ""
    columns[bare] <- paste0("x", seq_along(columns))[bare]
    columns
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
    if (is.null(object$terms)) return(na.action(named_matrix(newdata, "newdata", object$columns)))
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

# The library counts the rows that it is given, the caller those of the data. Columns may be called "row 2", too, so a
# number is replaced only where the library's sentences have one: at the end of a note, at the start of an error.
name_rows <- function(texts, names, form = "(?<=the first is row )[0-9]+$") {
    at <- regexpr(form, texts, perl = TRUE)
    regmatches(texts, at) <- as.character(names[as.integer(regmatches(texts, at))])
    texts
}

naming_rows <- function(names, value) {
    tryCatch(value, vemkn_error = function(e) {
        if (!is.null(e$row)) e$message <- name_rows(e$message, names, "(?<=^[xy]: row )[0-9]+")
        stop(e)
    })
}
