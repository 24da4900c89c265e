/** @file
 * libvemknfit: robust regression by a small network, model files, and predictions of new rows.
 *
 * SPDX-License-Identifier: BSD-3-Clause
 *
 * A fit takes rows of numbers and one target, and estimates with the weights how widely good rows
 * scatter (the core), so that up to 30 % of gross outliers leave the curve nearly where it was. For C99
 * and C++.
 *
 * ## A call sequence
 *
 *     VEMKNFitOptions options = {.size = sizeof options};      // the rest zero: defaults
 *     VEMKNFit* fit = NULL;
 *     if (vemkn_fit_robust(x, rows, columns, y, &options, &fit) != VEMKN_FIT_OK)
 *         fprintf(stderr, "%s\n", vemkn_fit_message());
 *     vemkn_fit_save(fit, "model.json");
 *     vemkn_fit_predict(fit, new_x, new_rows, columns, prediction);
 *     vemkn_fit_free(fit);
 *
 * ## Data
 *
 * Matrices are arrays of doubles, row by row, in the caller's units. Every number has to be finite
 * and at most 4e307 in magnitude. Inputs are scaled inside: unless the options say otherwise by the
 * median and quantiles of each column, and bounded, so that a gross outlier in an input is one row
 * at the edge. Arrays stay the caller's and may be freed on return.
 *
 * ## Errors
 *
 * A call that can fail returns VEMKN_FIT_OK or the code of an error, and then changes nothing that
 * the caller sees. vemkn_fit_message has a sentence for people: which argument, which row, what to
 * do. It belongs to the calling thread.
 *
 * ## What a call does to the process
 *
 * It prints nothing but what the environment variables INFO and NN_TRACE ask of libvemkn, does not
 * end the process, and raises no floating-point trap: it computes in the default floating-point
 * environment and puts the host's back, pending flags too. No C++ exception leaves a call.
 *
 * ## Results and threads
 *
 * The same doubles, options and version give the same bits, for any number of threads. Separate
 * fits may run in separate threads. A finished fit is only read, so that any number of threads may
 * use it, but not while vemkn_fit_free runs on it.
 */
#ifndef VEMKN_FIT_H
#define VEMKN_FIT_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define VEMKN_FIT_API __attribute__((visibility("default")))
#else
#define VEMKN_FIT_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** What a call returns. */
enum {
    VEMKN_FIT_OK = 0,        /**< done */
    VEMKN_FIT_ARGUMENT = 1,  /**< an argument or an option that cannot be used */
    VEMKN_FIT_DATA = 2,      /**< a row that cannot be used: see vemkn_fit_row */
    VEMKN_FIT_SCATTER = 3,   /**< more than half of the targets are one value: give a core */
    VEMKN_FIT_CANCELLED = 4, /**< the progress function wanted that */
    VEMKN_FIT_FILE = 5,      /**< a file that cannot be read or written */
    VEMKN_FIT_MODEL = 6,     /**< a text that is no model of this version or an earlier one */
    VEMKN_FIT_MEMORY = 7,    /**< not enough memory */
    VEMKN_FIT_UNCERTAIN = 8, /**< the model has no standard errors; the message says why */
    VEMKN_FIT_INTERNAL = 9   /**< a mistake of the library */
};

/** What a fit is busy with. */
enum {
    VEMKN_FIT_SEARCH = 0, /**< looks for curves from random starts */
    VEMKN_FIT_DECAY = 1,  /**< chooses the decay by cross-validation */
    VEMKN_FIT_SETTLE = 2  /**< goes to the minimum, over all rows */
};

/** What an interval is of. */
enum {
    VEMKN_FIT_CONFIDENCE = 0, /**< the band of the curve: where it may lie itself */
    VEMKN_FIT_PREDICTION = 1  /**< a new row that is no outlier */
};

/** For VEMKNFitOptions.decay: the weights cost nothing. */
#define VEMKN_FIT_NO_DECAY (-1.0)

/** A fit: a model and how it was found; opaque. */
typedef struct VEMKNFit VEMKNFit;

