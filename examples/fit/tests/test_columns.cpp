// Reading of CSV files and the choice of columns.
#include <gtest/gtest.h>

#include <algorithm>

#include "columns.h"
#include "temporary.h"
#include "user_error.h"

namespace {

using fit::Columns;
using fit::CsvTable;
using fit::UserError;

template <class Call>
std::string error_of(Call call)
{
    try {
        call();
    } catch (const UserError& error) {
        return error.what();
    }
    return "no error";
}

class Csv : public testing::Test {
protected:
    CsvTable read(const std::string& text)
    {
        path = folder.write("t.csv", text);
        return fit::read_csv(path);
    }

    std::string error(const std::string& text)
    {
        const std::string what = error_of([&] { read(text); });
        return what.starts_with(path) ? what.substr(path.size()) : what;
    }

    std::string choice_error(const std::string& text, const fit::ColumnChoice& choice)
    {
        const CsvTable table = read(text);
        const std::string what = error_of([&] { fit::choose_columns(table, choice); });
        return what.starts_with(path) ? what.substr(path.size()) : what;
    }

    TemporaryFolder folder;
    std::string path;
};

TEST_F(Csv, KeepsHeaderCellsAndLines)
{
    const CsvTable table = read("a,b\n1,2\n\n3,4\n");
    EXPECT_EQ(table.header, (std::vector<std::string>{"a", "b"}));
    ASSERT_EQ(table.rows.size(), 2U);
    EXPECT_EQ(table.rows[1], (std::vector<std::string>{"3", "4"}));
    EXPECT_EQ(table.lines, (std::vector<std::size_t>{2, 4}));
}

TEST_F(Csv, TakesMarkCarriageReturnsQuotesAndNoLastNewline)
{
    const CsvTable table = read("\xEF\xBB\xBF\"a, 1\",b\r\n\"say \"\"x\"\"\",2\r\n3,4");
    EXPECT_EQ(table.header, (std::vector<std::string>{"a, 1", "b"}));
    ASSERT_EQ(table.rows.size(), 2U);
    EXPECT_EQ(table.rows[0][0], "say \"x\"");
    EXPECT_EQ(table.rows[1][1], "4");
}

TEST_F(Csv, TakesSemicolonsAndTabsWhereTheHeaderHasNoComma)
{
    for (const char separator : {';', '\t'}) {
        std::string text = "\n\"a,1\"|b\n1,5|2\n|\n";
        std::replace(text.begin(), text.end(), '|', separator);
        const CsvTable table = read(text);
        EXPECT_EQ(table.header, (std::vector<std::string>{"a,1", "b"}));
        ASSERT_EQ(table.rows.size(), 2U);
        EXPECT_EQ(table.rows[0], (std::vector<std::string>{"1,5", "2"}));
        EXPECT_EQ(table.rows[1], (std::vector<std::string>{"", ""}));
        EXPECT_NE(table.note.find("separate cells"), std::string::npos);
    }
    EXPECT_EQ(read("\"a;b\"\n1\n").header, std::vector<std::string>{"a;b"});
    EXPECT_EQ(read("a;b,c\n1,2\n").header, (std::vector<std::string>{"a;b", "c"}));
    EXPECT_TRUE(read("a;b,c\n1,2\n").note.empty());
}

TEST_F(Csv, CountsLinesOverQuotedNewlines)
{
    const CsvTable table = read("a,b\n\"one\n\ntwo\",2\n3,4\n");
    EXPECT_EQ(table.rows[0][0], "one\n\ntwo");
    EXPECT_EQ(table.lines, (std::vector<std::size_t>{2, 5}));
}

TEST_F(Csv, RefusesWhatIsNoTable)
{
    EXPECT_EQ(error(""), ": the file is empty; a header row with column names is needed");
    EXPECT_EQ(error("\n\n"), ": the file is empty; a header row with column names is needed");
    EXPECT_EQ(error("a,b\n"), ": no rows below the header");
    EXPECT_EQ(error("a,b\n1,2\n3\n"), ":3: 1 cells, the header has 2");
    EXPECT_EQ(error("a,a\n1,2\n"), ":1: column name 'a' appears twice");
    EXPECT_EQ(error("a,b\n1,\"2\n"), ":2: a quoted cell is not closed");
    EXPECT_NE(error("a,b\n1,\"2\"x\n").find(":2: "), std::string::npos);
}

TEST_F(Csv, RefusesWhatIsNoFile)
{
    EXPECT_THROW(fit::read_csv(folder / "missing.csv"), UserError);
    EXPECT_THROW(fit::read_csv(folder / "."), UserError);
}

TEST_F(Csv, KnowsHowOthersWriteAMissingCell)
{
    for (const std::string cell :
         {"", "NA", "NaN", "nan", "n/a", "#N/A", "NULL", "None", ".", "-", "?"}) {
        const std::string text = "a,y\n1,2\n" + cell + ",3\n";
        const Columns columns = fit::choose_columns(read(text), {{"y"}, {}, true});
        EXPECT_EQ(columns.dropped, 1U) << cell;
        EXPECT_NE(choice_error(text, {{"y"}, {}, false}).find(":3:1: \"" + cell),
                  std::string::npos);
    }
    EXPECT_NE(choice_error("a,y\nnone of it,2\n", {{"y"}, {}, true}).find("is not a number"),
              std::string::npos);
}

TEST_F(Csv, ReadsDecimalCommasWhereAskedTo)
{
    const std::string text = "a;y\n1,5;-2,25e1\n";
    EXPECT_EQ(
        choice_error(text, {{"y"}, {}, false}),
        ":2:1: \"1,5\" in column 'a' is not a number; --decimal-comma reads a comma as a point");
    const Columns columns = fit::choose_columns(read(text), {{"y"}, {}, false, true});
    EXPECT_EQ(columns.inputs(0, 0), 1.5);
    EXPECT_EQ(columns.targets(0, 0), -22.5);
    for (const char* cell : {"1,500.5", "1,500,000"})
        EXPECT_NE(choice_error("a;y\n" + std::string(cell) + ";1\n", {{"y"}, {}, false, true})
                      .find("is not a number"),
                  std::string::npos);
}

// As R and pandas number rows.
TEST_F(Csv, LeavesAColumnWithoutANameOut)
{
    const std::string text = "\"\",a,y\n1,5,6\n2,7,9\n";
    const Columns columns = fit::choose_columns(read(text), {{"y"}, {}, false});
    EXPECT_EQ(columns.input_names, std::vector<std::string>{"a"});
    EXPECT_EQ(columns.notes, std::vector<std::string>{"the column without a name is no input"});
    EXPECT_TRUE(fit::choose_columns(read(text), {{"y"}, {"a"}, false}).notes.empty());
}

TEST_F(Csv, ChoosesAllOtherColumnsAsInputs)
{
    const Columns columns =
        fit::choose_columns(read("a,y,b\n1,2,3\n-4e1,+5,.5\n"), {{"y"}, {}, false});
    EXPECT_EQ(columns.input_names, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(columns.inputs, (fit::Matrix{{1, 3}, {-40, 0.5}}));
    EXPECT_EQ(columns.targets, (fit::Matrix{{2}, {5}}));
}

TEST_F(Csv, LeavesTextInOtherColumnsAlone)
{
    const Columns columns = fit::choose_columns(read("name,x,y\nfoo,1,2\n"), {{"y"}, {"x"}, false});
    EXPECT_EQ(columns.inputs, (fit::Matrix{{1}}));
}

TEST_F(Csv, NamesLineAndColumnOfABadCell)
{
    const std::string text = "x,y\n1,2\n\n3,abc\n";
    EXPECT_EQ(choice_error(text, {{"y"}, {}, false}),
              ":4:2: \"abc\" in column 'y' is not a number");
    for (const char* cell : {"1x", "nan", "inf", "1,5", "0x10", "+-1"})
        EXPECT_NE(choice_error("x,y\n\"" + std::string(cell) + "\",2\n", {{"y"}, {}, false})
                      .find(":2:1: "),
                  std::string::npos)
            << cell;
    EXPECT_EQ(choice_error("x,y\n1e999,2\n", {{"y"}, {}, false}),
              ":2:1: \"1e999\" in column 'x' is out of range");
}

TEST_F(Csv, DropsMissingRowsOnlyIfAsked)
{
    const std::string text = "x,y\n1,2\nNA,3\n4,\n5,6\n";
    EXPECT_EQ(choice_error(text, {{"y"}, {}, false}),
              ":3:1: \"NA\" in column 'x' is missing; --drop-missing leaves such rows out");
    const Columns columns = fit::choose_columns(read(text), {{"y"}, {}, true});
    EXPECT_EQ(columns.dropped, 2U);
    EXPECT_EQ(columns.lines, (std::vector<std::size_t>{2, 5}));
    EXPECT_EQ(choice_error("x,y\nNA,1\n", {{"y"}, {}, true}), ": every row has a missing value");
}

TEST_F(Csv, RefusesNamesThatAreUnknownOrUsedTwice)
{
    EXPECT_EQ(choice_error("x,y\n1,2\n", {{"z"}, {}, false}), ": no column 'z'; there are x, y");
    EXPECT_EQ(choice_error("x,y\n1,2\n", {{"y"}, {"x", "y"}, false}), "column 'y' is chosen twice");
    EXPECT_EQ(choice_error("y\n1\n", {{"y"}, {}, false}), ": no column is left as an input");
}

}  // namespace
