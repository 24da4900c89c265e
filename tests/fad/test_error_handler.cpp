#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cfenv>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <string>
#include <typeinfo>

#include "support/child.h"
#include "support/fp_state.h"
#include "vemkn.h"
#include "vemkn_errors.h"

// How a host outside the library hears of a division by zero: from the shared library, with nothing but the installed
// headers.

namespace {

constexpr const char* TEXT = "2 1 2 1 8 2 3 softplus sum";
// 2*3 + 3 + 3*1 + 1
constexpr unsigned NW = 13;

constexpr const char* AT_ZERO =
    "ad.h:269: POLE_DIVISION_C: non differentiable function division at point (0, 0)\n";
constexpr const char* AT_ONE =
    "ad.h:269: POLE_DIVISION_C: non differentiable function division at point (1, 0)\n";
constexpr const char* BANNER = "VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\n";

// Straight to the descriptor: what a stream buffers is lost when a signal ends the process.
void say(const std::string& text)
{
    [[maybe_unused]] const ssize_t n = write(STDERR_FILENO, text.data(), text.size());
}

// One for the whole process, never released: some of these processes end in the middle of a call.
VEMKNInfo* network()
{
    static VEMKNInfo* const net = initVEMKNet(TEXT, static_cast<int>(std::strlen(TEXT)));
    return net;
}

int empty_Hv(VEMKNInfo* net,
             double* value = nullptr,
             double* gradient = nullptr,
             double* hv = nullptr)
{
    return vemk_Hv(net, nullptr, NW, nullptr, 2, nullptr, nullptr, 0, 2, 1, value, gradient, hv);
}

int empty_Jv(VEMKNInfo* net)
{
    return vemk_Jv(net, nullptr, NW, nullptr, 2, nullptr, nullptr, 0, 2, 1, nullptr, nullptr);
}

// Writes every message with a mark of its own.
struct Teller : yafad::ErrorHandler {
    void report(yafad::Error& error) override
    {
        const bool as_documented =
            error.file == "ad.h" && error.line == 269 && error.category == 12;
        say((as_documented ? "report: " : "wrong report: ") + error.message + "\n");
    }
};

}  // namespace

TEST(GetHandler, IsNullUntilAHostInstallsOne)
{
    EXPECT_EQ(nullptr, yafad::ErrorHandler::getHandler());
    ASSERT_NE(nullptr, network());
    EXPECT_EQ(nullptr, yafad::ErrorHandler::getHandler());
}

