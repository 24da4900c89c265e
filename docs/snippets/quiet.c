#include <stdio.h>
#include <string.h>
#include <vemkn.h>

int main(void) {
    /* guide: */
    const char* text = "1 1 2 1 32 1 2 softplus sum_log_dnorm_fat";
    VEMKNInfo* net = initVEMKNet(text, (int)strlen(text));
    const double x[] = {-1, 0, 1}, y[] = {1.0, 1.2, 2.0};
    const double steps[] = {1e200, 1e100, 1.0, 0.1, 0.01};
    double w[7] = {0}, trial[7], gradient[7], value, here;

    vemk_quiet(net, 1);
    if (vemk_g(net, w, 7, x, y, 3, 1, 1, &here, gradient) != 0) return 1;
    printf("start: objective %.5g\n", here);
    for (int i = 0; i < 5; ++i) {
        for (int k = 0; k < 7; ++k) trial[k] = w[k] - steps[i] * gradient[k];
        const int said = vemk_obj(net, trial, 7, x, y, 3, 1, 1, &value);
        printf("step %g: returned %d, objective %.5g\n", steps[i], said, value);
        if (said == 0 && value < here) break; /* neither NaN nor infinite, and an improvement */
    }
    /* :guide */
    releaseVEMKNet(net);
    return 0;
}
