#include <stdio.h>
#include <string.h>
#include <vemkn.h>

int main(void) {
    /* guide: */
    const char* text = "3 2 3 1 32 3 5 4 atan sum"; /* 3 inputs, 5 and 4 units, 2 outputs */
    VEMKNInfo* net = initVEMKNet(text, (int)strlen(text));
    const unsigned nw = (unsigned)vemk_numel(net);

    double w[54], W1[20];
    for (unsigned k = 0; k < nw; ++k) w[k] = k; /* every weight is its place in the flat order */
    vemk_setweights(net, w, nw);

    unsigned rows, cols;
    vemk_weights(net, 1, NULL, &rows, &cols); /* with a null buffer: the shape */
    vemk_weights(net, 1, W1, &rows, &cols);
    printf("%u weights; W1 is %u x %u, its row 2 is", nw, rows, cols);
    for (unsigned c = 0; c < cols; ++c) printf(" %g", W1[2 * cols + c]);
    printf("\n");
    /* :guide */
    releaseVEMKNet(net);
    return 0;
}
