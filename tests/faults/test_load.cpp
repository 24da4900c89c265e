#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cfenv>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "support/child.h"
#include "support/fp_state.h"
#include "support/numbers.h"
#include "support/process_status.h"
#include "vemkn.h"

// A host that loads the library when it needs it. This program is not linked with it.

namespace {

class Library {
public:
    Library() : handle_(dlopen(VEMKN_LIBRARY, RTLD_NOW | RTLD_LOCAL))
    {
        if (handle_ == nullptr) throw std::runtime_error(dlerror());
    }

    ~Library() { dlclose(handle_); }

    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    template <class Function>
    Function* function(const char* name) const
    {
        void* const address = dlsym(handle_, name);
        if (address == nullptr) throw std::runtime_error(name);
        return reinterpret_cast<Function*>(address);
    }

private:
    void* handle_;
};

// A network of the library, and a gradient of 40 rows on three threads.
class LoadedNetwork {
public:
    explicit LoadedNetwork(const Library& library) : library_(library)
    {
        const std::string text = "2 1 2 1 8 2 3 softplus sum_log_dnorm_fat";
        net_ = library_.function<decltype(initVEMKNet)>("initVEMKNet")(
            text.data(), static_cast<int>(text.size()));
        library_.function<decltype(vemk_setpar)>("vemk_setpar")(net_, 3, 4);
    }

    ~LoadedNetwork() { library_.function<decltype(releaseVEMKNet)>("releaseVEMKNet")(net_); }

    LoadedNetwork(const LoadedNetwork&) = delete;
    LoadedNetwork& operator=(const LoadedNetwork&) = delete;

    void be_quiet() { library_.function<decltype(vemk_quiet)>("vemk_quiet")(net_, 1); }

    bool gives_a_gradient() const
    {
        Random random(1);
        const Numbers w = random.list(13), x = random.list(80), y = random.list(40);
        double value = -1;
        Numbers gradient(13);
        const int status = library_.function<decltype(vemk_g)>("vemk_g")(
            net_, w.data(), 13, x.data(), y.data(), 40, 2, 1, &value, gradient.data());
        return status == 0 && value > 0 && gradient[0] != 0;
    }

private:
    const Library& library_;
    VEMKNInfo* net_;
};

}  // namespace

SCENE(loads_calls_and_unloads)
{
    constexpr int ROUNDS = 1000, SETTLED = 50;
    long threads = 0, kilobytes = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        {
            const Library library;
            if (!LoadedNetwork(library).gives_a_gradient())
                std::cout << "round " << round << " failed\n";
        }
        if (round != SETTLED) continue;
        threads = status_number("Threads:");
        kilobytes = status_number("VmRSS:");
    }
    std::cout << "\ngrew " << status_number("Threads:") - threads << " "
              << status_number("VmRSS:") - kilobytes << std::endl;
}

TEST(LoadFault, LoadCallAndUnloadAThousandTimes_ThreadCountAndMemoryFlat)
{
    const child::Outcome outcome = child::play("loads_calls_and_unloads");
    ASSERT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ(std::string::npos, outcome.out.find("failed")) << outcome.out;
    long threads = 1, kilobytes = 1;
    std::istringstream(outcome.out.substr(outcome.out.find("\ngrew ") + 6)) >> threads >> kilobytes;
    EXPECT_EQ(0, threads);
#if !defined(VEMKN_SANITIZED)  // AddressSanitizer keeps what was freed for a while
    // A tenth of a page for each round.
    EXPECT_LE(kilobytes, 400);
#endif
}

SCENE(looks_at_its_environment_around_a_load)
{
    const FpState before = FpState::now();
    {
        const Library library;
        if (!(before == FpState::now())) std::cout << "changed by dlopen\n";
    }
    if (!(before == FpState::now())) std::cout << "changed by dlclose\n";
    // Other than at the start: round up, flush to zero, precision of double in the x87 unit.
    std::fesetround(FE_UPWARD);
    flush_subnormals(true);
    const FpState odd = FpState::now();
    const Library library;
    if (!(odd == FpState::now())) std::cout << "changed by a second dlopen\n";
    std::fesetenv(FE_DFL_ENV);

    LoadedNetwork net(library);
    for (const bool quiet : {false, true}) {
        if (quiet) net.be_quiet();
        feenableexcept(FE_DIVBYZERO | FE_UNDERFLOW);
        const int armed = fegetexcept();  // none where the processor has none
        if (!net.gives_a_gradient()) std::cout << "no gradient\n";
        const int traps = fegetexcept();
        fedisableexcept(FE_ALL_EXCEPT);
        const int expected = quiet ? armed : armed & FE_UNDERFLOW;
        if (traps != expected) std::cout << "traps after a call: " << traps << "\n";
    }
    std::cout << "done" << std::endl;
}

TEST(EnvironmentFault, FloatingPointEnvironmentAroundALoad_Unchanged_AndTheThreeTrapsOffAfterACall)
{
    const child::Outcome outcome = child::play("looks_at_its_environment_around_a_load");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
    EXPECT_EQ("VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\ndone\n", outcome.out);
}
