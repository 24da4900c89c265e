#ifndef VEMKN_FIT_PREDICT_H
#define VEMKN_FIT_PREDICT_H

namespace fit {

/** `vemkn-fit predict MODEL DATA [-o FILE]`: the rows of a CSV file with what a model predicts of them, on standard output or in
 * a file that appears whole or not at all.
 * @param[in] argv  from the verb on
 * @return the exit status; 2 for a wrong command line, which has then been reported
 * @throw UserError for a model or data that cannot be used */
int run_predict(int argc, char** argv);

}  // namespace fit

#endif
