// vemkn-tao-reduction: what the communication of one evaluation costs on the ranks that it is started on, for several
// numbers of weights. docs/scaling.md plans with it.

#include <mpi.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

/// Median over many calls of the time that the slowest rank took, in microseconds.
template <class Work>
double microseconds(int repeats, Work&& work)
{
    std::vector<double> times(static_cast<std::size_t>(repeats));
    for (double& time : times) {
        MPI_Barrier(MPI_COMM_WORLD);
        const double begin = MPI_Wtime();
        work();
        const double own = MPI_Wtime() - begin;
        MPI_Allreduce(&own, &time, 1, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
    }
    std::nth_element(times.begin(), times.begin() + repeats / 2, times.end());
    return 1e6 * times[static_cast<std::size_t>(repeats / 2)];
}

}  // namespace

int main(int argc, char** argv)
{
    MPI_Init(&argc, &argv);
    int ranks = 0;
    int rank = 0;
    MPI_Comm_size(MPI_COMM_WORLD, &ranks);
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    if (rank == 0)
        std::printf(
            "%d ranks, microseconds\n%8s %14s %14s\n", ranks, "nw", "reduce nw + 1", "gather nw");
    for (const int nw : {1, 33, 385, 4097, 32769, 262145}) {
        std::vector<double> sums(static_cast<std::size_t>(nw) + 1);
        std::vector<double> own(static_cast<std::size_t>(nw));
        std::vector<int> counts(static_cast<std::size_t>(ranks));
        std::vector<int> begins(static_cast<std::size_t>(ranks));
        for (int r = 0; r < ranks; ++r) {
            counts[static_cast<std::size_t>(r)] = nw / ranks + (r < nw % ranks ? 1 : 0);
            begins[static_cast<std::size_t>(r)] = r * (nw / ranks) + std::min(r, nw % ranks);
        }
        const int repeats = nw > 10000 ? 301 : 3001;
        const double reduce = microseconds(repeats, [&] {
            MPI_Allreduce(MPI_IN_PLACE, sums.data(), nw + 1, MPI_DOUBLE, MPI_SUM, MPI_COMM_WORLD);
        });
        const double gather = microseconds(repeats, [&] {
            MPI_Allgatherv(own.data(),
                           counts[static_cast<std::size_t>(rank)],
                           MPI_DOUBLE,
                           sums.data(),
                           counts.data(),
                           begins.data(),
                           MPI_DOUBLE,
                           MPI_COMM_WORLD);
        });
        if (rank == 0) std::printf("%8d %14.2f %14.2f\n", nw, reduce, gather);
    }
    MPI_Finalize();
}
