#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "support/all_entries.h"
#include "support/child.h"
#include "support/fp_state.h"

// SIGFPE out of a call, whether the processor's traps raise it or the library, which found the flags: whatever the host has done
// about the signal, nothing is written.

namespace {

// As it lies in a file that outlives the process: the results of a call.
class Shared {
public:
    explicit Shared(const char* path)
        : file_(open(path, O_RDWR | O_CREAT | O_TRUNC, 0600)),
          numbers_(ftruncate(file_, BYTES) == 0
                       ? static_cast<double*>(
                             mmap(nullptr, BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0))
                       : nullptr)
    {
        std::fill_n(numbers_, COUNT, UNTOUCHED);
    }

    double* numbers() const { return numbers_; }

    static bool is_untouched(const char* path)
    {
        std::FILE* const file = std::fopen(path, "rb");
        if (file == nullptr) return false;
        Numbers found(COUNT);
        const std::size_t n = std::fread(found.data(), sizeof(double), COUNT, file);
        std::fclose(file);
        return n == COUNT && found == Numbers(COUNT, UNTOUCHED);
    }

private:
    static constexpr std::size_t COUNT = 20'000, BYTES = COUNT * sizeof(double);
    static constexpr double UNTOUCHED = -5.0;

    int file_;
    double* numbers_;
};

// In every row a sum of a bias and a product overflows, and so does the likelihood of every target.
Request overflowing()
{
    Request q = random_request(usual_network(), 2000, 5, 2, 1);
    q.batch.w.assign(q.batch.w.size(), 1.5e308);
    q.batch.x.assign(q.batch.x.size(), 1.0);
    q.batch.y.assign(q.batch.y.size(), 1e200);
    return q;
}

volatile std::sig_atomic_t came = 0;

void count_and_return(int)
{
    came = came + 1;
    const char text[] = "handled\n";
    [[maybe_unused]] const auto written = write(STDERR_FILENO, text, sizeof text - 1);
}

void prepare(const std::string& way)
{
    if (way == "ignored") std::signal(SIGFPE, SIG_IGN);
    if (way == "returns") std::signal(SIGFPE, count_and_return);
    if (way == "blocked") {
        sigset_t only;
        sigemptyset(&only);
        sigaddset(&only, SIGFPE);
        pthread_sigmask(SIG_BLOCK, &only, nullptr);
    }
}

}  // namespace

// entry, what the host does about the signal, threads, file of the results
SCENE(overflows_into_a_file)
{
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    const Shared results(arguments.at(3).c_str());
    const Network net(usual_network().text());
    vemk_setpar(net, static_cast<unsigned>(std::stoul(arguments.at(2))), 100);
    const Request q = overflowing();
    Call c = AnyEntry::call_for(q);
    prepare(arguments.at(1));
    run_into(any_entry_named(arguments.at(0)), net, c, results.numbers());
    std::cout << "the call has returned\n";
}

namespace {

class Sigfpe : public testing::TestWithParam<AnyEntry> {
protected:
    std::string path_ =
        testing::TempDir() + "vemkn_sigfpe_" + GetParam().name + "_" + std::to_string(getpid());

    child::Outcome play(const std::string& way, const std::string& threads) const
    {
        return child::play("overflows_into_a_file",
                           {GetParam().name, way, threads, path_},
                           {.environment = {{"NN_TRACE", "1"}}});
    }

    void TearDown() override { std::remove(path_.c_str()); }
};

}  // namespace

TEST_P(Sigfpe, EndsTheProcessBeforeAnythingIsWritten)
{
    std::vector<std::string> ways{"as it was", "ignored", "blocked"};
    // Where a trap is the processor's, the operation traps again as soon as the handler has returned.
    if (traps_of_a_call() == 0) ways.push_back("returns");
    for (const std::string& way : ways) {
        for (const char* threads : {"1", "2"}) {
            const child::Outcome outcome = play(way, threads);
            EXPECT_TRUE(outcome.killed_by(SIGFPE)) << way << ": " << outcome.description();
            EXPECT_TRUE(Shared::is_untouched(path_.c_str())) << way;
            EXPECT_EQ("VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\n", outcome.out)
                << way;
            // Each thread that finds something raises.
            const bool handled = outcome.err == "handled\n" || outcome.err == "handled\nhandled\n";
            EXPECT_TRUE(way == "returns" ? handled : outcome.err.empty()) << outcome.description();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Entries, Sigfpe, testing::ValuesIn(ALL_ENTRIES), [](const auto& instance) {
    return std::string(instance.param.name);
});

namespace {

sigjmp_buf before_the_call;

void jump(int)
{
    siglongjmp(before_the_call, 1);
}

}  // namespace

// A quiet call afterwards, on the same thread, raises nothing, and the flags are the host's own.
SCENE(jumps_and_goes_on_quietly)
{
    const Network loud(usual_network().text()), quiet(usual_network().text());
    vemk_quiet(quiet, 1);
    const Request q = overflowing();
    const AnyEntry& entry = any_entry_named("vemk_g");
    std::signal(SIGFPE, jump);
    if (sigsetjmp(before_the_call, 1) == 0) {
        entry.run(loud, q);
        std::cout << "no signal\n";
    }
    if (std::fetestexcept(LIBRARY_TRAPS) != 0) std::cout << "flags are left\n";
    std::signal(SIGFPE, SIG_DFL);
    std::cout << "status " << entry.run(quiet, q).status << std::endl;
    std::feraiseexcept(LIBRARY_TRAPS);
    entry.run(quiet, q);
    if (std::fetestexcept(LIBRARY_TRAPS) != LIBRARY_TRAPS) std::cout << "flags are lost\n";
    std::cout << "done" << std::endl;
    // Where a sanitizer looks on, the call that was left keeps its memory.
    std::_Exit(0);
}

TEST(SigfpeLeftByAJump, IsFollowedByQuietCalls)
{
    const child::Outcome outcome = child::play("jumps_and_goes_on_quietly");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\nstatus 1\ndone\n",
              outcome.out);
}
