#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/network.h"

// The parser takes half of the machine's memory at most. On a small machine the largest descriptions cost nothing.
extern "C" long __sysconf(int name);

extern "C" long sysconf(int name) noexcept
{
    if (name == _SC_PHYS_PAGES) return (64L << 20) / __sysconf(_SC_PAGESIZE);
    return __sysconf(name);
}

namespace {

struct Said {
    int status = 0;
    std::string sentence;
};

Said check(const std::string& text)
{
    char sentence[1000];
    const int status =
        vemk_check(text.data(), static_cast<int>(text.size()), sentence, sizeof sentence);
    return {status, sentence};
}

// Whether no computing call refuses the network for what its description says: one without rows does not read data.
bool can_be_used(VEMKNInfo* net)
{
    double value = 0.0;
    return vemk_compute(net, nullptr, 0, nullptr, 0, 0, 0, nullptr) != -1 &&
           vemk_norm(net, nullptr, 0, 0, &value) != -1;
}

// The texts of which vemk_check thinks otherwise than the parser, or that it judges without a word. What the parser says of
// them is listened to, so that it is not read as the test's own.
template <class Texts>
std::vector<std::string> misjudged(const Texts& texts)
{
    std::vector<std::string> found;
    listen([&] {
        for (const std::string& text : texts) {
            const Network net(text);
            const Said said = check(text);
            if (can_be_used(net) != (said.status != -1) ||
                (said.status == 0) != said.sentence.empty()) {
                found.push_back(text + ": " + said.sentence);
            }
        }
    });
    return found;
}

using Texts = std::vector<std::string>;

// Whatever begins like a description between quotation marks, in the tests, the pages, the headers, examples and bindings.
std::set<std::string> all_descriptions()
{
    static const std::regex description(R"re("([0-9]+ [0-9][^"\n\\]*)")re");
    std::set<std::string> found;
    for (const char* folder : {"tests", "docs", "include", "examples", "bindings"}) {
        const auto below = std::filesystem::path(VEMKN_SOURCES) / folder;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(below)) {
            const std::string kind = entry.path().extension();
            if (!entry.is_regular_file() ||
                !std::set<std::string>{".cpp", ".c", ".h", ".hpp", ".md", ".py", ".R"}.contains(
                    kind))
                continue;
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);) {
                for (std::sregex_iterator at(line.begin(), line.end(), description), end; at != end;
                     ++at) {
                    found.insert((*at)[1]);
                }
            }
        }
    }
    return found;
}

struct Row {
    const char* text;
    const char* sentence;
};

void expect_all(int status, std::initializer_list<Row> rows)
{
    for (const Row& row : rows) {
        const Said said = check(row.text);
        EXPECT_EQ(status, said.status) << row.text;
        EXPECT_EQ(row.sentence, said.sentence) << row.text;
    }
}

constexpr const char* GOOD = "2 1 2 1 32 2 5 softplus sum_log_dnorm_fat";

}  // namespace

TEST(Check, JudgesEveryDescriptionOfTheProjectAsTheParserDoes)
{
    const std::set<std::string> texts = all_descriptions();
    ASSERT_LT(100u, texts.size());
    EXPECT_EQ(Texts{}, misjudged(texts));
}

TEST(Check, JudgesAGoodDescriptionAsTheParserDoesWhereverItIsCutOrGetsAnotherWord)
{
    for (const std::string text : {GOOD, "4 1 2 2 8 4 4 relu sum", "3 2 3 1 16 3 5 4 atan sum"}) {
        Texts texts;
        for (std::size_t length = 0; length <= text.size(); ++length) {
            texts.push_back(text.substr(0, length));
            texts.push_back(text.substr(length));
            for (const char* word : {" 7 ", " relu ", "-", "0", "."}) {
                texts.push_back(text.substr(0, length) + word + text.substr(length));
            }
        }
        EXPECT_EQ(Texts{}, misjudged(texts));
    }
}

TEST(Check, FindsNothingWrongWithAGoodDescription)
{
    for (const char* text :
         {GOOD, "\t2\n1\r\n2  1\v8\f2 3\r\n  relu\tsum\r\n", "4 1 2 2 8 4 4 relu sum"}) {
        const Said said = check(text);
        EXPECT_EQ(0, said.status) << text;
        EXPECT_EQ("", said.sentence) << text;
    }
}

