#include <stdio.h>
#include <string.h>
#include <vemkn.h>

int main(void) {
    /* guide: */
    const char* text = "1 1 2 1 32 1 1 softplus sum_log_dnorm_fat";
    VEMKNInfo* net = initVEMKNet(text, (int)strlen(text));
    const double y[] = {-1, -1, -1}; /* out of reach of softplus */
    double w[4] = {0}, gradient[4], value, out[3];

    for (int step = 0; step <= 10000; ++step) {
        if (vemk_g(net, w, 4, NULL, y, 3, 1, 1, &value, gradient) != 0) return 1;
        if (step == 10 || step == 100 || step == 1000 || step == 10000) {
            vemk_compute(net, w, 4, NULL, 3, 1, 0, out);
            printf("step %5d: output %.4f, last bias %6.2f, objective %.3f\n", step, out[0], w[2], value);
        }
        for (int k = 0; k < 4; ++k) w[k] -= 0.1 * gradient[k];
    }
    /* :guide */
    releaseVEMKNet(net);
    return 0;
}
