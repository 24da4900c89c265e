#ifndef VEMKN_FIT_USER_ERROR_H
#define VEMKN_FIT_USER_ERROR_H

#include <stdexcept>
#include <string>

#include "escape.h"

namespace fit {

/** A mistake in what the user gave. main() prints it and ends with status 2; every other exception
 * means that something went wrong on our side or in the machine, and ends with status 1. The message
 * may quote names and cells as they are. */
class UserError : public std::runtime_error {
public:
    explicit UserError(const std::string& message) : std::runtime_error(visible(message)) {}
};

}  // namespace fit

#endif
