// vemkn-tao: fits a network to a file of rows with PETSc's TAO, the rows shared out to the ranks of MPI.

#include <petsctao.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "callbacks.h"
#include "together.h"

using namespace vemkn_tao;

namespace {

const char help[] =
    "Fits a network to a file of rows; the rows are shared out to the ranks.\n"
    "  -vemkn_data FILE          file of rows, see vemkn-tao-data\n"
    "  -vemkn_net \"TEXT\"         description of the network, as initVEMKNet takes it\n"
    "  -vemkn_threads 1          OpenMP threads of each rank\n"
    "  -vemkn_batch 32           rows of a slice\n"
    "  -vemkn_seed 1             of the weights at the start\n"
    "  -vemkn_start FILE         start from these weights, as -vemkn_view_weights binary:FILE "
    "wrote them\n"
    "  -vemkn_view_weights V     shows or writes the weights, for example ascii:FILE or "
    "binary:FILE\n"
    "  -vemkn_test_jacobian      compares the Jacobian with differences of the residuals\n"
    "and all options of TAO: -tao_type, -tao_monitor, -tao_gatol, -tao_max_it, -tao_test_gradient "
    "...\n\n";

struct Options {
    std::string data;
    std::string net;
    std::string start;
    PetscInt threads = 1;
    PetscInt batch = 32;
    PetscInt seed = 1;
    PetscBool test_jacobian = PETSC_FALSE;
};

PetscErrorCode get_text(const char* name, std::string* value)
{
    PetscFunctionBeginUser;
    char text[4096] = "";
    PetscCall(PetscOptionsGetString(nullptr, nullptr, name, text, sizeof text, nullptr));
    *value = text;
    PetscFunctionReturn(0);
}

PetscErrorCode get_options(Options* options)
{
    PetscFunctionBeginUser;
    PetscCall(get_text("-vemkn_data", &options->data));
    PetscCall(get_text("-vemkn_net", &options->net));
    PetscCall(get_text("-vemkn_start", &options->start));
    PetscCall(PetscOptionsGetInt(nullptr, nullptr, "-vemkn_threads", &options->threads, nullptr));
    PetscCall(PetscOptionsGetInt(nullptr, nullptr, "-vemkn_batch", &options->batch, nullptr));
    PetscCall(PetscOptionsGetInt(nullptr, nullptr, "-vemkn_seed", &options->seed, nullptr));
    PetscCall(PetscOptionsGetBool(
        nullptr, nullptr, "-vemkn_test_jacobian", &options->test_jacobian, nullptr));
    PetscFunctionReturn(0);
}

struct Default {
    const char* type;
    const char* option;
    const char* value;
};

/** Settings of the Newton types. A shell has no entries to precondition with; `ntl` falls back on the
 * quasi-Newton matrix of its preconditioner and crashes without one. The residuals of BRGN are scaled to a mean,
 * and so is the weight of its regulariser. */
constexpr Default defaults[] = {
    {TAONLS, "-tao_nls_pc_type", "none"},
    {TAONTR, "-tao_ntr_pc_type", "none"},
    {TAONTL, "-tao_ntl_pc_type", "lmvm"},
    {TAOBNLS, "-tao_bnk_pc_type", "none"},
    {TAOBNTR, "-tao_bnk_pc_type", "none"},
    {TAOBNTL, "-tao_bnk_pc_type", "none"},
    {TAOBRGN, "-tao_brgn_subsolver_tao_bnk_pc_type", "none"},
    {TAOBRGN, "-tao_brgn_regularizer_weight", "1e-10"},
};

/// Sets the type, from -tao_type or the one that fits the norm, then its options; those of the user come first.
PetscErrorCode set_method(Tao tao, bool least_squares)
{
    PetscFunctionBeginUser;
    char type[256] = "";
    PetscBool given = PETSC_FALSE;
    PetscCall(PetscOptionsGetString(nullptr, nullptr, "-tao_type", type, sizeof type, &given));
    const std::string chosen = given ? type : least_squares ? TAOBRGN : TAOLMVM;
    for (const auto& [of_type, option, value] : defaults) {
        PetscCall(PetscOptionsHasName(nullptr, nullptr, option, &given));
        if (chosen == of_type && !given) PetscCall(PetscOptionsSetValue(nullptr, option, value));
    }
    PetscCall(TaoSetType(tao, chosen.c_str()));
    PetscCall(TaoSetFromOptions(tao));
    PetscFunctionReturn(0);
}

PetscErrorCode start_weights(const Options& options, const Network& network, Vec weights)
{
    PetscFunctionBeginUser;
    if (!options.start.empty()) {
        PetscViewer file = nullptr;
        PetscCall(
            PetscViewerBinaryOpen(PETSC_COMM_WORLD, options.start.c_str(), FILE_MODE_READ, &file));
        PetscCall(VecLoad(weights, file));
        PetscCall(PetscViewerDestroy(&file));
        PetscFunctionReturn(0);
    }
    const auto start = network.random_weights(static_cast<std::uint64_t>(options.seed), 1.0);
    PetscInt begin = 0;
    PetscInt end = 0;
    PetscCall(VecGetOwnershipRange(weights, &begin, &end));
    for (PetscInt k = begin; k < end; ++k)
        PetscCall(VecSetValue(weights, k, start[static_cast<std::size_t>(k)], INSERT_VALUES));
    PetscCall(VecAssemblyBegin(weights));
    PetscCall(VecAssemblyEnd(weights));
    PetscFunctionReturn(0);
}

void check_method(const std::string& type, bool least_squares, const Rows& rows)
{
    const bool squares = type == TAOBRGN;
    if (least_squares && !squares)
        throw std::runtime_error("the norm sum has no minimum: it goes with -tao_type brgn, not " +
                                 type);
    if (!least_squares && squares)
        throw std::runtime_error(
            "-tao_type brgn squares what the norm gives: it goes with the norm sum");
    if (squares && rows.file.rows > std::uint64_t(PETSC_MAX_INT) / rows.file.outputs)
        throw std::runtime_error("more residuals than this PETSc's indices can count");
}

PetscErrorCode report(Tao tao, const Rows& rows, double seconds)
{
    PetscFunctionBeginUser;
    TaoType type = nullptr;
    TaoConvergedReason reason = TAO_CONTINUE_ITERATING;
    PetscInt iterations = 0;
    PetscInt evaluations = 0;
    PetscInt products = 0;
    PetscReal f = 0.0;
    PetscReal gradient_norm = 0.0;
    PetscMPIInt ranks = 0;
    PetscCallMPI(MPI_Comm_size(PETSC_COMM_WORLD, &ranks));
    PetscCall(TaoGetType(tao, &type));
    Tao solver = tao;
    if (std::string(type) == TAOBRGN) PetscCall(TaoBRGNGetSubsolver(tao, &solver));
    PetscCall(
        TaoGetSolutionStatus(solver, &iterations, &f, &gradient_norm, nullptr, nullptr, &reason));
    PetscCall(TaoGetCurrentFunctionEvaluations(solver, &evaluations));
    PetscCall(TaoGetLinearSolveIterations(solver, &products));
    PetscCall(PetscPrintf(PETSC_COMM_WORLD,
                          "rows            %llu on %d ranks\n"
                          "method          %s: %s\n"
                          "objective       %.12g\n"
                          "gradient norm   %.3g\n"
                          "iterations      %" PetscInt_FMT " with %" PetscInt_FMT
                          " evaluations and %" PetscInt_FMT " linear iterations, %.3g s\n",
                          static_cast<unsigned long long>(rows.file.rows),
                          ranks,
                          type,
                          TaoConvergedReasons[reason],
                          f,
                          gradient_norm,
                          iterations,
                          evaluations,
                          products,
                          seconds));
    PetscFunctionReturn(0);
}

PetscErrorCode run()
{
    PetscFunctionBeginUser;
    Options options;
    PetscCall(get_options(&options));
    PetscMPIInt rank = 0;
    PetscMPIInt ranks = 0;
    PetscCallMPI(MPI_Comm_rank(PETSC_COMM_WORLD, &rank));
    PetscCallMPI(MPI_Comm_size(PETSC_COMM_WORLD, &ranks));
    // The library's banner, and whatever else goes to standard output, once is enough.
    if (rank != 0 && !std::freopen("/dev/null", "w", stdout)) std::perror("/dev/null");

    Rows rows;
    std::unique_ptr<Network> network;
    together(PETSC_COMM_WORLD, [&] {
        if (options.data.empty() || options.net.empty())
            throw std::runtime_error("-vemkn_data and -vemkn_net are needed; -help says more");
        network = std::make_unique<Network>(
            options.net, static_cast<int>(options.threads), static_cast<int>(options.batch));
        rows = read_share(options.data, rank, ranks);
        network->check_width(rows.file.inputs, rows.file.outputs);
    });
    const bool least_squares = network->plain_residuals();

    Objective objective(PETSC_COMM_WORLD, *network, rows);
    Callbacks callbacks(objective);
    Tao tao = nullptr;
    TaoType type = nullptr;
    PetscCall(callbacks.create(PETSC_COMM_WORLD));
    PetscCall(start_weights(options, *network, callbacks.weights()));
    PetscCall(TaoCreate(PETSC_COMM_WORLD, &tao));
    PetscCall(set_method(tao, least_squares));
    PetscCall(TaoGetType(tao, &type));
    together(PETSC_COMM_WORLD, [&] { check_method(type, least_squares, rows); });
    if (least_squares)
        PetscCall(callbacks.attach_least_squares(tao));
    else
        PetscCall(callbacks.attach_objective(tao));

    if (least_squares && options.test_jacobian) {
        PetscBool product = PETSC_FALSE;
        PetscBool transposed = PETSC_FALSE;
        PetscCall(callbacks.test_jacobian(&product, &transposed));
        PetscCall(PetscPrintf(PETSC_COMM_WORLD,
                              "Jacobian        product %s, transposed product %s\n",
                              product ? "agrees" : "DIFFERS",
                              transposed ? "agrees" : "DIFFERS"));
    }
    const double begin = MPI_Wtime();
    PetscCall(TaoSolve(tao));
    PetscCall(report(tao, rows, MPI_Wtime() - begin));
    PetscCall(VecViewFromOptions(callbacks.weights(), nullptr, "-vemkn_view_weights"));
    PetscCall(TaoDestroy(&tao));
    PetscCall(callbacks.destroy());
    PetscFunctionReturn(0);
}

}  // namespace

int main(int argc, char** argv)
{
    PetscFunctionBeginUser;
    PetscCall(PetscInitialize(&argc, &argv, nullptr, help));
    int status = 0;
    try {
        PetscCall(run());
    } catch (const Ended&) {
        status = 2;
    }
    PetscCall(PetscFinalize());
    return status;
}
