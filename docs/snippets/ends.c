#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vemkn.h>

/* guide: */
static void call(double weight, unsigned columns) {
    const char* text = "2 1 2 1 32 2 1 softplus sum_log_dnorm_fat";
    VEMKNInfo* net = initVEMKNet(text, (int)strlen(text));
    const double w[] = {0, weight, 0, 0, weight}, x[] = {1, 1, 1}, y = 0;
    double value = 0;
    vemk_obj(net, w, 5, x, &y, 1, columns, 1, &value);
    printf("objective %g\n", value);
    releaseVEMKNet(net);
}

static void report(const char* what, double weight, unsigned columns) {
    int status = 0;
    fflush(stdout);
    if (fork() == 0) { /* in a process of its own */
        call(weight, columns);
        fflush(stdout);
        _exit(0);
    }
    wait(&status);
    if (WIFEXITED(status)) printf("%s: exit status %d\n", what, WEXITSTATUS(status));
    if (WIFSIGNALED(status)) printf("%s: signal %d\n", what, WTERMSIG(status));
}

int main(void) {
    report("fine", 1.0, 2);
    report("weights that have run away", 1e100, 2);
    report("three columns for two inputs", 1.0, 3);
    return 0;
}
/* :guide */
