// Writes one problem of the comparison for programs in other languages: raw doubles in the order of vemkn.h.
//
//     write_problem NET ACTIVATION DIRECTORY
//
// text.txt is the description of the network, w.f64 x.f64 y.f64 are weights, inputs and targets, and tangents.f64 are the
// numbers that serve as tangents or cotangents, as many as compare_cpp draws for 8 of them.

#include <algorithm>
#include <fstream>
#include <iostream>

#include "problem.h"

namespace {

void write(const std::string& path, const std::vector<double>& numbers)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(numbers.data()),
              static_cast<std::streamsize>(numbers.size() * sizeof(double)));
    if (!out.flush()) {
        std::cerr << "write_problem: cannot write " << path << '\n';
        std::exit(1);
    }
}

const bench::Shape& find_shape(const std::string& name)
{
    for (const bench::Shape& shape : bench::shapes()) {
        if (shape.name == name) return shape;
    }
    std::cerr << "write_problem: no network " << name << '\n';
    std::exit(2);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::cerr << "usage: write_problem NET ACTIVATION DIRECTORY\n";
        return 2;
    }
    const bench::Problem problem(find_shape(argv[1]), argv[2], "sum_log_dnorm_fat");
    const std::string directory = std::string(argv[3]) + '/';
    write(directory + "w.f64", problem.w);
    write(directory + "x.f64", problem.x);
    write(directory + "y.f64", problem.y);
    const std::size_t width = std::max<std::size_t>(problem.nw, problem.y.size());
    write(directory + "tangents.f64", bench::uniform(8 * width, 7));
    std::ofstream(directory + "text.txt") << problem.text << '\n';
    return 0;
}
