// Times calls on request, for scripts/same-speed: reads "entry network activation threads" from standard input, a line each time, and
// prints the seconds of one call.

#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <tuple>

#include "entries.h"

namespace {

struct Case {
    const bench::Entry* entry;
    std::unique_ptr<bench::Problem> problem;
    std::vector<double> in, out;

    double seconds(unsigned calls)
    {
        using Clock = std::chrono::steady_clock;
        const auto start = Clock::now();
        for (unsigned i = 0; i < calls; ++i) entry->call(*problem, entry->tangents, in, out);
        return std::chrono::duration<double>(Clock::now() - start).count();
    }
};

Case make_case(const std::string& entry_name,
               const std::string& network,
               const std::string& activation)
{
    Case c;
    for (const bench::Entry& entry : bench::entries()) {
        if (entry_name == entry.name) c.entry = &entry;
    }
    for (const bench::Shape& shape : bench::shapes()) {
        if (network != shape.name) continue;
        c.problem = std::make_unique<bench::Problem>(shape, activation, "sum_log_dnorm_fat");
    }
    c.in = bench::numbers_in(*c.problem, c.entry->tangents);
    c.out = bench::numbers_out(*c.problem, c.entry->tangents);
    c.seconds(1);
    return c;
}

}  // namespace

int main()
{
    constexpr double LEAST_SECONDS = 0.005, WARM_SECONDS = 0.01;
    std::map<std::tuple<std::string, std::string, std::string>, Case> cases;
    std::string entry, network, activation;
    unsigned threads = 1;
    while (std::cin >> entry >> network >> activation >> threads) {
        const auto [found, is_new] = cases.try_emplace({entry, network, activation});
        Case& c = found->second;
        if (is_new) c = make_case(entry, network, activation);
        vemk_setpar(c.problem->net, threads, 32);
        // A team that has rested takes a while to be at its processors again.
        for (double warm = 0.0; threads > 1 && warm < WARM_SECONDS;) warm += c.seconds(1);
        const auto calls =
            static_cast<unsigned>(1 + (threads > 1 ? 2 : 1) * LEAST_SECONDS / c.seconds(1));
        std::cout << "seconds " << c.seconds(calls) / calls << std::endl;
    }
    return 0;
}
