#ifndef VEMKN_FIT_USER_ERROR_H
#define VEMKN_FIT_USER_ERROR_H

#include <stdexcept>

namespace fit {

/** A mistake in what the user gave. main() prints it and ends with status 2; every other exception
 * means that something went wrong on our side or in the machine, and ends with status 1. */
class UserError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace fit

#endif
