/* The calls of hosts.R under R's calling convention: everything is a pointer. */
#include <vemkn.h>

static VEMKNInfo* net;

VEMKN_API void shim_create(char** text, int* length);
VEMKN_API void shim_gradient(double* w,
                             int* nw,
                             double* x,
                             double* y,
                             int* rows,
                             double* value,
                             double* gradient,
                             int* status);

void shim_create(char** text, int* length)
{
    net = initVEMKNet(*text, *length);
    vemk_setpar(net, 4, 8);
}

void shim_gradient(double* w,
                   int* nw,
                   double* x,
                   double* y,
                   int* rows,
                   double* value,
                   double* gradient,
                   int* status)
{
    *status = vemk_g(net, w, (unsigned)*nw, x, y, (unsigned)*rows, 3, 2, value, gradient);
}
