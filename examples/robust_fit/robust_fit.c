/* Reads rows "x y" from standard input, fits y robustly, keeps the model in a file, and prints what it says of three new rows.
 *
 *     cc robust_fit.c $(pkg-config --cflags --libs vemknfit) -o robust_fit
 *     ./robust_fit model.json < rows.txt
 */
#include <stdio.h>
#include <vemkn_fit.h>

enum { MOST_ROWS = 1000, NEW_ROWS = 3 };

int main(int argc, char** argv)
{
    double x[MOST_ROWS], y[MOST_ROWS], prediction[NEW_ROWS];
    const double new_x[NEW_ROWS] = {-1.0, 0.0, 1.0};
    VEMKNFitOptions options = {.size = sizeof options}; /* the rest zero: defaults */
    VEMKNFit* fit = NULL;
    size_t rows = 0, i;

    while (rows < MOST_ROWS && scanf("%lf %lf", &x[rows], &y[rows]) == 2) ++rows;
    if (scanf(" %*c") != EOF) {
        fprintf(stderr, "row %lu is not two numbers, or one too many\n", (unsigned long)rows + 1);
        return 1;
    }
    options.seed = 1;
    if (argc != 2 || vemkn_fit_robust(x, rows, 1, y, &options, &fit) != VEMKN_FIT_OK ||
        vemkn_fit_save(fit, argv[1]) != VEMKN_FIT_OK ||
        vemkn_fit_predict(fit, new_x, NEW_ROWS, 1, prediction) != VEMKN_FIT_OK) {
        fprintf(stderr, "%s\n", argc != 2 ? "usage: robust_fit MODEL < ROWS" : vemkn_fit_message());
        vemkn_fit_free(fit);
        return 1;
    }
    printf("core %.3g, %lu rows are outliers\n",
           vemkn_fit_core(fit, 0),
           (unsigned long)vemkn_fit_beyond(fit));
    for (i = 0; i < NEW_ROWS; ++i) printf("%g: %.3f\n", new_x[i], prediction[i]);
    vemkn_fit_free(fit);
    return 0;
}
