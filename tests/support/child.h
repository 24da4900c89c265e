#pragma once

#include <map>
#include <string>
#include <vector>

// Scenes: what has to run in a process of its own, to see its exact output and how it ends. A scene is a function of
// the test program, which starts itself again to play it:
//
//     SCENE(says_hello) { std::cout << "hello " << arguments.at(0); }
//
//     TEST(Hello, GreetsByName) {
//         EXPECT_EQ("hello you", child::play("says_hello", {"you"}).out);
//     }
//
// The program must be linked with support/child.cpp, which has its main().

namespace child {

using Arguments = std::vector<std::string>;
using Scene = void (*)(const Arguments& arguments);

struct Outcome {
    std::string out;
    std::string err;
    int wait_status = 0;

    bool exited_with(int code) const;
    bool killed_by(int signal) const;

    // For failure messages.
    std::string description() const;
};

struct Setting {
    // Environment variables on top of those of this process.
    std::map<std::string, std::string> environment{};
    // Starts the scene with neither standard output nor standard error open.
    bool closed_streams = false;
};

Outcome play(const std::string& scene,
             const Arguments& arguments = {},
             const Setting& setting = {});

bool add(const char* name, Scene scene);

}  // namespace child

#define SCENE(name)                                                                    \
    static void scene_##name(const child::Arguments& arguments);                       \
    [[maybe_unused]] static const bool added_##name = child::add(#name, scene_##name); \
    static void scene_##name([[maybe_unused]] const child::Arguments& arguments)