TEST(Check, SaysWhatIsWrong)
{
    expect_all(
        -1,
        {
            {"", "numin is missing: the text ends before it"},
            {"2 1 2", "nmult is missing: the text ends before it"},
            {"2 one 2 1 32 2 5 relu sum", "numout is \"one\", not a whole number below 2^32"},
            {"2 4294967296 2 1 32 2 5 relu sum",
             "numout is \"4294967296\", not a whole number below 2^32"},
            {"2 1 2 0 32 2 5 relu sum", "nmult is 0, needs to be at least 1"},
            {"0 1 two 1 32 2 5 relu sum", "numin is 0, needs to be at least 1"},
            {"2 1 2 1 32 2 5.5 relu sum", "a blank is missing after size 2, which counts as 5"},
            {"2 1 3 1 32 2 5 relu sum",
             "nlayers announces 3 sizes, but \"relu\" stands in the place of size 3"},
            {"2 1 3 1 32 2 5", "nlayers announces 3 sizes, but the text ends before size 3"},
            {"2 1 2 1 32 2 5 7 relu sum",
             "nlayers announces 2 sizes, but another number, \"7\", stands in the place of the "
             "activation"},
            {"2 1 1 1 32 2 relu sum", "the network has 1 layers, needs at least 2"},
            {"2 1 2 2 32 2 5 relu sum",
             "nmult is 2 and the last hidden width 5 differs from the first size 2"},
            {"2 1 2 1 32 2 5", "the activation is missing: the text ends before it"},
            {"2 1 2 1 32 2 5 relu", "the norm is missing: the text ends before it"},
            {"2 1 2 1 32 2 5 relu l2", "the norm \"l2\" is none of sum_log_dnorm_fat, sum"},
            {"2 1 2 1 32 2 5 relu \x1b[2J", "the norm \"?[2J\" is none of sum_log_dnorm_fat, sum"},
            {"2 1 2 1 32 2 400000000 relu sum",
             "the network takes more than half of the machine's memory, or more than the "
             "process may have"},
            {"2 1 -1 1 32 2 5 relu sum",
             "the network takes more than half of the machine's memory, or more than the "
             "process may have: nlayers has a minus sign and counts as 4294967295"},
        });
}

TEST(Check, SaysWhatDoesNotDoWhatItSeemsTo)
{
    expect_all(1,
               {
                   {"-1 1 2 1 32 2 5 relu sum", "numin has a minus sign and counts as 4294967295"},
                   {"2 1 2 1 32 2 5relu sum", "a blank is missing after size 2, which counts as 5"},
                   {"2 1 3 1 32 2 0 5 relu sum", "size 2 is 0: the layer has no units"},
                   {"3 1 2 1 32 2 5 relu sum",
                    "numin is 3, the first size 2: a call takes the smaller number of columns"},
                   {"2 1 2 1 32 2 5 tanh sum",
                    "the activation \"tanh\" is none of softplus, softmax, softplus_shifted, atan, "
                    "relu, id: it counts as softplus"},
                   {"2 1 2 1 32 2 5 relu sum sum",
                    "the text goes on after the norm, with \"sum\": that is not read"},
               });
}

TEST(Check, QuotesNoMoreThanTheBeginningOfAWord)
{
    const Said said = check("2 1 2 1 32 2 5 relu " + std::string(5000, 'x'));
    EXPECT_EQ("the norm \"" + std::string(40, 'x') + "\" is none of sum_log_dnorm_fat, sum",
              said.sentence);
}

TEST(Check, CutsNoCharacterThrough)
{
    const std::string start = "2 1 2 1 32 2 5 relu ", umlaut = "\xc3\xa4";
    std::string word = "x";
    for (int i = 0; i < 30; ++i) word += umlaut;
    EXPECT_EQ("the norm \"" + word.substr(0, 39) + "\" is none of sum_log_dnorm_fat, sum",
              check(start + word).sentence);
    const std::string text = start + umlaut;
    char buffer[12];
    vemk_check(text.data(), static_cast<int>(text.size()), buffer, sizeof buffer);
    EXPECT_STREQ("the norm \"", buffer);
}

TEST(Check, WritesWhatThereIsRoomFor)
{
    char buffer[8] = "unread.";
    EXPECT_EQ(-1, vemk_check("", 0, buffer, 6));
    EXPECT_STREQ("numin", buffer);
    EXPECT_EQ('.', buffer[6]);
    EXPECT_EQ(-1, vemk_check("", 0, buffer, 1));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ('u', buffer[1]);
    EXPECT_EQ(-1, vemk_check("", 0, buffer + 2, 0));
    EXPECT_EQ('m', buffer[2]);
    EXPECT_EQ(-1, vemk_check("", 0, nullptr, 8));
}

TEST(Check, TakesTextsThatAreNone)
{
    char buffer[80];
    EXPECT_EQ(-1, vemk_check(nullptr, 5, buffer, sizeof buffer));
    EXPECT_STREQ("the text is null", buffer);
    EXPECT_EQ(-1, vemk_check(GOOD, -1, buffer, sizeof buffer));
    EXPECT_STREQ("the length of the text is negative", buffer);
    EXPECT_EQ(-1, vemk_check(nullptr, 0, buffer, sizeof buffer));
    EXPECT_STREQ("numin is missing: the text ends before it", buffer);
}

TEST(Check, PrintsNothing)
{
    const Heard printed = listen([] {
        check("2 1");
        check("2 1 2 1 32 2 5 relu l2");
        check(GOOD);
    });
    EXPECT_EQ("", printed.out);
    EXPECT_EQ("", printed.err);
}
