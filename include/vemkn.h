/** @mainpage libvemkn: values and exact derivatives of a small dense feed-forward network
 *
 * SPDX-License-Identifier: BSD-3-Clause
 *
 * For optimisers and fits: a host hands over weights and a batch of rows, and gets outputs,
 * residuals, the objective, and its derivatives with respect to the weights.
 *
 * ## A call sequence
 *
 *     const char* text = "2 1 2 1 32 2 5 softplus sum_log_dnorm_fat";
 *     VEMKNInfo* net = initVEMKNet(text, (int)strlen(text));
 *     unsigned nw = (unsigned)vemk_numel(net);         // 2*5 + 5 + 5*1 + 1 = 21
 *     vemk_setpar(net, 2, 32);                         // 2 threads, slices of 32 rows
 *     vemk_g(net, w, nw, x, y, nrows, 2, 1, &value, gradient);
 *     releaseVEMKNet(net);
 *
 * ## The handle
 *
 * A handle holds the shapes, the names of the activation and the norm, a thread count, a slice size
 * and one set of weights of its own. Every computing call takes the weights that it is to use; the
 * handle's own serve only where the caller passes none (null). No computing call changes the
 * handle.
 *
 * ## The description text
 *
 * Words separated by white space: numin numout nlayers nmult batch, then nlayers sizes, then the
 * name of the activation ("softplus", "atan", "relu", "id"; "softmax", "softplus_shifted" and any
 * other word are softplus) and the name of the norm ("sum" or "sum_log_dnorm_fat").
 *
 * - With s0 ... s(n-1) the sizes and n = nlayers, layer i < n-1 maps s(i) values to s(i+1); the
 *   last layer maps s(n-1)*nmult values to numout.
 * - The activation acts on every layer, the last one included.
 * - nmult > 1 applies the hidden layers that often in a chain and hands the outputs of all passes,
 *   side by side, to the last layer. The last size must then equal the first.
 * - batch must not be 0 and is otherwise ignored: a new handle works in slices of 32 rows.
 *
 * A size too few or too many shifts the meaning of every later word; vemk_check says what is wrong
 * with a text.
 *
 * ## The flat order of weights, gradients and products
 *
 *     layer 0          layer 1          layer 2
 *     b0 | W0 by rows | b1 | W1 by rows | b2 | W2 by rows        vemk_numel() numbers in all
 *
 * W(i) has one row for each input of the layer and one column for each output, so the outputs are
 * H*W + b.
 *
 * ## Norms, and the objective
 *
 * R = output - target. The element norm gives one number for each residual, the summing norm their
 * sum; the objective is the summing norm of R divided by its number of elements.
 *
 * - "sum": the residual itself, signed.
 * - "sum_log_dnorm_fat": its negative log-likelihood -log f(R) + vemk_logp_bias, where f is a
 *   Gaussian of standard deviation 1/3, the core, for |R| < 2, and a Cauchy density of scale
 *   0.0004785973257525766, the tail, from there on. A gross outlier costs little more than a
 *   moderate one. The two do not join: the cost rises to 18 just below |R| = 2, falls to 10.36
 *   there and is back at 18 only at 91.
 *
 * ## Tangents and cotangents
 *
 * A tangent is a direction in the space of the weights, nw numbers in the flat order: vemk_Jv gives
 * the derivatives of all normed residuals along it (a Jacobian-vector product), vemk_Hv that of the
 * gradient (a Hessian-vector product). A cotangent has a number for each residual: vemk_vJ gives
 * the gradient of the sum of the normed residuals, each times its number (a vector-Jacobian
 * product). The Jacobian is that of the element-normed residuals.
 *
 * ## What a call does to the process
 *
 * - Traps: while a computing call runs, invalid operations, divisions by zero and overflows trap on
 *   every thread that works for it. Arithmetic that would make a NaN out of numbers, or an
 *   infinity, ends the process with SIGFPE. On return those three traps are off, whatever they were
 *   before; flags of the three exceptions that were pending are cleared. A quiet NaN in the data
 *   passes through; a signalling NaN traps (R's NA_real_ is one). vemk_quiet does without traps.
 *   Where the processor has no traps, as most of aarch64, a call looks at the flags of the three
 *   exceptions and raises SIGFPE before anything is written: up to the end of a slice later (or of
 *   the slices that run together), on the thread that finds a flag. The signal's address is then not
 *   the instruction, and if a handler returns, the process ends by SIGFPE all the same. A
 *   handler for SIGFPE may leave a call of a handle with one thread by siglongjmp: later calls work,
 *   and what this one holds, its memory too, is given back at the thread's next call or its end.
 * - Width: a call with more than vemk_maxcols input columns prints "too many predicates: " and ends
 *   the process with exit status 3. Exit handlers may make handles and call.
 * - End of the process: by exit, new calls of other threads are held back for up to a second, and
 *   those in flight waited for as long.
 * - Refusals: a refused call prints one line on standard error, writes nothing and returns -1.
 *   Every computing function refuses a null handle; every one that runs the network also refuses a
 *   network with fewer than two layers, one with nmult > 1 whose last size differs from its first,
 *   an unknown norm name (where the norm is used), nw other than vemk_numel, an output width other
 *   than vemk_numout, and 2^32 or more results.
 * - BLAS: OpenBLAS runs on one thread while at least one call runs, and is set back when the last
 *   one returns.
 * - Copies: two copies of the library in one process compute each for itself. Where the loader
 *   gives both the same names, they share vemkn_rowmajor, the error handler and the two counts.
 * - Banner: the first call, initVEMKNet included, prints one line on standard output,
 *   unless vemk_nobanner was called.
 * - Exceptions: C++ exceptions (lack of memory) pass through to the caller. Traps then stay armed,
 *   unless the handle is quiet, and BLAS stays at one thread.
 * - Fork: in a fork's child a call runs on one thread, with the same results.
 * - Environment: vemk_Hv, vemk_Jv, vemk_vJ, vemk_vJ_vec and initVEMKNet read environment variables.
 *   setenv, putenv and unsetenv must not run at the same time on another thread.
 *
 * ## Results and threads
 *
 * Rows are cut into slices of `batch` rows, on which at most `threads` threads work, no more than
 * there are slices, or processors (two where there is one), and only the calling one where that is
 * as fast; sums are taken in the order of the slices. The same input with the same batch gives the
 * same bits (of a NaN no more than that it is one), with any number of threads, and on every
 * processor with AVX2 and FMA, and on aarch64, unless a layer has more than 384 inputs or outputs: its products are
 * left to OpenBLAS, whose bits depend on the processor. Calls may overlap in time, on one handle
 * too, as long as no setter runs on it; at most 64 threads form products by OpenBLAS at once,
 * further calls wait. Outputs of a call may overlap its inputs.
 *
 * ## Null pointers
 *
 * Null w: the handle's own weights. Null x, y, u, v or r: zeros. Null output: that result is not
 * written.
 */