/** How an input column comes to the network. All zero: by its median and quantiles, bounded. */
typedef struct VEMKNFitColumn {
    const char* name; /**< UTF-8; null: "x1", "x2", ... */
    double period;    /**< above 0: sine and cosine of 2 pi x / period */
    double centre;    /**< with a spread: (x - centre) / spread */
    double spread;    /**< 0, or above 0 */
} VEMKNFitColumn;

/** How far a fit is. Later versions may add members at the end. */
typedef struct VEMKNFitProgress {
    int stage;            /**< VEMKN_FIT_SEARCH ... VEMKN_FIT_SETTLE */
    int start;            /**< of the search, from 1 on; else 0 */
    uint64_t evaluations; /**< of the objective and its gradient, so far */
    double core;          /**< of the curve at hand, in units of y */
    double objective;     /**< the last one */
} VEMKNFitProgress;

/** Asked after every evaluation, on the thread that called.
 * @param[in] progress  how far the fit is; only valid during the call
 * @param[in] host      VEMKNFitOptions.host
 * @return 0 to go on; anything else ends the fit with VEMKN_FIT_CANCELLED
 *
 * Failure: must return, neither by longjmp nor by an exception. */
typedef int (*VEMKNFitWatch)(const VEMKNFitProgress* progress, void* host);

/** Options of a fit. Set size to sizeof(VEMKNFitOptions) and the rest to zero, then what shall
 * differ from the defaults. Later versions may add members at the end, whose zero is their
 * default. */
typedef struct VEMKNFitOptions {
    size_t size;            /**< sizeof(VEMKNFitOptions) */
    const unsigned* hidden; /**< array of length [layers], their widths; null: one layer of 6 */
    size_t layers;          /**< number of hidden layers, 1 to 16 */
    const char* activation; /**< "softplus", also if null; or "id", a linear model */
    double core;            /**< standard deviation of good rows, in units of y; 0: estimated */
    double decay;           /**< penalty 1/2 decay w^2 beside the summed negative log-likelihood, of
                                 weights of scaled inputs and targets; 0: chosen by
                                 cross-validation; VEMKN_FIT_NO_DECAY: none */
    uint64_t seed;    /**< of starts, folds and rows that are searched; vemkn-fit, Python and R
                                 take 1 where none is given */
    unsigned starts;  /**< random starts; 0: three */
    unsigned threads; /**< at most, for rows; 0: one */
    const VEMKNFitColumn* columns; /**< array of length [columns], or null */
    const char* target;            /**< name of the target, UTF-8; null: "y" */
    VEMKNFitWatch progress;        /**< or null */
    void* host;                    /**< handed to progress */
} VEMKNFitOptions;

/* ------------------------------------------------------------------------- version and errors */

/** Version of the library that runs.
 * @return "year.month.build"
 * Ownership: a constant.
 * Threads:   may run at any time. */
VEMKN_FIT_API const char* vemkn_fit_version(void);

/** What the calling thread's last call that can fail says of its error.
 * @return a sentence in UTF-8 without a line break; empty after a call that returned VEMKN_FIT_OK
 * Ownership: the library's; valid until the thread's next call that can fail, or its end.
 * Threads:   each thread has its own. */
VEMKN_FIT_API const char* vemkn_fit_message(void);

/** The row that the message is about.
 * @return its index from 0 on (the message counts from 1); -1 if it is about none
 * Threads: each thread has its own. */
VEMKN_FIT_API int64_t vemkn_fit_row(void);

/* ------------------------------------------------------------------------------ fit and predict */

/** Robust regression of y on the columns of x.
 *
 * @param[in]  x        array of length [rows*columns], row by row
 * @param[in]  rows     number of rows, 2 or more
 * @param[in]  columns  number of columns, 1 or more
 * @param[in]  y        array of length [rows], the target
 * @param[in]  options  see VEMKNFitOptions; null: defaults
 * @param[out] fit      a fit, to be released by vemkn_fit_free; null where the call fails
 * @return VEMKN_FIT_OK; VEMKN_FIT_ARGUMENT, also for more than 5000 weights, or 2^32 or more weights
 *         times rows; VEMKN_FIT_DATA for a number that is not finite or too large;
 *         VEMKN_FIT_SCATTER; VEMKN_FIT_CANCELLED; VEMKN_FIT_MEMORY.
 *
 * Ownership: every array stays the caller's.
 * Threads:   separate fits may run in separate threads. */
