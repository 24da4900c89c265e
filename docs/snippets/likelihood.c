#include <stdio.h>
#include <string.h>
#include <vemkn.h>

int main(void) {
    /* guide: */
    const char* text = "1 1 2 1 32 1 1 id sum_log_dnorm_fat";
    VEMKNInfo* net = initVEMKNet(text, (int)strlen(text)); /* all weights 0, so all outputs 0 */
    const double last_bias[] = {0, 0, 1, 0};               /* flat order: b0 W0 b1 W1 */
    const double residuals[] = {0.01, 1.0 / 3, 1.0, 1.99, 2.0, 3.0, 10.0, 91.0, 92.0};

    printf("%8s %10s %10s %10s %10s\n", "r", "n", "n'", "n'/r", "n''");
    for (int i = 0; i < 9; ++i) {
        const double r = residuals[i], y = -r; /* residual = output - target */
        double n, gradient[4], hv[4];
        if (vemk_Hv(net, NULL, 4, last_bias, 1, NULL, &y, 1, 1, 1, &n, gradient, hv) != 0) return 1;
        printf("%8.4f %10.5f %10.5f %10.5f %10.5f\n", r, n, gradient[2], gradient[2] / r, hv[2]);
    }
    /* :guide */
    releaseVEMKNet(net);
    return 0;
}
