#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <vemkn.h>

/* guide: */
enum { ROWS = 1000, NW = 13, STARTS = 8 };
static double x[ROWS], y[ROWS];
static VEMKNInfo* net; /* set up before the threads start, only read by them */

struct start {
    double w[NW], value, gradient[NW];
};

static void* evaluate(void* p) {
    struct start* s = p;
    vemk_g(net, s->w, NW, x, y, ROWS, 1, 1, &s->value, s->gradient);
    return NULL;
}
/* :guide */

int main(void) {
    static struct start starts[STARTS], again[STARTS];
    pthread_t threads[STARTS];
    const char* text = "1 1 2 1 32 1 4 softplus sum_log_dnorm_fat";
    net = initVEMKNet(text, (int)strlen(text));
    vemk_setpar(net, 2, 32);
    for (int i = 0; i < ROWS; ++i) {
        x[i] = 0.004 * i - 2;
        y[i] = 1 + x[i] * x[i];
    }
    for (int t = 0; t < STARTS; ++t) {
        for (int k = 0; k < NW; ++k) starts[t].w[k] = 0.1 * (k % 4) - 0.05 * t;
        again[t] = starts[t];
        evaluate(&again[t]);
    }
    for (int t = 0; t < STARTS; ++t) {
        if (pthread_create(&threads[t], NULL, evaluate, &starts[t]) != 0) return 1;
    }
    for (int t = 0; t < STARTS; ++t) pthread_join(threads[t], NULL);
    printf("together and one after the other: %s\n",
           memcmp(starts, again, sizeof starts) == 0 ? "the same bits" : "different");
    releaseVEMKNet(net);
    return 0;
}
