#include <stdio.h>
#include <string.h>
#include <vemkn.h>

int main(void) {
    /* guide: */
    enum { nw = 4, nv = 2, n = 3 };
    const double w[nw] = {0.1, -0.3, 0.2, 0.5}, x[n] = {-1, 0, 1}, y[n] = {0.6, 0.9, 1.1};
    const double beside[nw * nv] = {1, 0, 0, 0, 0, 0, 0, 1}; /* vemkn_rowmajor 0: [k*nv + d] */
    const double below[nv * nw] = {1, 0, 0, 0, 0, 0, 0, 1};  /* else:             [d*nw + k] */
    double value, gradient[nw], hv[nw * nv];

    const char* text = "1 1 2 1 32 1 1 softplus sum_log_dnorm_fat";
    VEMKNInfo* net = initVEMKNet(text, (int)strlen(text));
    for (int row_order = 0; row_order <= 1; ++row_order) {
        vemk_major(net, row_order);
        const double* v = row_order ? below : beside;
        if (vemk_Hv(net, w, nw, v, nv, x, y, n, 1, 1, &value, gradient, hv) != 0) return 1;
        printf("%s", row_order ? "below: " : "beside:");
        for (int i = 0; i < nw * nv; ++i) printf(" %7.4f", hv[i]);
        printf("\n");
    }
    /* :guide */
    vemk_major(net, 0);
    releaseVEMKNet(net);
    return 0;
}
