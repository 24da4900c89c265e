#ifndef VEMKN_TAO_TOGETHER_H
#define VEMKN_TAO_TOGETHER_H

#include <mpi.h>

#include <cstdio>
#include <exception>
#include <string>

namespace vemkn_tao {

/// Thrown on all ranks after one of them has reported what is wrong.
struct Ended {};

/** Runs `work` on every rank. If it threw on any of them, the first of these says why on standard
 * error and all ranks throw Ended: none is left waiting in the next collective call. */
template <class Work>
void together(MPI_Comm comm, Work&& work)
{
    std::string failure;
    try {
        work();
    } catch (const std::exception& error) {
        failure = error.what();
    }
    int rank = 0;
    int ranks = 0;
    MPI_Comm_rank(comm, &rank);
    MPI_Comm_size(comm, &ranks);
    const int mine = failure.empty() ? ranks : rank;
    int first = ranks;
    MPI_Allreduce(&mine, &first, 1, MPI_INT, MPI_MIN, comm);
    if (first == ranks) return;
    if (first == rank) std::fprintf(stderr, "vemkn-tao: rank %d: %s\n", rank, failure.c_str());
    throw Ended();
}

}  // namespace vemkn_tao

#endif
