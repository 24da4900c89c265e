/* A host in C99 that includes this one header and calls every function in it. Each return value but 0 is the line of
 * the check that failed. */
#include <vemkn_fit.h>

#define CHECK(condition) \
    if (!(condition)) return __LINE__

enum { ROWS = 40 };

static int evaluations;

static int count(const VEMKNFitProgress* progress, void* host)
{
    ++evaluations;
    return progress->stage < VEMKN_FIT_SEARCH || host != &evaluations;
}

int main(void)
{
    VEMKNFitOptions options = {.size = sizeof options};
    VEMKNFit *fit = 0, *other = 0;
    double x[ROWS], y[ROWS], found[ROWS], lower[ROWS], upper[ROWS];
    char text[20000];
    size_t length = 0, weights = 0;
    int i;

    for (i = 0; i < ROWS; ++i) {
        x[i] = i;
        y[i] = 0.1 * i * i + (i % 7);
    }
    options.decay = 0.3;
    options.progress = count;
    options.host = &evaluations;
    CHECK(vemkn_fit_version()[0] == '2');
    CHECK(vemkn_fit_robust(x, ROWS, 1, y, &options, &fit) == VEMKN_FIT_OK);
    CHECK(evaluations > 0 && vemkn_fit_message()[0] == 0 && vemkn_fit_row() == -1);
    CHECK(vemkn_fit_predict(fit, x, ROWS, 1, found) == VEMKN_FIT_OK);
    CHECK(found[ROWS - 1] > 100 && found[0] < 20);
    CHECK(vemkn_fit_interval(fit, x, ROWS, 1, VEMKN_FIT_PREDICTION, 0.95, 0, 0, lower, upper) ==
              VEMKN_FIT_OK ||
          vemkn_fit_covariance(fit) == 0);
    CHECK(vemkn_fit_covariance(fit) == 0 || (lower[0] < found[0] && upper[0] > found[0]));
    CHECK(vemkn_fit_covariance(fit) == 0 || vemkn_fit_parameters(fit) < ROWS);
    CHECK(vemkn_fit_save(fit, "/dev/null") == VEMKN_FIT_OK);
    CHECK(vemkn_fit_load("/dev/null", &other) == VEMKN_FIT_MODEL && other == 0);
    CHECK(vemkn_fit_write(fit, text, sizeof text, &length) == VEMKN_FIT_OK);
    CHECK(length > 0 && length < sizeof text);
    CHECK(vemkn_fit_read(text, length, &other) == VEMKN_FIT_OK);
    CHECK(vemkn_fit_columns(other) == 1 && vemkn_fit_column(other, 0)[0] == 'x');
    CHECK(vemkn_fit_targets(other) == 1 && vemkn_fit_target(other, 0)[0] == 'y');
    CHECK(vemkn_fit_core(other, 0) > 0 && vemkn_fit_shift(other, 0) < y[0]);
    CHECK(vemkn_fit_decay(other) == 0.3 && vemkn_fit_objective(other) > 0);
    CHECK(vemkn_fit_gradient(other) >= 0 && vemkn_fit_settled(other) == vemkn_fit_settled(fit));
    CHECK(vemkn_fit_rows(other) == ROWS && vemkn_fit_beyond(other) < ROWS);
    CHECK(vemkn_fit_layers(other) == 1 && vemkn_fit_width(other, 0) == 6);
    CHECK(vemkn_fit_activation(other)[0] == 's' && vemkn_fit_method(other)[0] == 'r');
    CHECK(vemkn_fit_weights(other, &weights) != 0 && weights == 19);
    CHECK(vemkn_fit_note(other, vemkn_fit_notes(other)) == 0);
    vemkn_fit_free(other);
    vemkn_fit_free(fit);
    return 0;
}
