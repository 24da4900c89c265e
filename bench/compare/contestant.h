#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "problem.h"

// What the programs that are compared have in common: a question (a network, an activation, an operation), an answer,
// and a contestant that answers it as often as asked.

namespace compare {

enum class Operation { obj, g, Hv, Jv, vJ_vec };

// An operation as the tables name it, with its number of tangents or cotangents.
struct NamedOperation {
    const char* name;
    Operation kind;
    unsigned tangents;
};

inline const std::vector<NamedOperation>& operations()
{
    static const std::vector<NamedOperation> all = {
        {"obj", Operation::obj, 0},
        {"g", Operation::g, 0},
        {"Hv1", Operation::Hv, 1},
        {"Hv8", Operation::Hv, 8},
        {"Jv8", Operation::Jv, 8},
        {"vJ_vec8", Operation::vJ_vec, 8},
    };
    return all;
}

struct Question {
    const bench::Problem& problem;
    std::string activation;
    NamedOperation operation;
    std::vector<double> tangents;  // or cotangents, in the order of vemkn.h
};

// The arrays that the library's call for this operation writes, in the order and the layout of vemkn.h.
using Answer = std::vector<std::vector<double>>;

inline Answer blank_answer(const Question& q)
{
    const std::size_t nw = q.problem.nw, elements = q.problem.y.size(), N = q.operation.tangents;
    const auto zeros = [](std::size_t n) { return std::vector<double>(n); };
    switch (q.operation.kind) {
        case Operation::obj:
            return {zeros(1)};
        case Operation::g:
            return {zeros(1), zeros(nw)};
        case Operation::Hv:
            return {zeros(1), zeros(nw), zeros(nw * N)};
        case Operation::Jv:
            return {zeros(elements), zeros(elements * N)};
        case Operation::vJ_vec:
            return {zeros(elements), zeros(nw * N)};
    }
    return {};
}

class Contestant {
public:
    virtual ~Contestant() = default;
    // Writes every array of a blank answer.
    virtual void answer(Answer& answer) = 0;

    // How it was set up, for the log.
    virtual std::string setup() const { return ""; }
};

// Each prepares a contestant for one question: memory, block sizes. The question outlives the contestant.
std::unique_ptr<Contestant> make_library(const Question& question, unsigned threads, int batch);
std::unique_ptr<Contestant> make_hand_blas(const Question& question);
std::unique_ptr<Contestant> make_hand_eigen(const Question& question);
// Null for a question that would take it minutes.
std::unique_ptr<Contestant> make_adolc(const Question& question);

}  // namespace compare
