// scripts/fit with stand-ins for what it calls: how it is started, and what it passes on.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "temporary.h"

namespace {

namespace fs = std::filesystem;

class Script : public testing::Test {
protected:
    Script()
    {
        fs::create_directories(folder / "a project/scripts");
        for (const char* name : {"fit", "common"})
            fs::copy(FIT_SCRIPTS "/" + std::string(name), folder / "a project/scripts");
        fs::create_directories(folder / "a project/build/fit/examples/fit");
        program("a project/build/fit/examples/fit/vemkn-fit", "printf '%s\\n' \"$@\"");
        fs::create_directory(folder / "bin");
        program("bin/cmake", "exit 0");
        program("bin/dpkg-query", "echo install ok installed");
    }

    void program(const std::string& name, const std::string& commands) const
    {
        fs::permissions(folder.write(name, "#!/bin/sh\n" + commands + "\n"), fs::perms::owner_all);
    }

    /// @return what the program was called with, a line each
    std::string started(const std::string& arguments,
                        const std::string& script = "a project/scripts/fit")
    {
        const std::string command = "cd / && PATH='" + (folder / "bin") + "':\"$PATH\" '" +
                                    (folder / script) + "' >'" + (folder / "stdout") + "' 2>'" +
                                    (folder / "stderr") + "' " + arguments;
        status = std::system(command.c_str());
        return read_text(folder / "stdout");
    }

    static bool has(const std::string& text, const std::string& part)
    {
        return text.find(part) != std::string::npos;
    }

    TemporaryFolder folder;
    std::string log = folder / "a project/build/fit/build.log";
    int status = 0;
};

TEST_F(Script, StartsFromAnywhere)
{
    EXPECT_TRUE(has(started(""), "--hidden\n6\n"));
    EXPECT_EQ(status, 0) << read_text(folder / "stderr");
    EXPECT_TRUE(has(started("<&-"), "--hidden\n6\n")) << "without standard input";
    fs::create_symlink(folder / "a project/scripts/fit", folder / "link");
    EXPECT_TRUE(has(started("", "link"), "--hidden\n6\n")) << "through a link";
}

TEST_F(Script, LetsOptionsReplaceItsOwn)
{
    const std::string arguments =
        started("--hidden 8 --method newton --activation=atan --out /elsewhere");
    for (const char* given :
         {"--hidden\n8\n", "--method\nnewton\n", "--activation=atan\n", "--out\n/elsewhere\n"})
        EXPECT_TRUE(has(arguments, given)) << arguments;
    for (const char* own : {"--hidden\n6\n", "--method\nrobust\n", "out/fit"})
        EXPECT_FALSE(has(arguments, own)) << arguments;
}

TEST_F(Script, RunsNoOlderProgramWithoutALog)
{
    fs::create_symlink("/dev/full", log);
    EXPECT_EQ(started(""), "");
    EXPECT_NE(status, 0);
    EXPECT_TRUE(has(read_text(folder / "stderr"), "build.log cannot be written"));
    fs::remove(log);
    fs::create_directory(log);
    EXPECT_EQ(started(""), "");
    EXPECT_NE(status, 0);
}

TEST_F(Script, RunsNoOlderProgramAfterAFailedBuild)
{
    program("bin/cmake", "echo wrong here; exit 1");
    EXPECT_EQ(started(""), "");
    EXPECT_NE(status, 0);
    EXPECT_TRUE(has(read_text(folder / "stderr"), "wrong here"));
}

}  // namespace
