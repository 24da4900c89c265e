#include "network/mknn.h"

namespace VEMKN {

void print_build_information()
{
    if (std::getenv("INFO") == nullptr) return;
    write_output("VEMKN vemkn.h " __DATE__ " " __TIME__ " x86-64\n");
}

}  // namespace VEMKN
