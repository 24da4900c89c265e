#include "data_text.h"

#include <fcntl.h>
#include <iconv.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <new>
#include <string_view>
#include <system_error>

#include "user_error.h"

namespace fit {
namespace {

constexpr std::size_t CHUNK = std::size_t{1} << 17;

constexpr std::string_view UTF8_MARK = "\xEF\xBB\xBF";
constexpr std::string_view UTF16_LITTLE_MARK = "\xFF\xFE";
constexpr std::string_view UTF16_BIG_MARK = "\xFE\xFF";

/// How files begin that users take for tables, and are none, or not yet.
struct Kind {
    std::string_view beginning;
    const char* meaning;
};

using namespace std::string_view_literals;
constexpr std::array<Kind, 8> OTHER_KINDS{{
    {"PK\x03\x04"sv, "is a zip archive or a spreadsheet (.xlsx, .ods); save the sheet as CSV"},
    {"\xD0\xCF\x11\xE0"sv, "is a spreadsheet (.xls); save the sheet as CSV"},
    {"PAR1"sv, "is a Parquet file; export it as CSV"},
    {"BZh"sv, "is compressed by bzip2; only gzip is read: unpack it first"},
    {"\xFD"
     "7zXZ"sv,
     "is compressed by xz; only gzip is read: unpack it first"},
    {"\x28\xB5\x2F\xFD"sv, "is compressed by zstd; only gzip is read: unpack it first"},
    {"\xFF\xFE\x00\x00"sv, "is in UTF-32; save it as UTF-8"},
    {"\x00\x00\xFE\xFF"sv, "is in UTF-32; save it as UTF-8"},
}};

/// What iconv_open returns for an encoding that it does not know.
void* const NO_CONVERSION = std::bit_cast<void*>(std::intptr_t{-1});

}  // namespace

std::string data_name(const std::string& path)
{
    return path == "-" ? "standard input" : path;
}

/// The bytes of a file; zlib unpacks those of gzip and passes on all others as they are.
class DataText::Bytes {
public:
    explicit Bytes(const std::string& path) : name_(data_name(path))
    {
        std::error_code ignored;
        if (path != "-" && std::filesystem::is_directory(path, ignored))
            throw UserError(name_ + ": is a directory");
        const int descriptor =
            path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor < 0) throw UserError(name_ + ": " + std::strerror(errno));
        file_ = gzdopen(descriptor, "rb");
        if (file_ == nullptr) {
            close(descriptor);
            throw std::bad_alloc();
        }
        gzbuffer(file_, CHUNK);
    }

    ~Bytes() { gzclose_r(file_); }

    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;

    /// Adds a piece; false at the end.
    bool append_to(std::string& text)
    {
        const std::size_t before = text.size();
        text.resize(before + CHUNK);
        const int read = gzread(file_, text.data() + before, CHUNK);
        text.resize(before + static_cast<std::size_t>(read > 0 ? read : 0));
        if (read > 0) return true;
        const int seen = errno;
        int error = Z_OK;
        gzerror(file_, &error);
        if (error == Z_MEM_ERROR) throw std::bad_alloc();
        if (error == Z_ERRNO) throw UserError(name_ + ": " + std::strerror(seen));
        if (error == Z_BUF_ERROR)
            throw UserError(name_ +
                            ": the compressed file ends too early: a part of it is missing");
        if (error != Z_OK) throw UserError(name_ + ": the compressed file is damaged");
        return false;
    }

private:
    std::string name_;
    gzFile file_ = nullptr;
};

/// UTF-8 from UTF-16, piece by piece.
class DataText::FromUtf16 {
public:
    FromUtf16(const std::string& name, const char* encoding)
        : name_(name), descriptor_(iconv_open("UTF-8", encoding))
    {
        if (descriptor_ == NO_CONVERSION)
            throw UserError(name_ + ": is in UTF-16, which cannot be converted here: " +
                            std::strerror(errno) + "; save it as UTF-8");
    }

    ~FromUtf16() { iconv_close(descriptor_); }

    FromUtf16(const FromUtf16&) = delete;
    FromUtf16& operator=(const FromUtf16&) = delete;

    /// Takes a piece, of which the start of a character may stay for the next one.
    std::string operator()(const std::string& piece)
    {
        left_ += piece;
        // Two bytes make three at most, four make four.
        std::string text(left_.size() / 2 * 3 + 4, '\0');
        char* from = left_.data();
        char* to = text.data();
        std::size_t unread = left_.size(), room = text.size();
        if (iconv(descriptor_, &from, &unread, &to, &room) == static_cast<std::size_t>(-1) &&
            errno != EINVAL)
            throw UserError(name_ + ": is not the UTF-16 that its byte order mark announces");
        left_.erase(0, left_.size() - unread);
        text.resize(text.size() - room);
        return text;
    }

    void end() const
    {
        if (!left_.empty())
            throw UserError(name_ + ": its UTF-16 ends in the middle of a character");
    }

private:
    std::string name_;
    iconv_t descriptor_;
    std::string left_;
};

DataText::DataText(const std::string& path)
    : name_(data_name(path)), bytes_(std::make_unique<Bytes>(path))
{
    while (text_.size() < 4 && bytes_->append_to(text_)) {
    }
    recognise();
    check(text_);
}

DataText::~DataText() = default;

void DataText::recognise()
{
    for (const Kind& kind : OTHER_KINDS)
        if (text_.starts_with(kind.beginning)) throw UserError(name_ + ": " + kind.meaning);
    if (text_.starts_with(UTF8_MARK)) text_.erase(0, UTF8_MARK.size());
    const bool little = text_.starts_with(UTF16_LITTLE_MARK);
    if (!little && !text_.starts_with(UTF16_BIG_MARK)) return;
    from_utf16_ = std::make_unique<FromUtf16>(name_, little ? "UTF-16LE" : "UTF-16BE");
    text_ = (*from_utf16_)(text_.substr(UTF16_LITTLE_MARK.size()));
}

void DataText::check(const std::string& text) const
{
    if (text.find('\0') != std::string::npos)
        throw UserError(name_ +
                        ": holds NUL bytes: it is no text, or UTF-16 without a byte order mark; "
                        "save it as UTF-8");
}

bool DataText::refill()
{
    text_.clear();
    at_ = 0;
    while (text_.empty()) {
        if (!bytes_->append_to(text_)) {
            if (from_utf16_) from_utf16_->end();
            return false;
        }
        if (from_utf16_) text_ = (*from_utf16_)(text_);
        check(text_);
    }
    return true;
}

bool DataText::next(std::string& line)
{
    line.clear();
    while (at_ < text_.size() || refill()) {
        const std::size_t end = text_.find_first_of("\r\n", at_);
        if (end == std::string::npos) {
            line.append(text_, at_);
            at_ = text_.size();
            continue;
        }
        line.append(text_, at_, end + 1 - at_);
        at_ = end + 1;
        if (line.back() == '\r' && (at_ < text_.size() || refill()) && text_[at_] == '\n')
            line += text_[at_++];
        return true;
    }
    return !line.empty();
}

}  // namespace fit
