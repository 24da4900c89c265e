"""Prints a C++ file that defines everything that vemkn.h declares, empty: a library made of it has the interface and
nothing else, so that the stored interface knows no more than a host does.

Usage: interface_stub.py include/vemkn.h
"""

import re
import sys

header = re.sub(r"/\*.*?\*/", "", open(sys.argv[1]).read(), flags=re.S)
print('#include <vemkn.h>\n#include <vemkn_errors.h>')
print("int vemkn_rowmajor;\nuint64_t g_ndd, yafad::FO::Dynamic::NDIR;")
print("void* used = &yafad::ErrorHandler::getHandler();")
for result, name, arguments in re.findall(r"VEMKN_API ([\w ]+?[* ]*)(\w+)\(([^;]*)\);", header):
    print(f"{result}{name}({arguments}) {{ {'' if result.strip() == 'void' else 'return 0;'} }}")
