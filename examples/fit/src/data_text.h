#ifndef VEMKN_FIT_DATA_TEXT_H
#define VEMKN_FIT_DATA_TEXT_H

#include <memory>
#include <string>

namespace fit {

/// What messages and reports call the file: "-" is standard input.
std::string data_name(const std::string& path);

/// The lines of a text file in UTF-8, whichever of these it holds: plain text or gzip's, UTF-8 or UTF-16 with a byte order mark,
/// lines that end in LF, CR LF or CR.
class DataText {
public:
    /// @param path "-" is standard input
    /// @throw UserError naming the file: it cannot be read, or holds another kind of data, and what to do then
    explicit DataText(const std::string& path);
    ~DataText();
    DataText(const DataText&) = delete;
    DataText& operator=(const DataText&) = delete;

    /// The next line, with its end if it has one; false after the last line.
    /// @throw UserError naming the file: it cannot be read to its end, or is no text
    bool next(std::string& line);

private:
    class Bytes;
    class FromUtf16;

    bool refill();
    void recognise();
    void check(const std::string& text) const;

    std::string name_;
    std::unique_ptr<Bytes> bytes_;
    std::unique_ptr<FromUtf16> from_utf16_;  ///< if that is what the file holds
    std::string text_;                       ///< what has been read and not given yet, from at_ on
    std::size_t at_ = 0;
};

}  // namespace fit

#endif
