#include "rows.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <stdexcept>

namespace vemkn_tao {
namespace {

constexpr char magic[8] = {'V', 'E', 'M', 'K', 'R', 'O', 'W', 'S'};
constexpr std::uint64_t header_bytes = sizeof magic + 3 * sizeof(std::uint64_t);
constexpr std::uint64_t most_columns = 1u << 20;
constexpr std::uint64_t block_rows = 4096;

[[noreturn]] void fail(const std::string& path, const std::string& what)
{
    throw std::runtime_error(path + " " + what);
}

std::uint64_t body_bytes(const Header& header)
{
    return header.rows * header.columns() * sizeof(double);
}

template <class T>
bool read_some(std::ifstream& file, T* to, std::uint64_t count)
{
    return bool(file.read(reinterpret_cast<char*>(to), std::streamsize(count * sizeof(T))));
}

template <class T>
bool write_some(std::ofstream& file, const T* from, std::uint64_t count)
{
    return bool(
        file.write(reinterpret_cast<const char*>(from), std::streamsize(count * sizeof(T))));
}

std::ifstream open(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) fail(path, "cannot be read");
    return file;
}

Header read_header(std::ifstream& file, const std::string& path)
{
    char found[sizeof magic];
    std::uint64_t sizes[3];
    if (!read_some(file, found, sizeof magic) || std::memcmp(found, magic, sizeof magic) != 0)
        fail(path, "is not a file of rows (it does not begin with VEMKROWS)");
    if (!read_some(file, sizes, 3)) fail(path, "ends within its header");
    const Header header{sizes[0], sizes[1], sizes[2]};
    if (header.inputs < 1 || header.inputs > most_columns || header.outputs < 1 ||
        header.outputs > most_columns)
        fail(path,
             "has " + std::to_string(header.inputs) + " inputs and " +
                 std::to_string(header.outputs) + " outputs");
    if (header.rows < 1) fail(path, "has no rows");
    if (header.rows > (1ULL << 62) / (header.columns() * sizeof(double)))
        fail(path, "claims " + std::to_string(header.rows) + " rows");
    const std::uint64_t expected = header_bytes + body_bytes(header);
    const std::uint64_t length = std::filesystem::file_size(path);
    if (length != expected)
        fail(path,
             (length < expected ? "is cut short: it has " : "is too long: it has ") +
                 std::to_string(length) + " bytes, its " + std::to_string(header.rows) +
                 " rows of " + std::to_string(header.columns()) + " columns take " +
                 std::to_string(expected));
    return header;
}

}  // namespace

Rows read_share(const std::string& path, int rank, int ranks)
{
    auto file = open(path);
    Rows rows;
    rows.file = read_header(file, path);
    const auto& [total, inputs, outputs] = rows.file;
    const auto r = std::uint64_t(rank);
    const std::uint64_t least = total / std::uint64_t(ranks);
    const std::uint64_t longer = total % std::uint64_t(ranks);  // so many shares have one row more
    rows.first = r * least + std::min(r, longer);
    rows.count = least + (r < longer ? 1 : 0);
    if (rows.count > std::numeric_limits<unsigned>::max() / outputs)
        fail(path, "gives a rank 2^32 or more values to fit; use more ranks");

    rows.x.reserve(rows.count * inputs);
    rows.y.reserve(rows.count * outputs);
    const std::uint64_t columns = rows.file.columns();
    file.seekg(std::streamoff(header_bytes + rows.first * columns * sizeof(double)));
    std::vector<double> block(std::min(block_rows, rows.count) * columns);
    for (std::uint64_t done = 0; done < rows.count; done += block_rows) {
        const std::uint64_t n = std::min(block_rows, rows.count - done);
        if (!read_some(file, block.data(), n * columns)) fail(path, "cannot be read to its end");
        for (std::uint64_t i = 0; i < n; ++i) {
            const double* row = block.data() + i * columns;
            const double* bad =
                std::find_if_not(row, row + columns, [](double v) { return std::isfinite(v); });
            if (bad != row + columns)
                fail(path,
                     "holds something not finite in row " +
                         std::to_string(rows.first + done + i + 1) + ", column " +
                         std::to_string(bad - row + 1));
            rows.x.insert(rows.x.end(), row, row + inputs);
            rows.y.insert(rows.y.end(), row + inputs, row + columns);
        }
    }
    return rows;
}

RowsWriter::RowsWriter(const std::string& path, const Header& header)
    : path_(path), header_(header), file_(path, std::ios::binary)
{
    const std::uint64_t sizes[3] = {header.rows, header.inputs, header.outputs};
    if (!write_some(file_, magic, sizeof magic) || !write_some(file_, sizes, 3))
        fail(path_, "cannot be written");
}

void RowsWriter::append(const double* x, const double* y, std::uint64_t count)
{
    block_.clear();
    for (std::uint64_t i = 0; i < count; ++i) {
        block_.insert(block_.end(), x + i * header_.inputs, x + (i + 1) * header_.inputs);
        block_.insert(block_.end(), y + i * header_.outputs, y + (i + 1) * header_.outputs);
    }
    if (!write_some(file_, block_.data(), block_.size())) fail(path_, "cannot be written");
}

void RowsWriter::close()
{
    file_.close();
    if (!file_) fail(path_, "cannot be written");
}

}  // namespace vemkn_tao
