#include "support/child.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace child {

namespace {

constexpr const char* FLAG = "--scene";

std::map<std::string, Scene>& scenes()
{
    static std::map<std::string, Scene> all;
    return all;
}

// A file without a name, so that a scene may write any amount without being read meanwhile.
class Output {
public:
    Output() : file_(std::tmpfile())
    {
        if (file_ == nullptr) throw std::runtime_error("no temporary file");
    }

    ~Output() { std::fclose(file_); }

    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    int descriptor() const { return fileno(file_); }

    std::string text() const
    {
        std::rewind(file_);
        std::string all;
        char piece[4096];
        while (const std::size_t n = std::fread(piece, 1, sizeof piece, file_))
            all.append(piece, n);
        return all;
    }

private:
    std::FILE* file_;
};

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> list;
    for (std::string& text : texts) list.push_back(text.data());
    list.push_back(nullptr);
    return list;
}

// What starts this program again: a program for another processor by the emulator that runs it.
std::vector<std::string> this_program()
{
#ifdef VEMKN_EMULATOR
    return {VEMKN_EMULATOR, std::filesystem::read_symlink("/proc/self/exe")};
#else
    return {"/proc/self/exe"};
#endif
}

// The emulator says on standard error that a signal has ended what it ran.
std::string without_line_of_emulator(std::string text)
{
#ifdef VEMKN_EMULATOR
    const std::size_t place = text.find("qemu: uncaught target signal");
    if (place != std::string::npos) text.erase(place, text.find('\n', place) + 1 - place);
#endif
    return text;
}

std::vector<std::string> environment_with(const std::map<std::string, std::string>& changes)
{
    std::vector<std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (changes.count(text.substr(0, text.find('='))) == 0) all.push_back(text);
    }
    for (const auto& [name, value] : changes) {
        all.push_back(name);
        all.back().append("=").append(value);
    }
    return all;
}

}  // namespace

bool Outcome::exited_with(int code) const
{
    return WIFEXITED(wait_status) && WEXITSTATUS(wait_status) == code;
}

bool Outcome::killed_by(int signal) const
{
    return WIFSIGNALED(wait_status) && WTERMSIG(wait_status) == signal;
}

std::string Outcome::description() const
{
    const std::string end = WIFSIGNALED(wait_status)
                                ? std::string("killed by ") + strsignal(WTERMSIG(wait_status))
                                : "exit status " + std::to_string(WEXITSTATUS(wait_status));
    return end + "\n-- out\n" + out + "-- err\n" + err;
}

Outcome play(const std::string& scene, const Arguments& arguments, const Setting& setting)
{
    std::vector<std::string> command = this_program();
    command.insert(command.end(), {FLAG, scene});
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<std::string> environment = environment_with(setting.environment);

    const Output out, err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (setting.closed_streams) {
        posix_spawn_file_actions_addclose(&actions, STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, STDERR_FILENO);
    } else {
        posix_spawn_file_actions_adddup2(&actions, out.descriptor(), STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, err.descriptor(), STDERR_FILENO);
    }
    pid_t pid = 0;
    const int failure = posix_spawn(&pid,
                                    command[0].c_str(),
                                    &actions,
                                    nullptr,
                                    pointers(command).data(),
                                    pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw std::runtime_error("a scene cannot start");

    Outcome outcome;
    waitpid(pid, &outcome.wait_status, 0);
    outcome.out = out.text();
    outcome.err = without_line_of_emulator(err.text());
    return outcome;
}

bool add(const char* name, Scene scene)
{
    return scenes().emplace(name, scene).second;
}

}  // namespace child

int main(int argc, char** argv)
{
    if (argc > 2 && std::strcmp(argv[1], child::FLAG) == 0) {
        child::scenes().at(argv[2])(child::Arguments(argv + 3, argv + argc));
        return 0;
    }
#ifdef VEMKN_EMULATOR
    // Death tests start what stands first.
    std::vector<std::string> words = child::this_program();
    words.insert(words.end(), argv + 1, argv + argc);
    std::vector<char*> with_emulator = child::pointers(words);
    argv = with_emulator.data();
    argc = static_cast<int>(words.size());
#endif
    testing::InitGoogleTest(&argc, argv);
    // The library starts threads, and a plain fork would carry none of them over.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    return RUN_ALL_TESTS();
}
