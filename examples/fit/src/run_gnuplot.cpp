#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include "plot.h"

namespace fit {

std::string run_gnuplot(const std::filesystem::path& folder, const std::string& script)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    // Where standard input is closed, the script that gnuplot opens would take its place.
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    std::string program = "gnuplot";
    std::string no_startup_files = "-d";
    std::string file = script;
    std::array<char*, 4> arguments{program.data(), no_startup_files.data(), file.data(), nullptr};
    pid_t child = 0;
    const int error =
        posix_spawnp(&child, program.c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error == ENOENT) return "gnuplot is not installed";
    if (error != 0) return std::string("gnuplot did not start: ") + std::strerror(error);
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR) return "gnuplot was lost";
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return "";
    // An emulator of another processor gives the spawned program's end for the error.
    constexpr int NOT_FOUND = 127;
    if (WIFEXITED(status) && WEXITSTATUS(status) == NOT_FOUND) return "gnuplot is not installed";
    return "gnuplot failed";
}

}  // namespace fit
