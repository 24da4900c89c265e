#include <stdio.h>
#include <string.h>
#include <vemkn.h>

int main(void) {
    /* guide: */
    const double scatter = 0.2; /* standard deviation of normal scatter, in the units of the data */
    const double errors[] = {0.2, 0.4, 0.6, 1.19, 1.21, 50.0}; /* fit minus datum, in the same units */
    double r[6], cost[6];

    const char* text = "1 1 2 1 32 1 4 softplus sum_log_dnorm_fat";
    VEMKNInfo* net = initVEMKNet(text, (int)strlen(text));
    for (int i = 0; i < 6; ++i) r[i] = errors[i] / (3 * scatter);
    vemk_logp(net, r, 6, cost);
    for (int i = 0; i < 6; ++i) printf("off by %5.2f: residual %7.3f, cost %7.3f\n", errors[i], r[i], cost[i]);
    /* :guide */
    releaseVEMKNet(net);
    return 0;
}
