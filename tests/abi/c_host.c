/* A host in C99 that includes this one header and calls every function in it. Each return value but 0 is the line of
 * the check that failed. */
#include "vemkn.h"

#define CHECK(condition) \
    if (!(condition)) return __LINE__

#define NW 9
#define ROWS 3

static const char TEXT[] = "2 1 2 1 8 2 2 id sum";

static double w[NW], v[NW], gradient[NW], product[NW], back[NW], products[2 * NW];
static double x[2 * ROWS], y[ROWS], u[2 * ROWS], out[ROWS], jacobian[ROWS];

int main(void)
{
    VEMKNInfo* net;
    unsigned i, rows = 0, cols = 0, length = 0;
    double value = -1;
    char said[80];

    for (i = 0; i < NW; ++i) w[i] = v[i] = 1;
    for (i = 0; i < 2 * ROWS; ++i) x[i] = 1;
    for (i = 0; i < 2 * ROWS; ++i) u[i] = 1;

    vemk_nobanner();
    releaseVEMKNet(0);
    net = initVEMKNet(TEXT, (int)sizeof TEXT - 1);
    CHECK(net != 0);
    CHECK(vemkn_rowmajor == 0);
    CHECK(g_ndd == 1);
    CHECK(vemk_version()[0] == VEMKN_VERSION[0]);
    CHECK(VEMKN_VERSION_MAJOR >= 2026 && VEMKN_VERSION_MINOR <= 12 && VEMKN_VERSION_PATCH > 0);

    CHECK(vemk_check(TEXT, (int)sizeof TEXT - 1, said, sizeof said) == 0 && said[0] == 0);
    CHECK(vemk_check(TEXT, 3, said, sizeof said) == -1 && said[0] != 0);
    CHECK(vemk_activations(0) != 0 && vemk_activations(0)[0] == 's' && vemk_activations(1000) == 0);
    CHECK(vemk_norms(0) != 0 && vemk_norms(0)[0] == 's' && vemk_norms(1000) == 0);

    CHECK(vemk_setpar(net, 2, 2) == 0);
    CHECK(vemk_setbatch(net, 2) == 0);
    CHECK(vemk_quiet(net, 0) == 0);
    CHECK(vemk_major(net, 1) == 0 && vemkn_rowmajor == 1);
    CHECK(vemk_major(net, 0) == 0 && vemkn_rowmajor == 0);

    CHECK(vemk_numin(net) == 2);
    CHECK(vemk_maxcols(net) == 2);
    CHECK(vemk_numout(net) == 1);
    CHECK(vemk_numel(net) == NW);
    CHECK(vemk_weights(net, 0, 0, &rows, &cols) == 0 && rows == 2 && cols == 2);
    CHECK(vemk_bias(net, 1, 0, &length) == 0 && length == 1);
    CHECK(vemk_logp_bias(net) > 0.1796 && vemk_logp_bias(net) < 0.1797);
    CHECK(vemk_logp_sigma(net) > 0.3333 && vemk_logp_sigma(net) < 0.3334);
    CHECK(vemk_setweights(net, w, NW) == 0);
    CHECK(vemk_getweights(net, back, NW) == 0 && back[NW - 1] == 1);

    /* Hidden units 1 + 1 + 1, output 1 + 3 + 3: small integers, exact in any order. */
    CHECK(vemk_compute(net, w, NW, x, ROWS, 2, 0, out) == 0 && out[ROWS - 1] == 7);
    y[0] = 4;
    CHECK(vemk_residual(net, w, NW, x, y, ROWS, 2, 1, out) == 0 && out[0] == 3 && out[1] == 7);
    CHECK(vemk_objv(net, w, NW, x, y, ROWS, 2, 1, out) == 0 && out[0] == 3);
    CHECK(vemk_obj(net, w, NW, x, y, ROWS, 2, 1, &value) == 0 && value > 5.6 && value < 5.7);
    CHECK(vemk_norm(net, y, ROWS, 1, &value) == 0 && value > 1.3 && value < 1.4);
    CHECK(vemk_logp(net, y, ROWS, out) == 0 && out[0] == 4);

    CHECK(vemk_g(net, w, NW, x, y, ROWS, 2, 1, &value, gradient) == 0);
    CHECK(gradient[6] > 0.999 && gradient[6] < 1.001);
    CHECK(vemk_Hv(net, w, NW, v, 1, x, y, ROWS, 2, 1, &value, gradient, product) == 0);
    CHECK(gradient[7] > 2.999 && gradient[7] < 3.001);
    CHECK(vemk_Jv(net, w, NW, v, 1, x, y, ROWS, 2, 1, out, jacobian) == 0 && out[0] == 3);
    CHECK(vemk_vJ(net, w, NW, u, 0, x, y, ROWS, 2, 1, out, gradient) == 0 && gradient[6] == 3);
    CHECK(vemk_vJ_vec(net, w, NW, u, 2, x, y, ROWS, 2, 1, out, products) == 0);
    CHECK(products[6] == 3 && products[NW + 6] == 3);

    releaseVEMKNet(net);
    return 0;
}
