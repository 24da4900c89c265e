#include "output_directory.h"

#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <system_error>

#include "user_error.h"

namespace fit {

namespace fs = std::filesystem;

OutputDirectory::OutputDirectory(const fs::path& path)
    : path_(path), waiting_(path / (".vemkn-fit-" + std::to_string(getpid())))
{
    std::error_code error;
    made_ = fs::create_directories(path_, error);
    if (!error) fs::create_directory(waiting_, error);
    if (error) throw UserError("--out " + path.string() + ": " + error.message());
}

OutputDirectory::~OutputDirectory()
{
    std::error_code ignored;
    fs::remove_all(waiting_, ignored);
    if (made_) fs::remove(path_, ignored);  // goes only if it is empty
}

void OutputDirectory::write(const std::string& name, const std::string& text)
{
    std::ofstream file(waiting_ / name, std::ios::binary);
    file << text;
    file.close();
    if (!file) throw std::runtime_error((path_ / name).string() + " could not be written");
}

void OutputDirectory::commit(const std::vector<std::string>& stale)
{
    for (const std::string& name : stale)
        if (!fs::exists(waiting_ / name)) fs::remove(path_ / name);
    for (const auto& entry : fs::directory_iterator(waiting_))
        fs::rename(entry.path(), path_ / entry.path().filename());
    made_ = false;
}

}  // namespace fit