VEMKN_FIT_API int vemkn_fit_robust(const double* x,
                                   size_t rows,
                                   size_t columns,
                                   const double* y,
                                   const VEMKNFitOptions* options,
                                   VEMKNFit** fit);

/** Releases a fit; null is ignored.
 * @param[in] fit  invalid afterwards
 * Ownership: frees everything that the fit holds.
 * Threads:   no other call may use the fit during or after this one. */
VEMKN_FIT_API void vemkn_fit_free(VEMKNFit* fit);

/** What the curve says of rows, in the units of the targets.
 *
 * @param[in]  fit         not changed
 * @param[in]  x           array of length [rows*columns], row by row
 * @param[in]  rows        number of rows; 0 writes nothing
 * @param[in]  columns     must equal vemkn_fit_columns(fit)
 * @param[out] prediction  array of length [rows*targets], row by row; not written where the call
 *                         fails
 * @return VEMKN_FIT_OK; VEMKN_FIT_ARGUMENT; VEMKN_FIT_DATA for a row that is not finite, too large
 *         or too far out for the model; VEMKN_FIT_MEMORY.
 *
 * Ownership: every array stays the caller's.
 * Threads:   may run at any time. */
VEMKN_FIT_API int vemkn_fit_predict(
    const VEMKNFit* fit, const double* x, size_t rows, size_t columns, double* prediction);

/** What the curve says of rows, and how far it may be off.
 *
 * The standard errors of the curve are those of the sandwich covariance (see
 * vemkn_fit_covariance). With t of Student's distribution with rows - parameters degrees of
 * freedom, the band of the curve reaches t errors to each side, the interval of a new row t times
 * the root of error^2 + core^2. The latter holds for a row that is no outlier: vemkn_fit_beyond of
 * vemkn_fit_rows were.
 *
 * @param[in]  fit         not changed
 * @param[in]  x           array of length [rows*columns], row by row
 * @param[in]  rows        number of rows; 0 writes nothing
 * @param[in]  columns     must equal vemkn_fit_columns(fit)
 * @param[in]  kind        VEMKN_FIT_CONFIDENCE or VEMKN_FIT_PREDICTION
 * @param[in]  level       of the interval, between 0 and 1, as in 0.95
 * @param[out] prediction  array of length [rows], or null
 * @param[out] error       array of length [rows], standard errors of the curve, or null
 * @param[out] lower       array of length [rows], or null
 * @param[out] upper       array of length [rows], or null
 * @return VEMKN_FIT_OK; VEMKN_FIT_ARGUMENT; VEMKN_FIT_DATA, as vemkn_fit_predict;
 *         VEMKN_FIT_UNCERTAIN where the model has no standard errors: the objective does not curve
 *         upwards in every direction, there are more than 500 weights, or it is not from a robust
 *         fit; VEMKN_FIT_MEMORY. Nothing is written where the call fails.
 *
 * Ownership: every array stays the caller's.
 * Threads:   may run at any time; waits while calls of vemk_Hv and vemk_Jv with another number of
 *            tangents run in other threads. */
VEMKN_FIT_API int vemkn_fit_interval(const VEMKNFit* fit,
                                     const double* x,
                                     size_t rows,
                                     size_t columns,
                                     int kind,
                                     double level,
                                     double* prediction,
                                     double* error,
                                     double* lower,
                                     double* upper);

/* ------------------------------------------------------------------------------------ model files */

/** Writes a model file, JSON: beside the place first, then renamed, so that an older file survives
 * what goes wrong.
 * @param[in] fit   not changed
 * @param[in] path  of the file
 * @return VEMKN_FIT_OK; VEMKN_FIT_ARGUMENT; VEMKN_FIT_FILE; VEMKN_FIT_MEMORY.
 * Threads: may run at any time. */
VEMKN_FIT_API int vemkn_fit_save(const VEMKNFit* fit, const char* path);

