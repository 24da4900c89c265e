// Reading of data files as people have them: compressed, in other encodings, with other ends of lines.
#include <gtest/gtest.h>

#include <algorithm>

#include "csv_table.h"
#include "data_text.h"
#include "temporary.h"
#include "user_error.h"

namespace {

using fit::DataText;
using fit::UserError;

using Lines = std::vector<std::string>;

class Text : public testing::Test {
protected:
    Lines lines(const std::string& bytes) { return lines_of_file(folder.write("t.csv", bytes)); }

    static Lines lines_of_file(const std::string& path)
    {
        DataText text(path);
        Lines all;
        for (std::string line; text.next(line);) all.push_back(line);
        return all;
    }

    std::string error(const std::string& bytes)
    {
        const std::string path = folder.write("t.csv", bytes);
        try {
            lines_of_file(path);
        } catch (const UserError& error) {
            const std::string what = error.what();
            EXPECT_TRUE(what.starts_with(path + ": ")) << what;
            return what.substr(std::min(what.size(), path.size() + 2));
        }
        return "no error";
    }

    /// What the program gzip makes of it.
    std::string gzipped(const std::string& bytes)
    {
        const std::string path = folder.write("z", bytes);
        EXPECT_EQ(std::system(("gzip -nf '" + path + "'").c_str()), 0);
        return read_text(path + ".gz");
    }

