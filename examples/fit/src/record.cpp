#include "record.h"

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

namespace fit {

namespace fs = std::filesystem;

namespace {

/// FNV-1a: against mistakes, not against intent.
std::uint64_t checksum(std::string_view text)
{
    std::uint64_t sum = 0xcbf29ce484222325U;
    for (const char c : text) sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    return sum;
}

std::string line(const std::string& name, std::string_view text)
{
    return "checksum." + name + "=" + std::to_string(checksum(text)) + "\n";
}

/// @return nothing if it is no regular file: a run writes no links, and a pipe would not end
std::string content(const fs::path& path)
{
    std::error_code ignored;
    if (!fs::is_regular_file(fs::symlink_status(path, ignored))) return "";
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

}  // namespace

Record::Record(const fs::path& folder) : folder_(folder), summary_(content(folder / file))
{
    const std::size_t last = summary_.rfind("checksum.");
    if (last == std::string::npos ||
        summary_.substr(last) != line(file, std::string_view(summary_).substr(0, last)))
        summary_.clear();
}

bool Record::wrote(const std::string& name) const
{
    if (name == file) return !summary_.empty();
    const std::string text = content(folder_ / name);
    return !text.empty() && summary_.find("\n" + line(name, text)) != std::string::npos;
}

std::string Record::lines(const std::string& summary,
                          const fs::path& folder,
                          const std::vector<std::string>& files)
{
    std::string text;
    for (const std::string& name : files) text += line(name, content(folder / name));
    return text + line(file, summary + text);
}

}  // namespace fit
