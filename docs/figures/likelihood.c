/* Cost, influence and weight of residuals from -6 to 6 under sum_log_dnorm_fat, as the library gives them: one line
 * each, for likelihood.gp. docs/snippets/likelihood.c is the same call with a word on it. */
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <vemkn.h>

int main(void) {
    const char* text = "1 1 2 1 32 1 1 id sum_log_dnorm_fat";
    const double last_bias[] = {0, 0, 1, 0};
    VEMKNInfo* net = initVEMKNet(text, (int)strlen(text));
    for (int i = -600; i <= 600; ++i) {
        const double r = i / 100.0, y = -r;
        double n, gradient[4], hv[4];
        if (vemk_Hv(net, NULL, 4, last_bias, 1, NULL, &y, 1, 1, 1, &n, gradient, hv) != 0) return 1;
        /* The weight at 0 is the limit of n'/r. Blank lines keep the curves from being drawn across the jump. */
        if (i == -199 || i == 200) printf("\n");
        printf("%g %g %g %g\n", r, n, gradient[2], i == 0 ? hv[2] : gradient[2] / r);
    }
    releaseVEMKNet(net);
    return 0;
}
