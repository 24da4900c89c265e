#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <thread>

#include "support/all_entries.h"
#include "support/child.h"

// Two copies of the library in one process: this program is linked with one, and loads another from a file of its own. Each
// has a gate of its own, so that calls with different numbers of tangents run at the same time.

namespace {

constexpr int CALLS = 300;

// A copy of the library that the program is linked with.
class CopiedFile {
public:
    CopiedFile()
    {
        Dl_info info;
        dladdr(reinterpret_cast<void*>(&vemk_Hv), &info);
        path_ = std::filesystem::temp_directory_path() /
                ("libvemkn-copy-" + std::to_string(getpid()) + ".so");
        std::filesystem::copy_file(std::filesystem::canonical(info.dli_fname), path_);
    }

    ~CopiedFile() { std::filesystem::remove(path_); }

    CopiedFile(const CopiedFile&) = delete;
    CopiedFile& operator=(const CopiedFile&) = delete;

    const char* path() const { return path_.c_str(); }

private:
    std::filesystem::path path_;
};

void* opened(const std::string& how, const char* path)
{
    if (how == "dlmopen") return dlmopen(LM_ID_NEWLM, path, RTLD_NOW);
    const int flags = how == "global"     ? RTLD_GLOBAL
                      : how == "deepbind" ? RTLD_LOCAL | RTLD_DEEPBIND
                                          : RTLD_LOCAL;
    return dlopen(path, RTLD_NOW | flags);
}

// The entry points of a copy.
struct Copy {
    decltype(initVEMKNet)* init;
    decltype(vemk_Hv)* Hv;

    explicit Copy(void* handle)
        : init(reinterpret_cast<decltype(init)>(dlsym(handle, "initVEMKNet"))),
          Hv(reinterpret_cast<decltype(Hv)>(dlsym(handle, "vemk_Hv")))
    {
    }

    Copy() : init(initVEMKNet), Hv(vemk_Hv) {}

    Numbers products(VEMKNInfo* net, const Request& q) const
    {
        Numbers hv(std::size_t{q.nv} * q.nw());
        Hv(net,
           q.w(),
           q.nw(),
           q.v.data(),
           q.nv,
           q.batch.x.data(),
           q.batch.y.data(),
           q.batch.nrows,
           q.batch.xcols,
           q.batch.ycols,
           nullptr,
           nullptr,
           hv.data());
        return hv;
    }

    // Whether every call gives the same.
    bool holds(unsigned tangents) const
    {
        const plain::Network network = usual_network();
        const std::string text = network.text();
        VEMKNInfo* const net = init(text.data(), static_cast<int>(text.size()));
        const Request q = random_request(network, 20, 5, tangents, 1);
        const Numbers expected = products(net, q);
        for (int i = 0; i < CALLS; ++i) {
            if (products(net, q) != expected) return false;
        }
        return true;
    }
};

}  // namespace

SCENE(calls_two_copies_at_once)
{
    alarm(60);
    // Loaded, it needs no name any more.
    void* const handle = [&] {
        const CopiedFile file;
        return opened(arguments.at(0), file.path());
    }();
    if (handle == nullptr) {
        std::cout << "not loaded: " << dlerror() << std::endl;
        std::_Exit(2);
    }
    const Copy linked, loaded(handle);
    bool first = false, second = false;
    std::thread one([&] { first = linked.holds(1); });
    second = loaded.holds(8);
    one.join();
    std::_Exit(first && second ? 0 : 1);
}

TEST(CopiesFault, TwoCopiesOfTheLibraryAtOnce_EachWithItsOwnTangents)
{
    for (const char* how : {"local", "global", "deepbind", "dlmopen"}) {
        const child::Outcome outcome = child::play("calls_two_copies_at_once", {how});
        EXPECT_TRUE(outcome.exited_with(0)) << how << ": " << outcome.description();
    }
}
