#ifndef VEMKN_FIT_OUTPUT_DIRECTORY_H
#define VEMKN_FIT_OUTPUT_DIRECTORY_H

#include <filesystem>
#include <string>
#include <vector>

namespace fit {

/** A folder that receives all files of a run or none: they are written into a folder inside it and
 * moved out by commit(). What has not been committed is removed again. They take the place of files
 * that an earlier run left there (record.h), and of no others. */
class OutputDirectory {
public:
    /** Changes nothing yet, so that what is wrong shows before the fit.
     * @param[in] input  the data file
     * @param[in] plot   whether the run draws a plot
     * @throw UserError if it is no folder, if the input is one of its files that a run makes or
     *        removes, or if this run would replace a file that no earlier run is known to have left */
    OutputDirectory(std::filesystem::path path, std::filesystem::path input, bool plot);
    ~OutputDirectory();
    OutputDirectory(const OutputDirectory&) = delete;
    OutputDirectory& operator=(const OutputDirectory&) = delete;

    /** Checks once more, and makes the folder.
     * @throw UserError as the constructor, or if there is no folder to be had of that name */
    void open();

    /// @throw std::runtime_error if the text cannot be written in full
    void write(const std::string& name, const std::string& text);

    /// Where files wait for commit().
    const std::filesystem::path& waiting() const { return waiting_; }

    /** Adds the summary with the record of all files, moves them out, and removes those of an earlier
     * run that this one has not made anew.
     * @return names that are not this run's, but those of files that are there */
    std::vector<std::string> commit(const std::string& summary);

private:
    void check() const;

    std::filesystem::path path_;
    std::filesystem::path input_;
    std::vector<std::string> makes_;
    std::filesystem::path waiting_;
    bool made_ = false;  ///< the folder was not there before
};

}  // namespace fit

#endif
