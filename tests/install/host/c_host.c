/* Finds the minimum of a tiny problem by steps along the gradient: as a user of the installed library would. */
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "vemkn.h"

int main(void)
{
    const char* text = "1 1 2 1 8 1 1 id sum_log_dnorm_fat";
    VEMKNInfo* net = initVEMKNet(text, (int)strlen(text));
    /* y = b1 + w1*(b0 + w0*x) through the points of y = 0.5 + x. */
    double w[4] = {0, 0.5, 0, 0.5}, gradient[4], value = 0;
    const double x[3] = {-0.5, 0, 0.5}, y[3] = {0, 0.5, 1};
    int step, i;
    for (step = 0; step < 2000; ++step) {
        if (vemk_g(net, w, 4, x, y, 3, 1, 1, &value, gradient) != 0) return 1;
        for (i = 0; i < 4; ++i) w[i] -= 0.02 * gradient[i];
    }
    releaseVEMKNet(net);
    printf("objective %g\n", value);
    return fabs(value) < 1e-6 ? 0 : 2;
}
