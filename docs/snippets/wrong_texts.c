#include <stdio.h>
#include <string.h>
#include <vemkn.h>

int main(void) {
    /* guide: */
    const char* texts[] = {"2 1 3 1 32 2 5 softplus sum_log_dnorm_fat",   /* a size too few */
                           "2 1 2 1 32 2 5 5 softplus sum_log_dnorm_fat", /* a size too many */
                           "2 1 2 1 32 3 5 softplus sum_log_dnorm_fat",   /* other widths than meant */
                           "2 1 2 1 32 2 5 tanh sum_log_dnorm_fat", "2 1 2 1 32 2 5 softplus l2"};
    char why[200];
    for (int i = 0; i < 5; ++i) {
        const int status = vemk_check(texts[i], (int)strlen(texts[i]), why, sizeof why);
        printf("%2d: %s\n", status, why);
    }
    /* :guide */
    return 0;
}
