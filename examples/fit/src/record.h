#ifndef VEMKN_FIT_RECORD_H
#define VEMKN_FIT_RECORD_H

#include <filesystem>
#include <string>
#include <vector>

namespace fit {

/** What a run left in a folder: the last lines of its summary.txt hold a checksum of every file, and
 * of the lines before. So a file counts as the run's own as long as nobody has changed it. */
class Record {
public:
    explicit Record(const std::filesystem::path& folder);

    /// Whether the file is there as the run left it.
    bool wrote(const std::string& name) const;

    /// The lines that end the summary of a run whose [files] are in [folder].
    static std::string lines(const std::string& summary,
                             const std::filesystem::path& folder,
                             const std::vector<std::string>& files);

    static constexpr const char* file = "summary.txt";

private:
    std::filesystem::path folder_;
    std::string summary_;  ///< empty if there is none, or if it has been changed
};

}  // namespace fit

#endif
