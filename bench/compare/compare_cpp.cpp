// The library beside hand-written programs and a tool for automatic differentiation, in one process: see README.md.
//
//     compare_cpp [--only library,library2,hand_blas,hand_eigen,adolc] [--nets 2-5-1,...] [--ops obj,g,...]
//                 [--activations softplus,atan,relu] [--rounds 7] [--round-seconds 0.02] [--batch 32]
//
// One line on standard output for each time, tab-separated:
//
//     network  activation  operation  contestant  median seconds of a call  smallest  largest
//
// compare_cpp --core prints OpenBLAS's name for this processor and nothing else. With --verbose a line that begins with
// # says how a hand-written program was set up. Exit status 1: a contestant's numbers differ from the library's.

#include <cblas.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "contestant.h"

namespace {

using namespace compare;
using Words = std::vector<std::string>;

struct Options {
    Words only = {"library", "hand_blas", "hand_eigen"};
    Words nets, ops, activations = {"softplus", "atan", "relu"};
    int rounds = 7;
    double round_seconds = 0.02;
    int batch = 32;
    bool verbose = false;
};

Words split(const std::string& list)
{
    Words words;
    std::istringstream in(list);
    for (std::string word; std::getline(in, word, ',');) words.push_back(word);
    return words;
}

Options read_options(int argc, char** argv)
{
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "--verbose") {
            o.verbose = true;
            continue;
        }
        if (name == "--core") {
            std::puts(openblas_get_corename());
            std::exit(0);
        }
        if (i + 1 == argc) {
            std::cerr << "compare_cpp: " << name << " needs a value\n";
            std::exit(2);
        }
        const std::string value = argv[++i];
        if (name == "--only")
            o.only = split(value);
        else if (name == "--nets")
            o.nets = split(value);
        else if (name == "--ops")
            o.ops = split(value);
        else if (name == "--activations")
            o.activations = split(value);
        else if (name == "--rounds")
            o.rounds = std::stoi(value);
        else if (name == "--round-seconds")
            o.round_seconds = std::stod(value);
        else if (name == "--batch")
            o.batch = std::stoi(value);
        else {
            std::cerr << "compare_cpp: unknown option " << name << '\n';
            std::exit(2);
        }
    }
    return o;
}

bool wanted(const Words& words, const std::string& word)
{
    return words.empty() || std::find(words.begin(), words.end(), word) != words.end();
}

std::unique_ptr<Contestant> make(const std::string& name, const Question& q, int batch)
{
    if (name == "library") return make_library(q, 1, batch);
    if (name == "library2") return make_library(q, 2, batch);
    if (name == "hand_blas") return make_hand_blas(q);
    if (name == "hand_eigen") return make_hand_eigen(q);
    if (name == "adolc") return make_adolc(q);
    std::cerr << "compare_cpp: unknown contestant " << name << '\n';
    std::exit(2);
}

// The largest difference of two arrays over the largest entry of the first.
double difference(const std::vector<double>& expected, const std::vector<double>& got)
{
    double largest = 0.0, off = 0.0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (!std::isfinite(got[i])) return INFINITY;
        largest = std::max(largest, std::fabs(expected[i]));
        off = std::max(off, std::fabs(expected[i] - got[i]));
    }
    return off / std::max(largest, 1e-300);
}

constexpr double TOLERANCE = 1e-10;

void check(const Question& q,
           const std::string& name,
           const Answer& expected,
           Contestant& contestant)
{
    Answer got = blank_answer(q);
    for (std::vector<double>& part : got) std::fill(part.begin(), part.end(), NAN);
    // The second call must not add to the first.
    for (int call = 0; call < 2; ++call) contestant.answer(got);
    for (std::size_t part = 0; part < expected.size(); ++part) {
        const double off = difference(expected[part], got[part]);
        if (off <= TOLERANCE) continue;
        std::cerr << name << ", " << q.problem.shape.name << ' ' << q.activation << ' '
                  << q.operation.name << ": part " << part << " is off by " << off << '\n';
        std::exit(1);
    }
}

struct Entrant {
    std::string name;
    std::unique_ptr<Contestant> contestant;
    std::vector<double> seconds;
};

double seconds_of_a_call(Contestant& contestant, Answer& answer, int calls)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    for (int i = 0; i < calls; ++i) contestant.answer(answer);
    return std::chrono::duration<double>(Clock::now() - start).count() / calls;
}

// Contestants take turns, each for as many calls as fit into a turn; who begins changes from round to round. One whose call
// takes longer than a second has had its turn with the first.
void take_turns(std::vector<Entrant>& entrants, const Options& o, Answer& scratch)
{
    std::vector<int> calls;
    for (Entrant& e : entrants) {
        const double once = seconds_of_a_call(*e.contestant, scratch, 1);
        calls.push_back(std::clamp(static_cast<int>(o.round_seconds / once), 1, 20000));
        if (once > 1.0) e.seconds.push_back(once);
    }
    for (int round = 0; round < o.rounds; ++round) {
        for (std::size_t turn = 0; turn < entrants.size(); ++turn) {
            const std::size_t i = (turn + static_cast<std::size_t>(round)) % entrants.size();
            if (entrants[i].seconds.size() == 1 && entrants[i].seconds[0] > 1.0) continue;
            entrants[i].seconds.push_back(
                seconds_of_a_call(*entrants[i].contestant, scratch, calls[i]));
        }
    }
}

void compare_on(const Question& q, const Options& o)
{
    Answer expected = blank_answer(q), scratch = blank_answer(q);
    make_library(q, 1, o.batch)->answer(expected);
    std::vector<Entrant> entrants;
    for (const std::string& name : o.only) {
        std::unique_ptr<Contestant> contestant = make(name, q, o.batch);
        if (!contestant) continue;
        entrants.push_back({name, std::move(contestant), {}});
        check(q, name, expected, *entrants.back().contestant);
    }
    take_turns(entrants, o, scratch);
    for (Entrant& e : entrants) {
        std::sort(e.seconds.begin(), e.seconds.end());
        std::printf("%s\t%s\t%s\t%s\t%.4g\t%.4g\t%.4g\n",
                    q.problem.shape.name,
                    q.activation.c_str(),
                    q.operation.name,
                    e.name.c_str(),
                    e.seconds[e.seconds.size() / 2],
                    e.seconds.front(),
                    e.seconds.back());
        if (o.verbose && !e.contestant->setup().empty()) {
            std::printf("# %s: %s\n", e.name.c_str(), e.contestant->setup().c_str());
        }
    }
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv)
{
    const Options o = read_options(argc, argv);
    openblas_set_num_threads(1);
    for (const bench::Shape& shape : bench::shapes()) {
        if (!wanted(o.nets, shape.name)) continue;
        for (const std::string& activation : o.activations) {
            const bench::Problem problem(shape, activation, "sum_log_dnorm_fat");
            for (const NamedOperation& operation : operations()) {
                if (!wanted(o.ops, operation.name)) continue;
                const std::size_t width = std::max<std::size_t>(problem.nw, problem.y.size());
                compare_on(
                    {problem, activation, operation, bench::uniform(operation.tangents * width, 7)},
                    o);
            }
        }
    }
    return 0;
}