    TemporaryFolder folder;
};

std::string utf16(const std::u16string& text, bool little)
{
    std::string bytes;
    for (const char16_t unit : u'\uFEFF' + text) {
        const char high = static_cast<char>(unit >> 8), low = static_cast<char>(unit & 255);
        bytes += little ? low : high;
        bytes += little ? high : low;
    }
    return bytes;
}

TEST_F(Text, KeepsEveryEndOfALine)
{
    EXPECT_EQ(lines("a\nb\r\nc\rd\r\re"), (Lines{"a\n", "b\r\n", "c\r", "d\r", "\r", "e"}));
    EXPECT_EQ(lines("a\r\n"), Lines{"a\r\n"});
    EXPECT_EQ(lines("a\r"), Lines{"a\r"});
    EXPECT_EQ(lines(""), Lines{});
    EXPECT_EQ(lines("\xEF\xBB\xBF"
                    "a"),
              Lines{"a"});
    EXPECT_EQ(lines("\xEF\xBB\xBF"), Lines{});
}

TEST_F(Text, ReadsGzipAndUtf16)
{
    const Lines expected{"x,\xC3\xA9\n", "\xF0\x9F\x98\x80,2\r\n", "3"};
    const std::u16string wide = u"x,\u00E9\n\U0001F600,2\r\n3";
    const std::string plain = expected[0] + expected[1] + expected[2];
    EXPECT_EQ(lines(gzipped(plain)), expected);
    EXPECT_EQ(lines(gzipped(plain) + gzipped("4")).back(), "34") << "parts one after the other";
    for (const bool little : {true, false}) {
        EXPECT_EQ(lines(utf16(wide, little)), expected);
        EXPECT_EQ(lines(gzipped(utf16(wide, little))), expected);
        EXPECT_EQ(lines(utf16(u"", little)), Lines{});
    }
}

// Longer than what is read at a time, so that lines, their ends and characters lie across its borders.
TEST_F(Text, IsTheSameWhereverPiecesEnd)
{
    Lines expected;
    std::u16string wide;
    std::string plain;
    for (int i = 0; plain.size() < 900'000; ++i) {
        std::string line;
        for (int j = 0; j < i % 7; ++j) {
            line += "\xF0\x9F\x98\x80";
            wide += u"\U0001F600";
        }
        line.append(static_cast<std::size_t>(i % 3), 'x');
        wide.append(static_cast<std::size_t>(i % 3), u'x');
        line += "\r\n";
        wide += u"\r\n";
        plain += line;
        expected.push_back(line);
    }
    for (const std::size_t shift : {0U, 1U, 2U, 3U, 4U, 5U}) {
        const std::string before = std::string(shift, '-');
        expected[0] = before + "\r\n";
        const std::u16string wide_before(shift, u'-');
        EXPECT_TRUE(lines(before + plain) == expected) << shift;
        EXPECT_TRUE(lines(utf16(wide_before + wide, true)) == expected) << shift;
        EXPECT_TRUE(lines(utf16(wide_before + wide, false)) == expected) << shift;
    }
    EXPECT_TRUE(lines(gzipped("-----" + plain)) == expected);
    const std::string long_line(1'000'000, 'y');
    EXPECT_TRUE(lines(long_line) == Lines{long_line});
}

TEST_F(Text, NamesWhatItCannotRead)
{
    EXPECT_EQ(error("PK\x03\x04rest"),
              "is a zip archive or a spreadsheet (.xlsx, .ods); save the sheet as CSV");
    EXPECT_EQ(error("BZh91AY"), "is compressed by bzip2; only gzip is read: unpack it first");
    EXPECT_EQ(error(std::string("\xFF\xFE\0\0a\0\0\0", 8)), "is in UTF-32; save it as UTF-8");
    const std::string nul =
        "holds NUL bytes: it is no text, or UTF-16 without a byte order mark; save it as UTF-8";
    EXPECT_EQ(error(std::string("a\0,\0", 4)), nul);
    EXPECT_EQ(error(std::string(400'000, 'a') + std::string(1, '\0')), nul);
    EXPECT_EQ(error(utf16(std::u16string{u'a', u'\0'}, true)), nul);
    EXPECT_EQ(error(utf16(u"ab", true) + "c"), "its UTF-16 ends in the middle of a character");
    EXPECT_EQ(error(utf16(std::u16string{u'a', 0xDC00}, true)),
              "is not the UTF-16 that its byte order mark announces");
    std::string packed = gzipped(std::string(1000, 'a') + "b");
    EXPECT_EQ(error(packed.substr(0, packed.size() - 9)),
              "the compressed file ends too early: a part of it is missing");
    packed[packed.size() - 6] ^= 1;
    EXPECT_EQ(error(packed), "the compressed file is damaged");
    EXPECT_THROW(DataText(folder / "missing"), UserError);
    EXPECT_THROW(DataText(folder / "."), UserError);
}

TEST_F(Text, SaysWhatSeparatesInItsFirstLine)
{
    for (const char separator : {';', ',', '|', '\t'})
        for (const char* end : {"\n", "\r\n", "\r"}) {
            std::string text =
                std::string("sep=;").append(end).append("a;b").append(end).append("1;2");
            std::replace(text.begin(), text.end(), ';', separator);
            const std::string path = folder.write("t.csv", text);
            const fit::CsvTable table = fit::read_csv(path);
            EXPECT_EQ(table.header, (Lines{"a", "b"}));
            ASSERT_EQ(table.rows.size(), 1U);
            EXPECT_EQ(table.rows[0], (Lines{"1", "2"}));
            EXPECT_EQ(table.lines.front(), 3U);
            EXPECT_EQ(table.note, "");
        }
    EXPECT_EQ(fit::read_csv(folder.write("t.csv", "sep=\n1\n")).header, Lines{"sep="});
    EXPECT_EQ(fit::read_csv(folder.write("t.csv", "a,sep=;\n1,2\n")).header, (Lines{"a", "sep=;"}));
}

TEST_F(Text, HasTheRightLinesWhereCarriageReturnsEndThem)
{
    const fit::CsvTable table = fit::read_csv(folder.write("t.csv", "a,b\r1,2\r\"3\r3\",4\r5,6\r"));
    EXPECT_EQ(table.lines, (std::vector<std::size_t>{2, 3, 5}));
    EXPECT_EQ(table.rows[1][0], "3\r3");
}

}  // namespace
