#ifndef VEMKN_TAO_ROWS_H
#define VEMKN_TAO_ROWS_H

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace vemkn_tao {

/** A file of rows: 8 bytes "VEMKROWS", then three unsigned 64-bit numbers, rows, inputs and outputs,
 * then row after row of inputs and outputs as doubles. Everything is little-endian, as the machines
 * are that the library runs on. Every row lies at a place that the header gives, so each rank reads
 * its own rows and no others. */
struct Header {
    std::uint64_t rows = 0;
    std::uint64_t inputs = 0;
    std::uint64_t outputs = 0;

    std::uint64_t columns() const { return inputs + outputs; }
};

/// A block of rows in memory; `x` is count x inputs, `y` is count x outputs, both row by row.
struct Rows {
    Header file;
    std::uint64_t first = 0;
    std::uint64_t count = 0;
    std::vector<double> x;
    std::vector<double> y;
};

/** Reads the share of one rank: blocks of rows in rank order, whose lengths differ by one at most.
 * @return the rows, none where there are more ranks than rows
 * @throws std::runtime_error if there is no such file, it is none of rows, or its length is not the
 *         one that the header calls for; if one of the rows holds a number that is not finite; if
 *         they have more values than one call of the library takes. */
Rows read_share(const std::string& path, int rank, int ranks);

/// Writes a file of rows piece by piece, so that it may be larger than the memory.
class RowsWriter {
public:
    /// @throws std::runtime_error if the file cannot be written, here and below.
    RowsWriter(const std::string& path, const Header& header);

    /// Appends `count` rows; `x` is count x inputs, `y` is count x outputs.
    void append(const double* x, const double* y, std::uint64_t count);

    /// To be called at the end: what was not written may come to light only here.
    void close();

private:
    std::string path_;
    Header header_;
    std::ofstream file_;
    std::vector<double> block_;
};

}  // namespace vemkn_tao

#endif