TEST(GetHandler, IsThePointerThatTheLibraryExports)
{
    // Looked up in the library itself, not in this program.
    void* const library = dlopen("libvemkn.so.1", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(nullptr, library);
    void* const exported =
        dlsym(library, "_ZZN5yafad12ErrorHandler10getHandlerEvE19currentErrorHandler");
    EXPECT_NE(nullptr, exported);
    EXPECT_EQ(exported, static_cast<void*>(&yafad::ErrorHandler::getHandler()));
    dlclose(library);
}

SCENE(empty_Hv_tells_the_handler)
{
    Teller teller;
    yafad::ErrorHandler::getHandler() = &teller;
    empty_Hv(network());
    say("came back\n");
}

TEST(EmptyHv, TellsTheHandlerOnceAndThenRaisesSigfpe)
{
    const child::Outcome outcome = child::play("empty_Hv_tells_the_handler");
    EXPECT_TRUE(outcome.killed_by(SIGFPE)) << outcome.description();
    // The first division is that of the objective, 0/0, and the armed trap ends the process at it.
    EXPECT_EQ(std::string("report: ") + AT_ZERO, outcome.err);
}

SCENE(empty_Hv_without_a_handler)
{
    empty_Hv(network());
    say("came back\n");
}

TEST(EmptyHv, WithoutAHandlerWritesTheMessageAndThenRaisesSigfpe)
{
    const child::Outcome outcome = child::play("empty_Hv_without_a_handler");
    EXPECT_TRUE(outcome.killed_by(SIGFPE)) << outcome.description();
    EXPECT_EQ(AT_ZERO, outcome.err);
}

SCENE(empty_Hv_and_a_handler_that_ends_the_process)
{
    struct Leaver : yafad::ErrorHandler {
        void report(yafad::Error&) override { _exit(42); }
    } leaver;

    yafad::ErrorHandler::getHandler() = &leaver;
    empty_Hv(network());
}

TEST(EmptyHv, LetsTheHandlerEndTheProcessInItsOwnWay)
{
    const child::Outcome outcome = child::play("empty_Hv_and_a_handler_that_ends_the_process");
    EXPECT_TRUE(outcome.exited_with(42)) << outcome.description();
}

SCENE(empty_Hv_and_a_handler_that_disarms_the_traps)
{
    struct Disarmer : Teller {
        void report(yafad::Error& error) override
        {
            Teller::report(error);
            fedisableexcept(FE_ALL_EXCEPT);
        }
    } disarmer;

    yafad::ErrorHandler::getHandler() = &disarmer;
    double value = 1.0, gradient[NW], hv[2 * NW];
    for (double& g : gradient) g = 1.0;
    for (double& h : hv) h = 1.0;
    const int result = empty_Hv(network(), &value, gradient, hv);
    bool zeros = true;
    for (const double g : gradient) zeros = zeros && g == 0.0;
    for (const double h : hv) zeros = zeros && h == 0.0;
    say(result == 0 && value != value && zeros ? "came back\n" : "came back wrongly\n");
}

TEST(EmptyHv, TellsTheHandlerOfBothDivisionsAndReturnsIfTheHandlerDisarmsTheTraps)
{
    const child::Outcome outcome = child::play("empty_Hv_and_a_handler_that_disarms_the_traps");
    if (traps_of_a_call() == 0) {
        // There was nothing to disarm.
        EXPECT_TRUE(outcome.killed_by(SIGFPE)) << outcome.description();
        EXPECT_EQ(std::string("report: ") + AT_ZERO, outcome.err);
        return;
    }
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    // The objective and the seed of the sweep are divided by the number of elements.
    EXPECT_EQ(std::string("report: ") + AT_ZERO + "report: " + AT_ONE + "came back\n", outcome.err);
}

namespace {

// Keeps the reports, for a scope.
struct Recorder : yafad::ErrorHandler {
    std::string reports;

    Recorder() { getHandler() = this; }

    ~Recorder() override { getHandler() = nullptr; }

    void report(yafad::Error& error) override
    {
        reports += error.message;
        reports += '\n';
    }
};

}  // namespace

TEST(EmptyHv, OfAQuietHandleTellsTheHandlerTwiceAndGivesNan)
{
    VEMKNInfo* const net = network();
    vemk_quiet(net, 1);
    const Recorder recorder;
    double value = 1.0, gradient[NW], hv[2 * NW];
    EXPECT_EQ(1, empty_Hv(net, &value, gradient, hv));
    EXPECT_EQ(std::string(AT_ZERO) + AT_ONE, recorder.reports);
    EXPECT_TRUE(std::isnan(value));
    for (const double g : gradient) EXPECT_EQ(0.0, g);
    for (const double h : hv) EXPECT_EQ(0.0, h);
    vemk_quiet(net, 0);
}

SCENE(empty_Jv)
{
    Teller teller;
    yafad::ErrorHandler::getHandler() = &teller;
    say(empty_Jv(network()) == 0 ? "came back\n" : "was refused\n");
}

TEST(EmptyJv, DividesByNothingWithoutATrace)
{
    const child::Outcome outcome = child::play("empty_Jv");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("came back\n", outcome.err);
    EXPECT_EQ(BANNER, outcome.out);
}

TEST(EmptyJv, WithATraceTellsTheHandlerOnceAndThenRaisesSigfpe)
{
    for (const char* value : {"", "1"}) {
        const child::Outcome outcome = child::play("empty_Jv", {}, {{{"NN_TRACE", value}}});
        EXPECT_TRUE(outcome.killed_by(SIGFPE)) << outcome.description();
        EXPECT_EQ(std::string("report: ") + AT_ZERO, outcome.err);
    }
}

SCENE(empty_vJ)
{
    Teller teller;
    yafad::ErrorHandler::getHandler() = &teller;
    double gradient[NW];
    const bool vec = !arguments.empty();
    const int result =
        vec ? vemk_vJ_vec(
                  network(), nullptr, NW, nullptr, 1, nullptr, nullptr, 0, 2, 1, nullptr, gradient)
            : vemk_vJ(
                  network(), nullptr, NW, nullptr, 0, nullptr, nullptr, 0, 2, 1, nullptr, gradient);
    bool zeros = result == 0;
    for (const double g : gradient) zeros = zeros && g == 0.0;
    say(zeros ? "came back\n" : "came back wrongly\n");
}

TEST(EmptyVJ, GivesAZeroGradientWithoutATrace)
{
    for (const child::Arguments& arguments : {child::Arguments{}, child::Arguments{"vec"}}) {
        const child::Outcome outcome = child::play("empty_vJ", arguments);
        EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
        EXPECT_EQ("came back\n", outcome.err);
    }
}

TEST(EmptyVJ, WithATraceRaisesSigfpeAndTellsNobody)
{
    // A division of doubles, which nobody watches.
    for (const child::Arguments& arguments : {child::Arguments{}, child::Arguments{"vec"}}) {
        const child::Outcome outcome = child::play("empty_vJ", arguments, {{{"NN_TRACE", ""}}});
        EXPECT_TRUE(outcome.killed_by(SIGFPE)) << outcome.description();
        EXPECT_EQ("", outcome.err);
    }
}

namespace {

// A handler and its reports as a compiler lays them out, made by hand: hosts in other languages build on this.
struct RawCarrier {
    std::uint64_t N;
    double value;
    std::size_t length;
    double* derivatives;
};

struct RawError {
    void** operations;
    std::string file;
    std::int32_t line;
    std::int32_t category;
    std::string message;
    RawCarrier* result;
    RawCarrier* left;
    RawCarrier* right;
};

struct RawHandler {
    const void* const* operations;
};

void destroyed(void*, RawError*)
{
    say("destroyed\n");
}

void reported(void*, RawError* error)
{
    const bool as_documented =
        error->file == "ad.h" && error->line == 269 && error->category == 12 &&
        error->result == error->left && error->left->N == 2 && error->left->value == 0.0 &&
        error->left->length == 2 && error->right->N == 2 && error->right->value == 0.0 &&
        error->right->length == 2 && error->right->derivatives[1] == 0.0;
    say((as_documented ? "raw: " : "raw and wrong: ") + error->message + "\n");
    _exit(0);
}

}  // namespace

SCENE(hand_made_handler)
{
    // Before a table of operations stand its distance to the top of the object and its type; the latter is for
    // sanitizers only.
    const void* const table[] = {nullptr,
                                 &typeid(yafad::ErrorHandler),
                                 reinterpret_cast<const void*>(destroyed),
                                 reinterpret_cast<const void*>(destroyed),
                                 reinterpret_cast<const void*>(reported)};
    RawHandler handler = {table + 2};
    void* const library = dlopen("libvemkn.so.1", RTLD_NOW | RTLD_NOLOAD);
    void* const pointer =
        dlsym(library, "_ZZN5yafad12ErrorHandler10getHandlerEvE19currentErrorHandler");
    if (*static_cast<RawHandler**>(pointer) != nullptr) say("not null\n");
    *static_cast<RawHandler**>(pointer) = &handler;
    empty_Hv(network());
}

TEST(ErrorHandler, ReportsThroughItsThirdVirtualOperation)
{
    const child::Outcome outcome = child::play("hand_made_handler");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ(std::string("raw: ") + AT_ZERO, outcome.err);
}

SCENE(hand_made_error_destruction)
{
    // An error's own table holds its two destructors, first the one that frees nothing.
    auto* const error = new yafad::Error("file", 1, 2, "message");
    void** const operations = *reinterpret_cast<void***>(error);
    reinterpret_cast<void (*)(void*)>(operations[1])(error);
    say("freed\n");
}

TEST(ErrorHandler, GetsAnErrorWhoseTableHoldsTheTwoDestructors)
{
    const child::Outcome outcome = child::play("hand_made_error_destruction");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("freed\n", outcome.err);
}
