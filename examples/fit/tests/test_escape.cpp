// What becomes of names and cells in each place that they are written to.
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cwchar>
#include <set>

#include "csv_table.h"
#include "escape.h"
#include "random_names.h"
#include "temporary.h"

namespace {

using fit::visible;

std::vector<std::string> random_names(std::size_t count, const std::string& trace)
{
    RandomNames random(1, trace);
    std::set<std::string> names;
    while (names.size() < count) names.insert(random.next());
    return {names.begin(), names.end()};
}

TEST(Escape, ShowsWhatCannotBeSeen)
{
    EXPECT_EQ(visible("Temp\n(C)\r\t"), "Temp\\n(C)\\r\\t");
    EXPECT_EQ(visible("\x1b[2J\x7f"), "\\x1b[2J\\x7f");
    EXPECT_EQ(visible(std::string("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(visible("\xC2\x85 \xE2\x80\xA8 \xE2\x80\xAE \xEF\xBB\xBF"),
              "\\u0085 \\u2028 \\u202e \\ufeff");
    EXPECT_EQ(visible("C:\\new"), "C:\\\\new");
}

TEST(Escape, KeepsUtf8AndNumbersOtherBytes)
{
    for (const char* text : {"", " a b ", "\xC3\x96l", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"})
        EXPECT_EQ(visible(text), text);
    EXPECT_EQ(visible("\xFF\x85z"), "\\xff\\x85z");
    EXPECT_EQ(visible("\xC0\xAF"), "\\xc0\\xaf") << "longer than it need be";
    EXPECT_EQ(visible("\xE2\x82"), "\\xe2\\x82") << "cut off";
    EXPECT_EQ(visible("\xF4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond the last character";
    EXPECT_EQ(visible("\xED\xA0\x80"), "\\ud800") << "half of a pair";
}

TEST(Escape, QuotesCells)
{
    EXPECT_EQ(fit::csv_cell("a b"), "a b");
    EXPECT_EQ(fit::csv_cell("a, \"b\"\n"), "\"a, \"\"b\"\"\\n\"");
    EXPECT_EQ(fit::csv_cell(" a"), "\" a\"");
    EXPECT_EQ(fit::csv_cell("a "), "\"a \"");
}

TEST(Escape, KeepsKeysApart)
{
    EXPECT_EQ(fit::key_part("a=b\n"), "a\\x3db\\n");
    EXPECT_NE(fit::key_part("a=b"), fit::key_part("a\\x3db"));
}

TEST(Escape, WritesStringsOfHarmlessBytes)
{
    EXPECT_EQ(fit::gnuplot_string("speed (m_s)"), "\"speed (m_s)\"");
    EXPECT_EQ(fit::gnuplot_string("\"`$@'\n"), "\"\\042\\140\\044\\100\\047\\134n\"");
    EXPECT_EQ(fit::gnuplot_string("\xC3\xB6"), "\"\\303\\266\"");
    EXPECT_EQ(fit::gnuplot_string("x1=12"), "\"x1\\075\\061\\062\"");
}

TEST(Escape, RandomNamesStayOnOneLineAndApart)
{
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    std::set<std::string> seen;
    for (const std::string& name : random_names(5000, "trace")) {
        const std::string text = visible(name);
        EXPECT_TRUE(seen.insert(text).second) << text;
        EXPECT_TRUE(std::none_of(text.begin(), text.end(), [](unsigned char c) {
            return c < ' ' || c == 0x7f;
        })) << text;
        const char* rest = text.c_str();
        std::mbstate_t state{};
        EXPECT_NE(std::mbsrtowcs(nullptr, &rest, 0, &state), static_cast<std::size_t>(-1)) << text;
    }
    std::setlocale(LC_CTYPE, "C");
}

TEST(Escape, RandomNamesReadBackFromACsvFile)
{
    const std::vector<std::string> names = random_names(2000, "trace");
    std::vector<std::string> expected;
    std::string header;
    std::string row;
    for (const std::string& name : names) {
        header += (header.empty() ? "" : ",") + fit::csv_cell(name);
        row += row.empty() ? "1" : ",1";
        expected.push_back(visible(name));
    }
    const TemporaryFolder folder;
    EXPECT_EQ(fit::read_csv(folder.write("t.csv", header + "\n" + row + "\n")).header, expected);
}

TEST(Escape, RandomNamesAreStringsToGnuplot)
{
    if (std::system("command -v gnuplot >/dev/null") != 0) GTEST_SKIP() << "no gnuplot";
    const TemporaryFolder folder;
    std::string script;
    std::string expected;
    for (const std::string& name : random_names(5000, folder / "trace")) {
        script += "print " + fit::gnuplot_string(name) + "\n";
        expected += visible(name) + "\n";
    }
    const std::string command = "cd '" + (folder / "") + "' && gnuplot -d '" +
                                folder.write("script", script) + "' 2>printed";
    ASSERT_EQ(std::system(command.c_str()), 0) << read_text(folder / "printed");
    EXPECT_EQ(read_text(folder / "printed"), expected);
    EXPECT_EQ(folder.files(), (std::set<std::string>{"printed", "script"}));
}

}  // namespace
