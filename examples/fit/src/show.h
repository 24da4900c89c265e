#ifndef VEMKN_FIT_SHOW_H
#define VEMKN_FIT_SHOW_H

namespace fit {

/** `vemkn-fit show MODEL [--json]`: what a model holds, for people; or the text of its file.
 * @param[in] argv  from the verb on
 * @return the exit status; 2 for a wrong command line, which has then been reported
 * @throw UserError for a model that cannot be used */
int run_show(int argc, char** argv);

}  // namespace fit

#endif
