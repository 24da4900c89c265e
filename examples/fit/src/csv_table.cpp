#include "csv_table.h"

#include <csv.h>

#include <set>
#include <utility>

#include "data_text.h"
#include "user_error.h"

namespace fit {
namespace {

/// libcsv's callbacks and what they collect.
class Reader {
public:
    explicit Reader(const std::string& path) : path_(path)
    {
        if (csv_init(&parser_, CSV_STRICT | CSV_STRICT_FINI) != 0) throw std::bad_alloc();
    }

    ~Reader() { csv_free(&parser_); }

    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    /// libcsv knows no line numbers, so it is fed a line at a time.
    void line(const std::string& text)
    {
        ++line_;
        if (line_ == 1 && is_separator(text)) return;
        if (table_.header.empty() && !inside_row_ && !separator_given_) choose_separator(text);
        // A row goes on over a line's end inside quotes; only then are cells or a quote pending.
        if (!inside_row_) row_line_ = line_;
        inside_row_ = text.find_first_not_of(" \t\r\n") != std::string::npos || inside_row_;
        if (csv_parse(&parser_, text.data(), text.size(), on_cell, on_row, this) != text.size())
            fail(csv_strerror(csv_error(&parser_)));
    }

    void finish()
    {
        if (csv_fini(&parser_, on_cell, on_row, this) != 0) fail("a quoted cell is not closed");
    }

    CsvTable table()
    {
        table_.path = path_;
        return std::move(table_);
    }

private:
    /// Spreadsheets write "sep=;" above the header, and take it so.
    bool is_separator(const std::string& first)
    {
        const std::string said = "sep=";
        const std::size_t end = first.find_last_not_of("\r\n");
        if (!first.starts_with(said) || end != said.size() || first[end] == '"') return false;
        csv_set_delim(&parser_, static_cast<unsigned char>(first[end]));
        separator_given_ = true;
        return true;
    }

    void choose_separator(const std::string& header)
    {
        std::string bare;  // what lies in quotes separates nothing
        bool quoted = false;
        for (const char c : header) {
            if (c == '"') quoted = !quoted;
            if (!quoted) bare += c;
        }
        if (bare.find(',') != std::string::npos) return;
        for (const auto& [separator, name] :
             {std::pair(';', "semicolons"), std::pair('\t', "tabs")}) {
            if (bare.find(separator) == std::string::npos) continue;
            csv_set_delim(&parser_, static_cast<unsigned char>(separator));
            table_.note = std::string("the header has no comma: ") + name + " separate cells";
            return;
        }
    }

    static void on_cell(void* text, std::size_t length, void* self)
    {
        static_cast<Reader*>(self)->row_.emplace_back(static_cast<const char*>(text), length);
    }

    static void on_row(int /*end*/, void* self) { static_cast<Reader*>(self)->end_row(); }

    void end_row()
    {
        inside_row_ = false;
        if (table_.header.empty()) {
            table_.header = std::move(row_);
            table_.header_line = row_line_;
        } else {
            table_.rows.push_back(std::move(row_));
            table_.lines.push_back(row_line_);
        }
        row_.clear();
    }

    [[noreturn]] void fail(const std::string& what) const
    {
        throw UserError(path_ + ":" + std::to_string(row_line_) + ": " + what);
    }

    std::string path_;
    csv_parser parser_{};
    CsvTable table_;
    std::vector<std::string> row_;
    std::size_t line_ = 0;
    std::size_t row_line_ = 0;
    bool inside_row_ = false;
    bool separator_given_ = false;
};

void check(const CsvTable& table)
{
    if (table.header.empty())
        throw UserError(table.path +
                        ": the file is empty; a header row with column names is needed");
    std::set<std::string> seen;
    for (const std::string& name : table.header)
        if (!seen.insert(name).second)
            throw UserError(table.path + ":" + std::to_string(table.header_line) +
                            ": column name '" + name + "' appears twice");
    if (table.rows.empty()) throw UserError(table.path + ": no rows below the header");
    for (std::size_t i = 0; i < table.rows.size(); ++i)
        if (table.rows[i].size() != table.header.size())
            throw UserError(table.path + ":" + std::to_string(table.lines[i]) + ": " +
                            std::to_string(table.rows[i].size()) + " cells, the header has " +
                            std::to_string(table.header.size()));
}

}  // namespace

CsvTable read_csv(const std::string& path)
{
    DataText lines(path);
    Reader reader(data_name(path));
    for (std::string text; lines.next(text);) reader.line(text);
    reader.finish();
    CsvTable table = reader.table();
    check(table);
    return table;
}

}  // namespace fit