#ifndef VEMKN_H
#define VEMKN_H

/** @file
 * The whole C interface, for C99 and C++. The main page explains the terms. */

#include <stdint.h>

#define VEMKN_VERSION_MAJOR 2026 /**< year of VEMKN_VERSION */
#define VEMKN_VERSION_MINOR 9    /**< month of VEMKN_VERSION */
#define VEMKN_VERSION_PATCH 1175 /**< build of VEMKN_VERSION */
/** @cond */
#define VEMKN_TEXT_OF(number) #number
#define VEMKN_VERSION_OF(year, month, build) \
    VEMKN_TEXT_OF(year) "." VEMKN_TEXT_OF(month) "." VEMKN_TEXT_OF(build)
/** @endcond */
/** Version of this header, "year.month.build". vemk_version gives that of the library which
 * runs. */
#define VEMKN_VERSION \
    VEMKN_VERSION_OF(VEMKN_VERSION_MAJOR, VEMKN_VERSION_MINOR, VEMKN_VERSION_PATCH)

#if defined(__GNUC__)
#define VEMKN_API __attribute__((visibility("default")))
#else
#define VEMKN_API
#endif

#ifdef __cplusplus
namespace VEMKN {
struct VEMKNInfo;
}

typedef VEMKN::VEMKNInfo VEMKNInfo; /**< what a handle points to, opaque */
extern "C" {
#else
typedef struct VEMKNInfo VEMKNInfo; /**< what a handle points to, opaque */
#endif

/** Storage order of tangents, and of products with them, in vemk_Hv and vemk_Jv: 0, the start
 * value, interleaves them; anything else puts them one after the other. Shared by all handles;
 * vemk_major writes it. Nothing else reads it.
 * Threads: a plain variable; do not write it while vemk_Hv or vemk_Jv runs. */
extern VEMKN_API int vemkn_rowmajor;

/** How many tangents a derivative carrier gets that is made without a number: 1 after initVEMKNet,
 * as many as the call carries after vemk_Hv and vemk_Jv. For inspection: a host has no reason to
 * write it.
 * Threads: written while no other call with tangents runs. */
extern VEMKN_API uint64_t g_ndd;

/* C++ hosts that want to hear of a division by zero among derivative carriers install a handler: see
 * vemkn_errors.h, installed beside this header. Without a handler the message goes to standard
 * error. */

/* ---------------------------------------------------------------------------------- life cycle */

/** New handle from a description.
 *
 * @param[in] text    array of length [length], the description (see above); may hold any bytes
 * @param[in] length  number of bytes
 * @return a handle, never null; release it with releaseVEMKNet. A text that describes no network
 *         gives a handle without layers: it can be read and released, and every computing call
 *         refuses it.
 *
 * The new handle has batch 32 (whatever the text says), threads 1 (inside a parallel region of the
 * host: the size of its team) and all weights 0. Sets g_ndd to 1.
 * Ownership: text is copied.
 * Messages:  "Error: invalid network data\n" on standard error when one of the first five numbers
 *            is zero, or the network takes more than half of the machine's memory or more than the
 *            process may have; "invalid norm function name: " and the name on standard output for
 *            an unknown norm; with the environment variable INFO set, a line about the build on
 *            standard output. The text is parsed for two internal models, so each of these appears
 *            twice.
 * Failure:   null text with a length throws std::logic_error, a negative length std::length_error.
 *            The text is parsed as a computing call runs: on return the traps for invalid
 *            operations, divisions by zero and overflows are off, and a host that had them armed
 *            arms them again; lack of memory (std::bad_alloc) leaves them armed.
 * Threads:   may run at any time; waits while vemk_Hv or vemk_Jv runs in another thread. */
VEMKN_API VEMKNInfo* initVEMKNet(const char* text, int length);

/** Says in a sentence for people what is wrong with a description, without making a network.
 *
 * @param[in]  text    array of length [length], the description; may hold any bytes
 * @param[in]  length  number of bytes
 * @param[out] buffer  array of length [size]: the sentence, or as much of it as there is room for,
 *                     and a zero byte; an empty text when nothing is wrong. Null: not written
 * @param[in]  size    room in the buffer in bytes; 0: nothing is written
 * @return 0 when nothing is wrong. 1 when initVEMKNet makes a network that can be used, but a word
 *         does not do what it seems to: an unknown activation, a negative number, a size of 0, words
 *         that run into each other or follow the norm, or a first size other than numin. -1 when
 *         computing calls, or those of them that use the norm, refuse what initVEMKNet makes of the
 *         text.
 *
 * The judgement is that of initVEMKNet, with the memory that the machine and the process have at the
 * moment. One thing that is wrong is named; a word of the text appears in quotation marks, ASCII's
 * control characters as question marks, at most 40 bytes of it, no character of UTF-8 cut through.
 * Ownership: text is copied; the buffer stays the caller's.
 * Messages:  none, not even the banner.
 * Failure:   none: a null text with a length, a negative length and lack of memory give -1 and a
 *            sentence. The floating-point environment is left alone.
 * Threads:   may run at any time. */
VEMKN_API int vemk_check(const char* text, int length, char* buffer, unsigned size);

/** Releases a handle; null is ignored.
 * @param[in] net  handle from initVEMKNet; invalid afterwards
 * Ownership: frees everything that the handle holds.
 * Threads:   no other call may use the handle during or after this one. */
VEMKN_API void releaseVEMKNet(VEMKNInfo* net);

/** Sets the number of threads and the slice size.
 *
 * @param[in,out] net      handle
 * @param[in]     threads  1 ... 99999: number of threads at most; see "Results and threads" for how
 *                         many run
 * @param[in]     batch    rows of a slice, at least 1; anything else leaves the slice size as it
 *                         is, without a message
 * @return 0; -1 for threads out of range or a null handle, and nothing is changed.
 * Threads: must not overlap with other calls on this handle. */
VEMKN_API int vemk_setpar(VEMKNInfo* net, unsigned threads, int batch);

/** Sets the slice size.
 * @param[in,out] net    handle
 * @param[in]     batch  rows of a slice, at least 1
 * @return 0; -1 for batch < 1 or a null handle, and nothing is changed.
 * Threads: must not overlap with other calls on this handle. */
VEMKN_API int vemk_setbatch(VEMKNInfo* net, int batch);

/** Switches the quiet mode of a handle, off in a new one. For R, Python and line searches, which
 * would rather see a NaN than lose their process.
 *
 * @param[in,out] net  handle
 * @param[in]     on   not 0: computing calls on this handle arm no traps. Numbers that are not
 *                     finite flow through, and a call whose results are not all finite returns 1
 *                     after it wrote them. The three traps are masked on every thread that works,
 *                     and the host's floating-point environment is put back as found. Results that
 *                     the caller did not want (null outputs) count too. An overflow on the way that
 *                     leaves all results finite is not reported.
 * @return 0; -1 for a null handle.
 * Failure: too many input columns end the process in quiet mode too, and refused calls return -1.
 * Threads: must not overlap with other calls on this handle. */
VEMKN_API int vemk_quiet(VEMKNInfo* net, int on);

/** Stores rowmajor in vemkn_rowmajor, for all handles.
 * @param[in] net       not looked at; may be null
 * @param[in] rowmajor  the new value
 * @return 0
 * Threads: must not overlap with vemk_Hv and vemk_Jv. */
VEMKN_API int vemk_major(VEMKNInfo* net, int rowmajor);

/** Marks the banner as printed without printing it, for the rest of the process: for a library on
 * top of this one, or a host whose standard output a program reads. What the environment variables
 * INFO and NN_TRACE ask for is printed all the same.
 * Threads: may run at any time; a first call in another thread may still print the banner. */
VEMKN_API void vemk_nobanner(void);

/** Version of the library that runs.
 * @return VEMKN_VERSION of its header, "year.month.build"
 * Ownership: a constant.
 * Threads:   may run at any time. */
VEMKN_API const char* vemk_version(void);

/** The words that a description may name an activation by, aliases included, in the order in which
 * they are compared.
 * @param[in] i  0, 1, ...
 * @return word i; null past the end of the list
 * Ownership: a constant.
 * Threads:   may run at any time. */
VEMKN_API const char* vemk_activations(unsigned i);

/** The words that a description may name a norm by, as vemk_activations.
 * @param[in] i  0, 1, ...
 * @return word i; null past the end of the list
 * Ownership: a constant.
 * Threads:   may run at any time. */
VEMKN_API const char* vemk_norms(unsigned i);

/* ----------------------------------------------------------------------- shapes and parameters */

/** The first number of the description. How many input columns a call takes: see vemk_maxcols.
 * @param[in] net  handle
 * @return the number; 0 for a null handle
 * Threads: reads the handle only. */
VEMKN_API unsigned vemk_numin(VEMKNInfo* net);

/** The most input columns that a call takes: the smaller of vemk_numin and the first of the sizes. A
 * call with fewer counts the missing ones as zeros; a call with more ends the process with exit
 * status 3, in quiet mode too.
 * @param[in] net  handle
 * @return the number; 0 for a network without layers and for a null handle
 * Threads: reads the handle only. */
VEMKN_API unsigned vemk_maxcols(VEMKNInfo* net);

/** Number of output columns.
 * @param[in] net  handle
 * @return the number; 0 for a null handle
 * Threads: reads the handle only. */
VEMKN_API unsigned vemk_numout(VEMKNInfo* net);

/** Number of weights and biases, the length of the flat vector.
 * @param[in] net  handle
 * @return the number; 0 for a network without layers and for a null handle
 * Threads: reads the handle only. */
VEMKN_API uint64_t vemk_numel(VEMKNInfo* net);

/** One weight matrix of the handle's own weights, or its shape.
 *
 * @param[in]     net     handle
 * @param[in]     layer   0 ... number of layers - 1
 * @param[out]    buffer  null: only the shape is asked for. Else array of length [*rows * *cols],
 *                        row by row
 * @param[in,out] rows    with a null buffer receives the number of rows, else says how many there
 *                        are room for
 * @param[in,out] cols    the same for the columns
 * @return 0; -1 for a null handle, no such layer, null rows or cols, or room for more values than
 *         are stored (nothing is written then). Room for fewer receives the first ones.
 * Threads: reads the handle only. */
VEMKN_API int vemk_weights(
    VEMKNInfo* net, unsigned layer, double* buffer, unsigned* rows, unsigned* cols);

/** One bias vector of the handle's own weights, or its length.
 *
 * @param[in]     net     handle
 * @param[in]     layer   0 ... number of layers - 1
 * @param[out]    buffer  null: only the length is asked for. Else array of length [*length]
 * @param[in,out] length  with a null buffer receives the length, else says how many there is room
 *                        for
 * @return as vemk_weights
 * Threads: reads the handle only. */
VEMKN_API int vemk_bias(VEMKNInfo* net, unsigned layer, double* buffer, unsigned* length);

/** Log density of the likelihood's core at zero, ln(3/sqrt(2 pi)) = 0.17967375546343706. A network
 * with the norm "sum", or an unknown one, has it too.
 * @param[in] net  handle
 * @return that constant; 0.0 for a network without layers and for a null handle
 * Threads: reads the handle only. */
VEMKN_API double vemk_logp_bias(VEMKNInfo* net);

/** Standard deviation of the likelihood's core, 1/3. A network with the norm "sum", or an unknown
 * one, has it too.
 * @param[in] net  handle
 * @return that constant; 0.0 for a network without layers and for a null handle
 * Threads: reads the handle only. */
VEMKN_API double vemk_logp_sigma(VEMKNInfo* net);

/** Sets the handle's own weights, those that a call with a null w uses.
 *
 * @param[in,out] net  handle
 * @param[in]     w    array of length [n] in the flat order; null sets zeros
 * @param[in]     n    must equal vemk_numel(net)
 * @return 0; -1 for a null handle or a wrong n (one line on standard error, nothing is changed).
 * Ownership: w is copied.
 * Threads:   must not overlap with other calls on this handle. */
VEMKN_API int vemk_setweights(VEMKNInfo* net, const double* w, unsigned n);

/** The handle's own weights; zeros after creation.
 *
 * @param[in]  net  handle
 * @param[out] w    array of length [n]: the first n values of the flat vector; may be null only if
 *                  n is 0
 * @param[in]  n    at most vemk_numel(net)
 * @return 0; -1 for a null handle, a null w with n > 0, or n too large (one line on standard error
 *         for the last; nothing is written).
 * Threads: reads the handle only. */
VEMKN_API int vemk_getweights(VEMKNInfo* net, double* w, unsigned n);

/* ----------------------------------------------------------------------- outputs and residuals */

/** Outputs of the network for a batch, on the calling thread whatever vemk_setpar says.
 *
 * @param[in]  net      handle; not changed
 * @param[in]  w        array of length [nw], flat order
 * @param[in]  nw       must equal vemk_numel(net); not looked at when w is null
 * @param[in]  x        array of length [nrows*ncols], row by row; vemk_major has no effect here
 * @param[in]  nrows    number of rows
 * @param[in]  ncols    input columns; missing ones count as zeros
 * @param[in]  ignored  not looked at
 * @param[out] out      array of length [nrows*numout], row by row
 * @return 0; 1 (see vemk_quiet); -1 when the call is refused.
 *
 * Ownership: every buffer stays the caller's.
 * Failure:   see "What a call does to the process".
 * Threads:   reads the handle only; calls may overlap, on one handle too. Runs on the calling
 *            thread. */
VEMKN_API int vemk_compute(VEMKNInfo* net,
                           const double* w,
                           unsigned nw,
                           const double* x,
                           unsigned nrows,
                           unsigned ncols,
                           uint64_t ignored,
                           double* out);

/** Residuals, outputs minus targets, on the calling thread whatever vemk_setpar says.
 *
 * @param[in]  net    handle; not changed
 * @param[in]  w      array of length [nw], flat order
 * @param[in]  nw     must equal vemk_numel(net); not looked at when w is null
 * @param[in]  x      array of length [nrows*xcols], row by row; vemk_major has no effect here
 * @param[in]  y      array of length [nrows*ycols], row by row
 * @param[in]  nrows  number of rows
 * @param[in]  xcols  input columns; missing ones count as zeros
 * @param[in]  ycols  must equal vemk_numout(net)
 * @param[out] out    array of length [nrows*ycols], row by row
 * @return 0; 1 (see vemk_quiet); -1 when the call is refused.
 *
 * Ownership: every buffer stays the caller's.
 * Failure:   see "What a call does to the process".
 * Threads:   reads the handle only; calls may overlap, on one handle too. Runs on the calling
 *            thread. */
VEMKN_API int vemk_residual(VEMKNInfo* net,
                            const double* w,
                            unsigned nw,
                            const double* x,
                            const double* y,
                            unsigned nrows,
                            unsigned xcols,
                            unsigned ycols,
                            double* out);

/* ------------------------------------------------------------------------------------ objective */

/** Objective of a batch: the mean over all residuals of their norm.
 *
 * @param[in]  net     handle; not changed
 * @param[in]  w       array of length [nw], flat order
 * @param[in]  nw      must equal vemk_numel(net); not looked at when w is null
 * @param[in]  x       array of length [n*nin], row by row; vemk_major has no effect here
 * @param[in]  y       array of length [n*nout], row by row
 * @param[in]  n       number of rows; 0 is refused
 * @param[in]  nin     input columns; missing ones count as zeros
 * @param[in]  nout    must equal vemk_numout(net)
 * @param[out] result  one double
 * @return 0; 1 (see vemk_quiet); -1 when the call is refused.
 *
 * Ownership: every buffer stays the caller's.
 * Failure:   see "What a call does to the process".
 * Threads:   reads the handle only; calls may overlap, on one handle too. Rows are shared out to
 *            a team. */
VEMKN_API int vemk_obj(VEMKNInfo* net,
                       const double* w,
                       unsigned nw,
                       const double* x,
                       const double* y,
                       unsigned n,
                       unsigned nin,
                       unsigned nout,
                       double* result);

/** The element norm of every residual: the residual itself under "sum", its negative log-likelihood
 * under "sum_log_dnorm_fat"; divided by nothing.
 *
 * @param[in]  net   handle; not changed
 * @param[in]  w     array of length [nw], flat order
 * @param[in]  nw    must equal vemk_numel(net); not looked at when w is null
 * @param[in]  x     array of length [n*nin], row by row
 * @param[in]  y     array of length [n*nout], row by row
 * @param[in]  n     number of rows; 0 writes nothing
 * @param[in]  nin   input columns; missing ones count as zeros
 * @param[in]  nout  must equal vemk_numout(net)
 * @param[out] out   array of length [n*nout], row by row
 * @return 0; 1 (see vemk_quiet); -1 when the call is refused.
 *
 * Ownership: every buffer stays the caller's.
 * Failure:   see "What a call does to the process".
 * Threads:   reads the handle only; calls may overlap, on one handle too. Rows are shared out to
 *            a team. */
VEMKN_API int vemk_objv(VEMKNInfo* net,
                        const double* w,
                        unsigned nw,
                        const double* x,
                        const double* y,
                        unsigned n,
                        unsigned nin,
                        unsigned nout,
                        double* out);

/** The summing norm of any matrix divided by its number of elements; no network is run.
 *
 * @param[in]  net     handle; only its norm is used
 * @param[in]  r       array of length [a*b]
 * @param[in]  a, b    dimensions
 * @param[out] result  one double; 0.0 for no elements
 * @return 0; 1 (see vemk_quiet); -1 for a null handle, an unknown norm name or 2^32 or more
 *         elements.
 *
 * Ownership: every buffer stays the caller's.
 * Failure:   an element beyond about 7.56e153 in magnitude overflows in the likelihood: SIGFPE.
 * Threads:   reads the handle only; calls may overlap, on one handle too. Runs on the calling
 *            thread. */
VEMKN_API int vemk_norm(VEMKNInfo* net, const double* r, unsigned a, unsigned b, double* result);

/** The element norm of any vector; no network is run.
 *
 * @param[in]  net  handle; only its norm is used
 * @param[in]  x    array of length [n]
 * @param[in]  n    number of elements; 0 writes nothing
 * @param[out] out  array of length [n]
 * @return 0; 1 (see vemk_quiet); -1 for a null handle or an unknown norm name.
 *
 * Ownership: every buffer stays the caller's.
 * Failure:   as vemk_norm.
 * Threads:   reads the handle only; calls may overlap, on one handle too. Runs on the calling
 *            thread. */
VEMKN_API int vemk_logp(VEMKNInfo* net, const double* x, unsigned n, double* out);

/* ---------------------------------------------------------------------------------- derivatives */

/** Objective of a batch and its gradient with respect to every weight and bias.
 *
 * @param[in]  net       handle; not changed
 * @param[in]  w         array of length [nw], flat order
 * @param[in]  nw        must equal vemk_numel(net)
 * @param[in]  x         array of length [n*nin], row by row; vemk_major has no effect here
 * @param[in]  y         array of length [n*nout], row by row
 * @param[in]  n         number of rows; 0 is refused
 * @param[in]  nin       input columns; missing ones count as zeros
 * @param[in]  nout      must equal vemk_numout(net)
 * @param[out] value     one double, the objective as vemk_obj gives it
 * @param[out] gradient  array of length [nw], flat order; overwritten
 * @return 0; 1 (see vemk_quiet); -1 when the call is refused.
 *
 * Ownership: every buffer stays the caller's.
 * Failure:   see "What a call does to the process". In the likelihood a residual beyond about
 *            6.5e76 in magnitude overflows on the way to its derivative (here and in vemk_Hv,
 *            vemk_vJ, vemk_vJ_vec): SIGFPE.
 * Threads:   reads the handle only; calls may overlap, on one handle too. Rows are shared out to
 *            a team. */
VEMKN_API int vemk_g(VEMKNInfo* net,
                     const double* w,
                     unsigned nw,
                     const double* x,
                     const double* y,
                     unsigned n,
                     unsigned nin,
                     unsigned nout,
                     double* value,
                     double* gradient);

/** Objective, gradient and Hessian-vector products with several tangents.
 *
 * Tangents and products are interleaved when vemkn_rowmajor is 0 (entry k of tangent d at [k*nv +
 * d]), else one after the other ([d*nw + k]). With vemkn_rowmajor not 0, nw tangents are carried
 * whatever nv is: tangents nv ... nw-1 count as zero, and nv above nw is refused. With nw = nv = 1
 * the tangent is 1.0 and v is not read.
 *
 * @param[in]  net       handle; not changed
 * @param[in]  w         array of length [nw], flat order
 * @param[in]  nw        must equal vemk_numel(net)
 * @param[in]  v         array of length [nw*nv], the tangents
 * @param[in]  nv        number of tangents; 0 leaves hv alone
 * @param[in]  x         array of length [n*nin], row by row
 * @param[in]  y         array of length [n*nout], row by row
 * @param[in]  n         number of rows
 * @param[in]  nin       input columns; missing ones count as zeros
 * @param[in]  nout      must equal vemk_numout(net)
 * @param[out] value     one double, the objective
 * @param[out] gradient  array of length [nw], flat order
 * @param[out] hv        array of length [nw*nv], the products
 * @return 0; 1 (see vemk_quiet); -1 when the call is refused, also for 2^32 or more tangent
 *         values.
 *
 * Ownership: every buffer stays the caller's.
 * Messages:  with the environment variable NN_TRACE set, "J = value, seconds s\n" on standard
 *            output.
 * Failure:   see "What a call does to the process". An empty batch divides by zero: the error
 *            handler gets a report, then SIGFPE ends the process (a quiet handle goes on, reports
 *            twice and gives NaN).
 * Threads:   reads the handle only; calls may overlap, on one handle too. A call waits for calls
 *            of vemk_Hv and vemk_Jv in other threads that carry another number of tangents. Rows
 *            are shared out to a team. */
VEMKN_API int vemk_Hv(VEMKNInfo* net,
                      const double* w,
                      unsigned nw,
                      const double* v,
                      unsigned nv,
                      const double* x,
                      const double* y,
                      unsigned n,
                      unsigned nin,
                      unsigned nout,
                      double* value,
                      double* gradient,
                      double* hv);

/** The element norm of every residual and its Jacobian-vector products with several tangents.
 *
 * The order of the tangents, their number and the case nw = nv = 1 are as in vemk_Hv. Element i =
 * row*ycols + column has its derivative along tangent d at jac[i*nv + d] when vemkn_rowmajor is 0,
 * else at jac[d*nrows*ycols + i].
 *
 * @param[in]  net    handle; not changed
 * @param[in]  w      array of length [nw], flat order
 * @param[in]  nw     must equal vemk_numel(net)
 * @param[in]  v      array of length [nw*nv], the tangents
 * @param[in]  nv     number of tangents; 0 leaves jac alone
 * @param[in]  x      array of length [nrows*xcols], row by row
 * @param[in]  y      array of length [nrows*ycols], row by row
 * @param[in]  nrows  number of rows
 * @param[in]  xcols  input columns; missing ones count as zeros
 * @param[in]  ycols  must equal vemk_numout(net)
 * @param[out] f      array of length [nrows*ycols], the element-normed residuals
 * @param[out] jac    array of length [nrows*ycols*nv]
 * @return 0; 1 (see vemk_quiet); -1 when the call is refused, also for 2^32 or more tangent
 *         values or derivatives.
 *
 * Ownership: every buffer stays the caller's.
 * Messages:  with NN_TRACE set, "J = value, seconds s\n" on standard output; the value is the
 *            summing norm of f divided by its length. Deliberate: f is element-normed already.
 * Failure:   as vemk_Hv; an empty batch divides by zero only when NN_TRACE is set.
 * Threads:   as vemk_Hv. */
VEMKN_API int vemk_Jv(VEMKNInfo* net,
                      const double* w,
                      unsigned nw,
                      const double* v,
                      unsigned nv,
                      const double* x,
                      const double* y,
                      unsigned nrows,
                      unsigned xcols,
                      unsigned ycols,
                      double* f,
                      double* jac);

/** Residuals, and the vector-Jacobian product with one cotangent: the sum over all elements e of
 * u[e] times the gradient of the element norm of residual e.
 *
 * @param[in]  net      handle; not changed
 * @param[in]  w        array of length [nw], flat order
 * @param[in]  nw       must equal vemk_numel(net)
 * @param[in]  u        array of length [nrows*ycols], row by row: the cotangent
 * @param[in]  ignored  not looked at
 * @param[in]  x        array of length [nrows*xcols], row by row; vemk_major has no effect here
 * @param[in]  y        array of length [nrows*ycols], row by row
 * @param[in]  nrows    number of rows; 0 gives a zero gradient
 * @param[in]  xcols    input columns; missing ones count as zeros
 * @param[in]  ycols    must equal vemk_numout(net)
 * @param[out] r_out    array of length [nrows*ycols]: the residuals, output minus target
 * @param[out] g_out    array of length [nw], flat order
 * @return 0; 1 (see vemk_quiet); -1 when the call is refused.
 *
 * Ownership: every buffer stays the caller's.
 * Messages:  with NN_TRACE set, "J = value, seconds s\n" on standard output; the value is the
 *            objective.
 * Failure:   see "What a call does to the process"; an empty batch with NN_TRACE set divides by
 *            zero: SIGFPE.
 * Threads:   reads the handle only; calls may overlap, on one handle too. Rows are shared out to
 *            a team. */
VEMKN_API int vemk_vJ(VEMKNInfo* net,
                      const double* w,
                      unsigned nw,
                      const double* u,
                      uint64_t ignored,
                      const double* x,
                      const double* y,
                      unsigned nrows,
                      unsigned xcols,
                      unsigned ycols,
                      double* r_out,
                      double* g_out);

/** vemk_vJ for k cotangents at once: one forward pass, and backward sweeps of several cotangents
 * each.
 *
 * @param[in]  net    handle; not changed
 * @param[in]  w      array of length [nw], flat order
 * @param[in]  nw     must equal vemk_numel(net)
 * @param[in]  u      array of length [k*nrows*ycols], one cotangent after the other, each row by
 *                    row
 * @param[in]  k      number of cotangents; 0 leaves g_out alone
 * @param[in]  x      array of length [nrows*xcols], row by row; vemk_major has no effect here
 * @param[in]  y      array of length [nrows*ycols], row by row
 * @param[in]  nrows  number of rows; 0 gives zero gradients
 * @param[in]  xcols  input columns; missing ones count as zeros
 * @param[in]  ycols  must equal vemk_numout(net)
 * @param[out] r_out  array of length [nrows*ycols]: the residuals
 * @param[out] g_out  array of length [k*nw], one product after the other, each in the flat order
 * @return 0; 1 (see vemk_quiet); -1 when the call is refused, also for 2^32 or more cotangent
 *         values or products.
 *
 * Ownership: every buffer stays the caller's.
 * Messages:  as vemk_vJ.
 * Failure:   as vemk_vJ.
 * Threads:   reads the handle only; calls may overlap, on one handle too. Rows, and
 *            cotangents where rows are few, are shared out to a team, whatever the batch; the
 *            products' bits depend on neither. */
VEMKN_API int vemk_vJ_vec(VEMKNInfo* net,
                          const double* w,
                          unsigned nw,
                          const double* u,
                          unsigned k,
                          const double* x,
                          const double* y,
                          unsigned nrows,
                          unsigned xcols,
                          unsigned ycols,
                          double* r_out,
                          double* g_out);

#ifdef __cplusplus
}

namespace yafad {
namespace FO {
namespace Dynamic {
/** Number of tangents of the scalar carriers made inside an operation; written together with
 * g_ndd by vemk_Hv and vemk_Jv, left alone by initVEMKNet. */
extern VEMKN_API uint64_t NDIR;
}  // namespace Dynamic
}  // namespace FO
}  // namespace yafad
#endif

#endif /* VEMKN_H */
