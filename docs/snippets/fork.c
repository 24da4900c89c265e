#define _POSIX_C_SOURCE 200809L
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vemkn.h>

enum { ROWS = 1000, PARTS = 3, NW = 13 };

int main(void) {
    const char* text = "1 1 2 1 32 1 4 softplus sum_log_dnorm_fat";
    VEMKNInfo* net = initVEMKNet(text, (int)strlen(text));
    double w[NW], x[ROWS], y[ROWS];
    for (int k = 0; k < NW; ++k) w[k] = 0.3 * (k % 4) - 0.4;
    for (int i = 0; i < ROWS; ++i) {
        x[i] = 0.004 * i - 2;
        y[i] = 1 + x[i] * x[i];
    }
    double whole[1 + NW], sum[1 + NW] = {0}, part[1 + NW];
    if (vemk_g(net, w, NW, x, y, ROWS, 1, 1, whole, whole + 1) != 0) return 1;
    fflush(stdout);

    /* guide: */
    for (unsigned p = 0; p < PARTS; ++p) {
        const unsigned first = p * ROWS / PARTS, rows = (p + 1) * ROWS / PARTS - first;
        int ends[2];
        if (pipe(ends) != 0) return 1;
        if (fork() == 0) { /* the child's part: its mean objective and that one's gradient */
            const int said = vemk_g(net, w, NW, x + first, y + first, rows, 1, 1, part, part + 1);
            _exit(said != 0 || write(ends[1], part, sizeof part) != sizeof part);
        }
        close(ends[1]); /* the child's alone now: where it fails, the read ends instead of waiting */
        if (read(ends[0], part, sizeof part) != sizeof part) return 1;
        close(ends[0]);
        for (int k = 0; k <= NW; ++k) sum[k] += (double)rows / ROWS * part[k]; /* weighted by rows */
    }
    /* :guide */
    double error = 0;
    for (int p = 0; p < PARTS; ++p) wait(NULL);
    for (int k = 0; k <= NW; ++k) error = fmax(error, fabs(sum[k] - whole[k]));
    printf("%d parts and the whole: %s\n", PARTS, error < 1e-12 ? "the same but for rounding" : "different");
    releaseVEMKNet(net);
    return 0;
}
