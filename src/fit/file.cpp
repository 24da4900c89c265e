#include "fit/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "fit/failure.h"
#include "vemkn_fit.h"

namespace vemknfit {
namespace {

namespace fs = std::filesystem;

bool wrote(int file, const std::string& text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = write(file, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

[[noreturn]] void not_written(const std::string& path)
{
    throw Failure(VEMKN_FIT_FILE, path + ": cannot be written in full");
}

// A file that was not there, with a name of its own; -1 where there is none to be had.
int new_file(const std::string& path, std::string& name)
{
    constexpr mode_t AS_THE_UMASK_WANTS = 0666;
    constexpr int TRIES = 100;
    static std::atomic<unsigned> counter{0};
    for (int i = 0; i < TRIES; ++i) {
        name = path + ".part-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
        const int file =
            open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, AS_THE_UMASK_WANTS);
        if (file >= 0 || errno != EEXIST) return file;
    }
    return -1;
}

void write_beside(const std::string& path, const std::string& text)
{
    constexpr mode_t PERMISSIONS = 07777;
    std::string beside;
    const int file = new_file(path, beside);
    if (file < 0) not_written(path);

    struct stat older {};

    const bool as_before =
        stat(path.c_str(), &older) != 0 || fchmod(file, older.st_mode & PERMISSIONS) == 0;
    const bool whole = wrote(file, text) && fsync(file) == 0;
    const bool closed = close(file) == 0;
    if (as_before && whole && closed && rename(beside.c_str(), path.c_str()) == 0) return;
    unlink(beside.c_str());
    not_written(path);
}

}  // namespace

std::string read_file(const std::string& path, std::size_t most)
{
    std::error_code error;
    if (fs::is_directory(path, error)) throw Failure(VEMKN_FIT_FILE, path + ": is a folder");
    std::ifstream stream(path, std::ios::binary);
    if (!stream) throw Failure(VEMKN_FIT_FILE, path + ": cannot be read");
    constexpr std::size_t PIECE = 1U << 16U;
    std::string text;
    while (stream) {
        const std::size_t before = text.size();
        text.resize(before + PIECE);
        stream.read(text.data() + before, PIECE);
        text.resize(before + static_cast<std::size_t>(stream.gcount()));
        if (text.size() > most)
            throw Failure(VEMKN_FIT_MODEL,
                          path + ": is larger than the " + std::to_string(most) +
                              " bytes that a model may have");
    }
    if (!stream.eof()) throw Failure(VEMKN_FIT_FILE, path + ": cannot be read");
    return text;
}

void write_file(const std::string& path, const std::string& text)
{
    std::error_code error;
    if (!fs::exists(path, error) || fs::is_regular_file(path, error)) {
        write_beside(path, text);
        return;
    }
    if (fs::is_directory(path, error)) throw Failure(VEMKN_FIT_FILE, path + ": is a folder");
    const int device = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (device < 0) not_written(path);
    const bool whole = wrote(device, text);
    if (close(device) != 0 || !whole) not_written(path);
}

}  // namespace vemknfit
