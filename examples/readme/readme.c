/* Fits nine points, one of them far off, by gradient descent. */
#include <stdio.h>
#include <string.h>
#include <vemkn.h>

int main(void) {
    const char *text = "1 1 2 1 32 1 4 softplus sum_log_dnorm_fat"; /* 1 input, 4 units, 1 output */
    const double x[] = {-2.0, -1.5, -1.0, -0.5, 0.0, 0.5, 1.0, 1.5, 2.0};
    const double y[] = {2.1, 1.4, 1.1, 0.8, 0.7, 0.9, 40.0, 1.5, 2.0};
    double w[13], gradient[13], value; /* 13 = vemk_numel(net) */

    VEMKNInfo *net = initVEMKNet(text, (int)strlen(text));
    for (int k = 0; k < 13; ++k) w[k] = 0.3 * (k % 4) - 0.4;
    for (int step = 0; step <= 2000; ++step) {
        if (vemk_g(net, w, 13, x, y, 9, 1, 1, &value, gradient) != 0) return 1;
        if (step % 1000 == 0) printf("step %4d: objective %.4f\n", step, value);
        for (int k = 0; k < 13; ++k) w[k] -= 0.02 * gradient[k];
    }
    releaseVEMKNet(net);
    return 0;
}
