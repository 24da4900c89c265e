#ifndef VEMKN_FIT_NOTE_H
#define VEMKN_FIT_NOTE_H

#include <string>

namespace fit {

/// Tells the user what no figure shows: one line on standard error.
void put_note(const std::string& text);

}  // namespace fit

#endif
