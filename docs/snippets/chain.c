#include <stdio.h>
#include <string.h>
#include <vemkn.h>

int main(void) {
    /* guide: */
    const char* text = "1 1 2 3 32 1 1 id sum"; /* nmult 3: the one hidden layer runs three times */
    VEMKNInfo* net = initVEMKNet(text, (int)strlen(text));
    /*                  b0   W0   b1   W1 has 1*3 rows, one for each pass */
    const double w[] = {0.0, 2.0, 0.0, 100.0, 10.0, 1.0};
    const double x = 1.0;
    double out;
    vemk_compute(net, w, (unsigned)vemk_numel(net), &x, 1, 1, 0, &out);
    printf("passes give 2, 4, 8; the output is 100*2 + 10*4 + 8 = %g\n", out);
    /* :guide */
    releaseVEMKNet(net);
    return 0;
}
