#define _POSIX_C_SOURCE 199309L /* clock_gettime */
#include "problem.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>

static VEMKNInfo* quiet_network(const char* norm)
{
    char text[100];
    const int length = snprintf(text, sizeof text, "%d %d 2 1 32 %d %d atan %s", INPUTS, OUTPUTS, INPUTS, UNITS, norm);
    VEMKNInfo* net = initVEMKNet(text, length);
    vemk_quiet(net, 1);
    return net;
}

static unsigned read_cars(FILE* file, double* x, double* y)
{
    /* About the mean and the standard deviation of each input: all become numbers of a size near 1. */
    static const double middle[INPUTS] = {5.5, 194.0, 104.0, 2978.0, 15.5, 1976.0, 1.6};
    static const double spread[INPUTS] = {1.7, 105.0, 38.0, 850.0, 2.8, 3.7, 0.8};
    char line[200];
    unsigned rows = 0;
    while (rows < MAX_ROWS && fgets(line, sizeof line, file) != NULL) {
        double v[INPUTS], mpg;
        /* The header and the cars with an NA have fewer numbers, and are left out. */
        const int numbers =
            sscanf(line, "%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf", v, v + 1, v + 2, v + 3, v + 4, v + 5, v + 6, &mpg);
        if (numbers != INPUTS + 1) continue;
        for (unsigned k = 0; k < INPUTS; ++k) x[rows * INPUTS + k] = (v[k] - middle[k]) / spread[k];
        y[rows] = (mpg - 25.0) / 21.0;
        ++rows;
    }
    return rows;
}

Problem* problem_open(int argc, char** argv, const char* norm)
{
    Problem* p = calloc(1, sizeof *p);
    FILE* file = argc > 1 ? fopen(argv[1], "r") : NULL;
    if (p == NULL || file == NULL) {
        fprintf(stderr, "usage: %s data/auto_mpg.csv\n", argv[0]);
        exit(2);
    }
    p->net = quiet_network(norm);
    p->nw = (unsigned)vemk_numel(p->net);
    p->rows = read_cars(file, p->x, p->y);
    fclose(file);
    return p;
}

void problem_start(Problem* p, double* w)
{
    /* One unit for heavy, old cars, and one for small engines. From here every host finds the same minimum; a network
     * has many. */
    static const double start[] = {
        0.0,  0.0,  /* biases of the two units */
        0.0,  -0.5, /* cylinders */
        0.0,  -0.5, /* displacement */
        0.0,  0.0,  /* power */
        0.5,  0.0,  /* weight */
        0.0,  -0.5, /* seconds to 60 mph */
        -0.5, 0.0,  /* year */
        0.0,  0.0,  /* origin */
        0.0,        /* bias of the output */
        -1.0, 0.2,  /* what it makes of the units */
    };
    for (unsigned k = 0; k < p->nw; ++k) w[k] = start[k];
    clock_gettime(CLOCK_MONOTONIC, &p->started);
}

static double seconds_since(struct timespec start)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)(now.tv_sec - start.tv_sec) + 1e-9 * (double)(now.tv_nsec - start.tv_nsec);
}

void problem_report(const Problem* p, const char* host, const char* algorithm, const double* w)
{
    const double seconds = seconds_since(p->started);
    VEMKNInfo* net = quiet_network("sum_log_dnorm_fat");
    double* gradient = malloc(p->nw * sizeof *gradient);
    double value, square = 0.0;
    if (gradient == NULL) exit(1);
    if (vemk_g(net, w, p->nw, p->x, p->y, p->rows, INPUTS, OUTPUTS, &value, gradient) != 0) exit(1);
    for (unsigned k = 0; k < p->nw; ++k) square += gradient[k] * gradient[k];
    printf("host: %s\n", host);
    printf("algorithm: %s\n", algorithm);
    printf("values: %lu\n", p->values);
    printf("gradients: %lu\n", p->gradients);
    printf("products: %lu\n", p->products);
    printf("seconds: %.4f\n", seconds);
    printf("objective: %.12g\n", value);
    printf("gradient norm: %.1e\n", sqrt(square));
    free(gradient);
    releaseVEMKNet(net);
}

void problem_close(Problem* p)
{
    releaseVEMKNet(p->net);
    free(p);
}
