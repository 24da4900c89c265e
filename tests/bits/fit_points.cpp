#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "vemkn.h"

// Prints the bits of the objective and the gradient at the weight vectors that bits/record_fit.cpp has recorded:
//     fit_points RECORD

namespace {

using Numbers = std::vector<double>;

Numbers read_line(std::istream& in)
{
    std::string line, word;
    std::getline(in, line);
    std::istringstream words(line);
    Numbers numbers;
    while (words >> word) numbers.push_back(std::stod(word));
    return numbers;
}

}  // namespace

int main(int argc, char** argv)
{
    std::ifstream in(argc == 2 ? argv[1] : "");
    std::string text, sizes;
    unsigned rows = 0, xcols = 0, ycols = 0, points = 0;
    std::getline(in, text);
    std::getline(in, sizes);
    std::istringstream(sizes) >> rows >> xcols >> ycols >> points;
    const Numbers x = read_line(in), y = read_line(in);
    if (!in || points == 0) {
        std::fprintf(stderr, "usage: fit_points RECORD\n");
        return 2;
    }
    VEMKNInfo* const net = initVEMKNet(text.data(), static_cast<int>(text.size()));
    const auto nw = static_cast<unsigned>(vemk_numel(net));
    vemk_setpar(net, 2, 32);
    vemk_quiet(net, 1);
    for (unsigned i = 0; i < points; ++i) {
        const Numbers w = read_line(in);
        if (w.size() != nw) {
            std::fprintf(stderr, "point %u has %zu weights\n", i, w.size());
            return 2;
        }
        double value = 0.0, objective = 0.0;
        Numbers gradient(nw);
        vemk_obj(net, w.data(), nw, x.data(), y.data(), rows, xcols, ycols, &objective);
        vemk_g(net, w.data(), nw, x.data(), y.data(), rows, xcols, ycols, &value, gradient.data());
        std::printf("%a %a", objective, value);
        for (const double g : gradient) std::printf(" %a", g);
        std::printf("\n");
    }
    releaseVEMKNet(net);
    return 0;
}
