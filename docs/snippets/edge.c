#include <stdio.h>
#include <string.h>
#include <vemkn.h>

int main(void) {
    /* guide: */
    const char* text = "1 1 2 1 32 1 1 id sum_log_dnorm_fat";
    VEMKNInfo* net = initVEMKNet(text, (int)strlen(text));
    const double y[] = {0, 0, 0, 1.9}; /* three points agree, one is off by less than six deviations */
    const double bias[] = {-0.3, -0.2, -0.101, -0.099, 0.2, 0.475, 0.6};

    for (int i = 0; i < 7; ++i) { /* the output is the last bias for every row */
        const double w[] = {0, 0, bias[i], 0};
        double value, gradient[4];
        if (vemk_g(net, w, 4, NULL, y, 4, 1, 1, &value, gradient) != 0) return 1;
        printf("output %6.3f: objective %.4f, slope %7.4f\n", bias[i], value, gradient[2]);
    }
    /* :guide */
    releaseVEMKNet(net);
    return 0;
}