/** Reads a model file of this version or an earlier one, whoever wrote it. Its predictions are those
 * of the fit that was saved, to the bit.
 * @param[in]  path  of the file
 * @param[out] fit   to be released by vemkn_fit_free; null where the call fails
 * @return VEMKN_FIT_OK; VEMKN_FIT_ARGUMENT; VEMKN_FIT_FILE; VEMKN_FIT_MODEL; VEMKN_FIT_MEMORY.
 * Threads: may run at any time. */
VEMKN_FIT_API int vemkn_fit_load(const char* path, VEMKNFit** fit);

/** The text that vemkn_fit_save writes.
 * @param[in]  fit     not changed
 * @param[out] text    array of length [size]; written if the text and a null byte fit; may be null
 * @param[in]  size    bytes of it
 * @param[out] length  of the text, without the null byte
 * @return VEMKN_FIT_OK, also where the text does not fit; VEMKN_FIT_ARGUMENT; VEMKN_FIT_MEMORY.
 * Threads: may run at any time. */
VEMKN_FIT_API int vemkn_fit_write(const VEMKNFit* fit, char* text, size_t size, size_t* length);

/** As vemkn_fit_load, from a text.
 * @param[in]  text    array of length [length], any bytes
 * @param[in]  length  number of bytes
 * @param[out] fit     to be released by vemkn_fit_free; null where the call fails
 * @return VEMKN_FIT_OK; VEMKN_FIT_ARGUMENT; VEMKN_FIT_MODEL; VEMKN_FIT_MEMORY.
 * Threads: may run at any time. */
VEMKN_FIT_API int vemkn_fit_read(const char* text, size_t length, VEMKNFit** fit);

/* ------------------------------------------------------------------------------- what a fit holds */

/** Number of input columns.
 * @param[in] fit  not changed
 * @return their number; 0 for null
 * Threads: may run at any time. */
VEMKN_FIT_API size_t vemkn_fit_columns(const VEMKNFit* fit);

/** Name of an input column.
 * @param[in] fit  not changed
 * @param[in] i    0, 1, ...
 * @return UTF-8; null past the last one
 * Ownership: the fit's.
 * Threads:   may run at any time. */
VEMKN_FIT_API const char* vemkn_fit_column(const VEMKNFit* fit, size_t i);

/** Number of targets: one of a robust fit; models of other fits may have several.
 * @param[in] fit  not changed
 * @return their number; 0 for null
 * Threads: may run at any time. */
VEMKN_FIT_API size_t vemkn_fit_targets(const VEMKNFit* fit);

/** Name of a target.
 * @param[in] fit  not changed
 * @param[in] i    0, 1, ...
 * @return UTF-8; null past the last one
 * Ownership: the fit's.
 * Threads:   may run at any time. */
VEMKN_FIT_API const char* vemkn_fit_target(const VEMKNFit* fit, size_t i);

/** Standard deviation that counts as normal scatter of a target.
 * @param[in] fit  not changed
 * @param[in] i    target, 0, 1, ...
 * @return in units of the target; NaN past the last one
 * Threads: may run at any time. */
VEMKN_FIT_API double vemkn_fit_core(const VEMKNFit* fit, size_t i);

/** What an output of zero stands for: a prediction is shift + 3 core output.
 * @param[in] fit  not changed
 * @param[in] i    target, 0, 1, ...
 * @return in units of the target; NaN past the last one
 * Threads: may run at any time. */
VEMKN_FIT_API double vemkn_fit_shift(const VEMKNFit* fit, size_t i);

/** The decay that was given or chosen.
 * @param[in] fit  not changed
 * @return from 0 on; NaN for a fit without penalty, and for null
 * Threads: may run at any time. */
VEMKN_FIT_API double vemkn_fit_decay(const VEMKNFit* fit);

/** The objective at the end: the negative log-likelihood, less that of a residual of zero, summed
 * over the rows, and what the weights cost.
 * @param[in] fit  not changed
 * @return NaN for the model of another fit than a robust one, and for null
 * Threads: may run at any time. */
VEMKN_FIT_API double vemkn_fit_objective(const VEMKNFit* fit);

/** Norm of the gradient of that objective.
 * @param[in] fit  not changed
 * @return NaN for the model of another fit than a robust one, and for null
 * Threads: may run at any time. */
