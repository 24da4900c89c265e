#ifndef VEMKN_FIT_OUTPUT_DIRECTORY_H
#define VEMKN_FIT_OUTPUT_DIRECTORY_H

#include <filesystem>
#include <string>
#include <vector>

namespace fit {

/** A folder that receives all of its files or none: they are written into a folder inside it and
 * moved out by commit(). What has not been committed is removed again. */
class OutputDirectory {
public:
    /// @throw UserError if there is no folder to be had of that name
    explicit OutputDirectory(const std::filesystem::path& path);
    ~OutputDirectory();
    OutputDirectory(const OutputDirectory&) = delete;
    OutputDirectory& operator=(const OutputDirectory&) = delete;

    /// @throw std::runtime_error if the text cannot be written in full
    void write(const std::string& name, const std::string& text);

    /// Where files wait for commit().
    const std::filesystem::path& waiting() const { return waiting_; }

    /// @param[in] stale  files of an earlier run that go unless this one has made them anew
    void commit(const std::vector<std::string>& stale);

private:
    std::filesystem::path path_;
    std::filesystem::path waiting_;
    bool made_ = false;  ///< the folder was not there before
};

}  // namespace fit

#endif
