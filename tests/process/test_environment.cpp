#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <set>
#include <string>

#include "support/all_entries.h"
#include "support/network.h"

// Which variables of the environment the library reads, from its load on: all its questions come by here.

namespace {

struct Questions {
    const char* names[1000];
    std::size_t count;
};

Questions asked_by_library;  // a plain array: questions come before any constructor has run

char* answer(const char* name, const void* caller)
{
    Dl_info where;
    if (dladdr(caller, &where) != 0 && std::strstr(where.dli_fname, "libvemkn.so") != nullptr &&
        asked_by_library.count < std::size(asked_by_library.names)) {
        asked_by_library.names[asked_by_library.count++] = name;
    }
    const std::size_t length = std::strlen(name);
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, name, length) == 0 && (*entry)[length] == '=')
            return *entry + length + 1;
    }
    return nullptr;
}

}  // namespace

extern "C" char* getenv(const char* name) noexcept
{
    return answer(name, __builtin_return_address(0));
}

extern "C" char* secure_getenv(const char* name) noexcept
{
    return answer(name, __builtin_return_address(0));
}

TEST(Environment, IsReadForTheDocumentedVariablesAlone)
{
    const Network handle(usual_network().text());
    vemk_setpar(handle, 3, 8);
    const Request request = random_request(usual_network(), 1000, 5, 2, 1);
    for (const AnyEntry& entry : ALL_ENTRIES) EXPECT_EQ(0, entry.run(handle, request).status);

    std::set<std::string> names;
    for (std::size_t i = 0; i < asked_by_library.count; ++i)
        names.insert(asked_by_library.names[i]);
    names.insert("GOMP_STACKSIZE");  // asked for where there is no OMP_STACKSIZE
    EXPECT_EQ((std::set<std::string>{"GOMP_STACKSIZE", "INFO", "NN_TRACE", "OMP_STACKSIZE"}),
              names);
}