VEMKN_FIT_API double vemkn_fit_gradient(const VEMKNFit* fit);

/** Whether the fit came to a minimum with every row on its side of the likelihood's jump and the
 * core of its own residuals: to the last digits, or, in a valley that has no end, so far that its last
 * hundreds of steps moved it by less than a tenth of a standard error, and the core stands to a
 * thousandth.
 * @param[in] fit  not changed
 * @return 1; else 0, also for the model of another fit than a robust one, and for null
 * Threads: may run at any time. */
VEMKN_FIT_API int vemkn_fit_settled(const VEMKNFit* fit);

/** Number of rows that were fitted.
 * @param[in] fit  not changed
 * @return 0 for null
 * Threads: may run at any time. */
VEMKN_FIT_API size_t vemkn_fit_rows(const VEMKNFit* fit);

/** Number of these rows that lie beyond six cores: outliers.
 * @param[in] fit  not changed
 * @return 0 for the model of another fit than a robust one, and for null
 * Threads: may run at any time. */
VEMKN_FIT_API size_t vemkn_fit_beyond(const VEMKNFit* fit);

/** Number of hidden layers.
 * @param[in] fit  not changed
 * @return 0 for null
 * Threads: may run at any time. */
VEMKN_FIT_API size_t vemkn_fit_layers(const VEMKNFit* fit);

/** Width of a hidden layer.
 * @param[in] fit  not changed
 * @param[in] i    0, 1, ...
 * @return 0 past the last one
 * Threads: may run at any time. */
VEMKN_FIT_API unsigned vemkn_fit_width(const VEMKNFit* fit, size_t i);

/** Activation of every layer.
 * @param[in] fit  not changed
 * @return a word that vemk_activations lists; null for null
 * Ownership: the fit's.
 * Threads:   may run at any time. */
VEMKN_FIT_API const char* vemkn_fit_activation(const VEMKNFit* fit);

/** How it was fitted.
 * @param[in] fit  not changed
 * @return "robust", or a word of who wrote the model; null for null
 * Ownership: the fit's.
 * Threads:   may run at any time. */
VEMKN_FIT_API const char* vemkn_fit_method(const VEMKNFit* fit);

/** The weights, in the flat order of vemkn.h, of scaled inputs and outputs.
 * @param[in]  fit    not changed
 * @param[out] count  how many there are; may be null
 * @return array of length [count]; null for null
 * Ownership: the fit's.
 * Threads:   may run at any time. */
VEMKN_FIT_API const double* vemkn_fit_weights(const VEMKNFit* fit, size_t* count);

/** Covariance of the weights: A^-1 (B + L) A^-1 n / (n - parameters) of n rows, with the Hessian A of
 * the objective, the sum B over rows of the products of their gradients, and what the weights cost,
 * L.
 * @param[in] fit  not changed
 * @return array of length [nw*nw], row by row, for the nw weights; null where there is none, see
 *         vemkn_fit_interval
 * Ownership: the fit's.
 * Threads:   may run at any time. */
VEMKN_FIT_API const double* vemkn_fit_covariance(const VEMKNFit* fit);

/** How many parameters the rows determine: the sum, over the rows within six cores, of the
 * derivative of the fitted value by its target. Of a straight line or plane without a penalty, that is
 * the number of inputs and one; it is at most the number of weights.
 * @param[in] fit  not changed
 * @return NaN where there is no covariance
 * Threads: may run at any time. */
VEMKN_FIT_API double vemkn_fit_parameters(const VEMKNFit* fit);

/** Number of notes.
 * @param[in] fit  not changed
 * @return 0 for null
 * Threads: may run at any time. */
VEMKN_FIT_API size_t vemkn_fit_notes(const VEMKNFit* fit);

/** What a person should know before trusting the fit.
 * @param[in] fit  not changed
 * @param[in] i    0, 1, ...
 * @return a sentence in UTF-8; null past the last one
 * Ownership: the fit's.
 * Threads:   may run at any time. */
VEMKN_FIT_API const char* vemkn_fit_note(const VEMKNFit* fit, size_t i);

#ifdef __cplusplus
}
#endif

#endif /* VEMKN_FIT_H */
