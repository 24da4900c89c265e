#include <stdio.h>
#include <string.h>
#include <vemkn.h>

static VEMKNInfo* network(const char* text) { return initVEMKNet(text, (int)strlen(text)); }

int main(void) {
    VEMKNInfo* net = network("2 1 2 1 32 2 5 softplus sum_log_dnorm_fat"); /* 21 parameters */
    VEMKNInfo* flat = network("2 1 1 1 32 2 softplus sum");                /* a single layer */
    VEMKNInfo* chain = network("2 1 2 2 32 2 5 softplus sum");             /* 2 -> 5 cannot repeat */
    VEMKNInfo* nameless = network("2 1 2 1 32 2 5 softplus l2");           /* no such norm */
    VEMKNInfo* empty = network("2 0 2 1 32 2 5 softplus sum");             /* no output */
    double w[30] = {0}, x[4] = {0}, y[4] = {0}, v[64] = {0}, value, g[30], hv[64], out[4];

    /* guide: */
    int said = 0;
    said += vemk_g(NULL, w, 21, x, y, 2, 2, 1, &value, g);
    said += vemk_g(empty, w, 0, x, y, 2, 2, 1, &value, g);
    said += vemk_g(flat, w, 3, x, y, 2, 2, 1, &value, g);
    said += vemk_g(chain, w, 26, x, y, 2, 2, 1, &value, g);
    said += vemk_g(nameless, w, 21, x, y, 2, 2, 1, &value, g);
    said += vemk_g(net, w, 20, x, y, 2, 2, 1, &value, g);
    said += vemk_g(net, w, 21, x, y, 2, 2, 2, &value, g);
    said += vemk_g(net, w, 21, x, y, 0, 2, 1, &value, g);
    said += vemk_setweights(net, w, 22);
    said += vemk_getweights(net, w, 22);
    vemk_major(net, 1);
    said += vemk_Hv(net, w, 21, v, 22, x, y, 2, 2, 1, &value, g, hv);
    vemk_major(net, 0);
    said += vemk_Jv(net, w, 21, v, 204522253, x, y, 2, 2, 1, out, hv);
    said += vemk_vJ_vec(net, w, 21, x, 2147483648u, x, y, 2, 2, 1, out, g);
    said += vemk_norm(net, x, 65536, 65536, &value);
    /* :guide */
    VEMKNInfo* wide = network("1 2 2 1 32 1 1 softplus sum"); /* 6 parameters, 2 outputs */
    said += vemk_compute(wide, w, 6, x, 2147483648u, 1, 0, out);
    said += vemk_residual(wide, w, 6, x, y, 2147483648u, 1, 2, out);
    printf("%d calls refused\n", -said);
    releaseVEMKNet(net);
    releaseVEMKNet(flat);
    releaseVEMKNet(chain);
    releaseVEMKNet(nameless);
    releaseVEMKNet(empty);
    releaseVEMKNet(wide);
    return 0;
}
