#include "output_directory.h"

#include <stdlib.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "record.h"
#include "text.h"
#include "user_error.h"

namespace fit {

namespace fs = std::filesystem;

namespace {

const std::vector<std::string> always_made{
    "model.json", "weights.txt", "predictions.csv", Record::file};
const std::vector<std::string> made_for_plot{"curve.csv", "medians.csv", "plot.gp", "plot.png"};

std::vector<std::string> joined(std::vector<std::string> names,
                                const std::vector<std::string>& more)
{
    names.insert(names.end(), more.begin(), more.end());
    return names;
}

/// A link that leads nowhere is there, too.
bool is_there(const fs::path& path)
{
    std::error_code error;
    return fs::symlink_status(path, error).type() != fs::file_type::not_found;
}

}  // namespace

OutputDirectory::OutputDirectory(fs::path path, fs::path input, bool plot)
    : path_(std::move(path)),
      input_(std::move(input)),
      makes_(plot ? joined(always_made, made_for_plot) : always_made)
{
    check();
}

OutputDirectory::~OutputDirectory()
{
    std::error_code ignored;
    if (!waiting_.empty()) fs::remove_all(waiting_, ignored);
    if (made_) fs::remove(path_, ignored);  // goes only if it is empty
}

void OutputDirectory::check() const
{
    const std::string option = "--out " + path_.string() + ": ";
    std::error_code ignored;
    if (fs::exists(path_, ignored) && !fs::is_directory(path_, ignored))
        throw UserError(option + "is not a folder");
    for (const std::string& name : joined(always_made, made_for_plot))
        if (fs::equivalent(path_ / name, input_, ignored))
            throw UserError(option + name + " there is the data file " + input_.string() +
                            ", which a run would replace or remove; choose another folder");
    const Record earlier(path_);
    std::vector<std::string> foreign;
    for (const std::string& name : makes_)
        if (is_there(path_ / name) && !earlier.wrote(name)) foreign.push_back(name);
    if (!foreign.empty())
        throw UserError(option +
                        "would replace what is not known to be from an earlier run, or was "
                        "changed since: " +
                        join(foreign, ", ") + "; move it away or choose another folder");
}

void OutputDirectory::open()
{
    check();
    std::error_code error;
    made_ = fs::create_directories(path_, error);
    std::string unique = (path_ / ".vemkn-fit-XXXXXX").string();
    if (!error && !mkdtemp(unique.data())) error.assign(errno, std::generic_category());
    if (error) throw UserError("--out " + path_.string() + ": " + error.message());
    waiting_ = unique;
}

void OutputDirectory::write(const std::string& name, const std::string& text)
{
    std::ofstream file(waiting_ / name, std::ios::binary);
    file << text;
    file.close();
    if (!file) throw std::runtime_error((path_ / name).string() + " could not be written");
}

std::vector<std::string> OutputDirectory::commit(const std::string& summary)
{
    const Record earlier(path_);
    std::vector<std::string> made;
    std::vector<std::string> stale;
    std::vector<std::string> foreign;
    for (const std::string& name : joined(always_made, made_for_plot)) {
        if (fs::exists(waiting_ / name))
            made.push_back(name);
        else if (name != Record::file && is_there(path_ / name))
            (earlier.wrote(name) ? stale : foreign).push_back(name);
    }
    write(Record::file, summary + Record::lines(summary, waiting_, made));
    made.emplace_back(Record::file);
    for (const std::string& name : stale) fs::remove(path_ / name);
    for (const std::string& name : made) fs::rename(waiting_ / name, path_ / name);
    made_ = false;
    return foreign;
}

}  // namespace fit
