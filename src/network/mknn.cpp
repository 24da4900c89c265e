#include "network/mknn.h"

namespace VEMKN {

void print_build_information()
{
    if (std::getenv("INFO") == nullptr) return;
#ifdef __x86_64__
    constexpr const char* PROCESSOR = "x86-64";
#else
    constexpr const char* PROCESSOR = "aarch64";
#endif
    write_output(message("VEMKN vemkn.h " __DATE__ " " __TIME__ " ", PROCESSOR, "\n"));
}

}  // namespace VEMKN
