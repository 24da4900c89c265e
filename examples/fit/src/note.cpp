#include "note.h"

#include <cstdio>

#include "escape.h"

namespace fit {

void put_note(const std::string& text)
{
    std::fprintf(stderr, "vemkn-fit: note: %s\n", visible(text).c_str());
}

}  // namespace fit
