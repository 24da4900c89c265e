#include <cmath>
#include <cstdio>
#include <string>

#include <vemkn.h>
#include <vemkn_errors.h>

// guide:
struct Listener : yafad::ErrorHandler {
    void report(yafad::Error& error) override { std::printf("report: %s\n", error.message.c_str()); }
} listener;

int main() {
    yafad::ErrorHandler::getHandler() = &listener;
    const std::string text = "1 1 2 1 32 1 1 softplus sum_log_dnorm_fat";
    VEMKNInfo* net = initVEMKNet(text.data(), static_cast<int>(text.size()));
    vemk_quiet(net, 1);  // else the division raises SIGFPE as soon as the handler returns

    const double w[4] = {}, v[4] = {1, 1, 1, 1};
    double value, gradient[4], hv[4];
    const int said = vemk_Hv(net, w, 4, v, 1, nullptr, nullptr, 0, 1, 1, &value, gradient, hv);
    std::printf("no rows: returned %d, the mean is%s a number\n", said, std::isnan(value) ? " not" : "");
    releaseVEMKNet(net);
}
// :guide
