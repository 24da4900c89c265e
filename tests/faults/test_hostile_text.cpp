#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iostream>
#include <sstream>

#include "support/calls.h"
#include "support/child.h"

// Descriptions that nobody would write by mistake. Each costs no more than an error: no crash, no exception, little
// time and little memory. They run in processes of their own, so that the peak of the memory can be read.

namespace {

const std::string BANNER = "VEMKN " VEMKN_VERSION " (C) 2026 the VEMKN developers\n";
const std::string INVALID = "Error: invalid network data\n";

// Processor time: a text of 10 MB takes a fraction of a second, a shape that is refused next to nothing.
constexpr double SECONDS = 10;
constexpr double SECONDS_REFUSED = 0.01;

// A text is copied a few times: as a whole, into a stream, and as a word of its own, whose storage doubles as it grows.
constexpr long BYTES_PER_CHARACTER = 8;
// What the library says, reads and computes for any text.
constexpr long KILOBYTES_ANYWAY = 2048;

constexpr std::uint64_t NO_LAYERS = 0;
constexpr std::uint64_t ANY = UINT64_MAX;  // whatever it is, at the cost of an error

// One text, and how many parameters the network has that it describes. An @ stands for a NUL byte. Those of 10 MB are
// made when they are needed only: `before`, the filler again and again, `after`.
struct Text {
    const char* name;
    std::string before;
    bool filled;
    char filler;
    std::string after;
    std::uint64_t parameters;

    Text(const char* text_name, std::string all, std::uint64_t number)
        : name(text_name), before(std::move(all)), filled(false), filler(), parameters(number)
    {
    }

    Text(const char* text_name,
         std::string head,
         char middle,
         std::string tail,
         std::uint64_t number)
        : name(text_name),
          before(std::move(head)),
          filled(true),
          filler(middle),
          after(std::move(tail)),
          parameters(number)
    {
    }

    std::string words() const
    {
        std::string all = before;
        if (filled) all.append(10'000'000, filler);
        all += after;
        std::replace(all.begin(), all.end(), '@', '\0');
        return all;
    }

    // As the third number says; 0 where it is none.
    long layers() const
    {
        std::istringstream in(before);
        long number = 0;
        in >> number >> number >> number;
        return in ? number : 0;
    }
};

const std::vector<Text>& texts()
{
    static const std::vector<Text> all = {
        // Nothing to read.
        {"Empty", "", NO_LAYERS},
        {"OneBlank", " ", NO_LAYERS},
        {"OneNul", "@", NO_LAYERS},
        {"OnlyWords", "relu sum", NO_LAYERS},
        {"TenMegabytesOfBlanks", "", ' ', "", NO_LAYERS},
        {"TenMegabytesOfNuls", "", '\0', "", NO_LAYERS},
        {"TenMegabytesOfX", "", 'x', "", NO_LAYERS},
        {"TenMegabytesOfBytes255", "", '\xff', "", NO_LAYERS},
        {"TenMegabytesOfDigits", "", '7', "", NO_LAYERS},
        {"TenMegabytesOfZeros", "", '0', "2 1 2 1 8 2 3 id sum", 13},
        {"ManyBlanksBetween", "2", '\n', "1 2 1 8 2 3 id sum", 13},

        // Numbers that are none, or not these.
        {"Exponent", "1e3 1 2 1 8 2 3 id sum", NO_LAYERS},
        {"Hexadecimal", "0x10 1 2 1 8 2 3 id sum", NO_LAYERS},
        {"HexadecimalLater", "2 1 0x2 1 8 2 3 id sum", NO_LAYERS},
        {"Octal", "010 1 2 1 8 2 3 id sum", 13},
        {"Fraction", "2 1 2.5 1 8 2 3 id sum", NO_LAYERS},
        {"Grouped", "1,000 1 2 1 8 2 3 id sum", NO_LAYERS},
        {"PlusSign", "+2 +1 +2 +1 +8 +2 +3 id sum", 13},
        {"MinusZero", "-0 1 2 1 8 2 3 id sum", NO_LAYERS},
        {"BareMinus", "- 1 2 1 8 2 3 id sum", NO_LAYERS},
        {"NotANumber", "nan inf 2 1 8 2 3 id sum", NO_LAYERS},
        {"TwoToThe32", "4294967296 1 2 1 8 2 3 id sum", NO_LAYERS},
        {"TwoToThe32AsASize", "2 1 2 1 8 2 4294967296 id sum", ANY},
        {"TwoToThe64", "18446744073709551616 1 2 1 8 2 3 id sum", NO_LAYERS},
        {"MinusTwoToThe32", "-4294967296 1 2 1 8 2 3 id sum", NO_LAYERS},

        // Negative numbers that wrap.
        {"WrappingInputs", "-1 1 2 1 8 2 3 id sum", 13},
        {"WrappingOutputs", "2 -1 2 1 8 2 1000 id sum", NO_LAYERS},
        {"WrappingLayers", "2 1 -1 1 8 2 3 id sum", NO_LAYERS},
        {"WrappingPasses", "2 1 2 -1 8 2 3 id sum", NO_LAYERS},
        {"WrappingBatch", "2 1 2 1 -1 2 3 id sum", 13},
        {"WrappingSize", "2 1 2 1 8 1000 -1 id sum", NO_LAYERS},
        {"WrappingFirstSize", "2 1 2 1 8 -1 1000 id sum", NO_LAYERS},
        {"WrappingToTwo", "2 1 2 1 8 -4294967294 3 id sum", 13},
        {"AllWrapping", "-1 -1 -1 -1 -1 -1 -1 -1", NO_LAYERS},

        // Shapes beyond memory or address space.
        {"FourBillionInputs", "4000000000 1 2 1 1", ANY},
        {"FourBillionOutputs", "1 4000000000 2 1 1 1 1000 id sum", NO_LAYERS},
        {"FourBillionLayers", "1 1 4000000000 1 1", NO_LAYERS},
        {"FourBillionLayersOfOne", "1 1 4000000000 1 1 1 1 1 id sum", NO_LAYERS},
        {"HundredMillionLayers", "1 1 100000000 1 1", ANY},
        {"MillionLayers", "1 1 1000000 1 1", ANY},
        {"TwoToThe61Elements", "1 1 2 1 1 2147483648 1073741824 id sum", NO_LAYERS},
        {"TwoToThe62Elements", "1 1 2 1 1 2147483648 2147483648 id sum", NO_LAYERS},
        {"TwoToThe64Elements", "1 1 2 1 1 4294967295 4294967295 id sum", NO_LAYERS},
        // 65536 * 65536 is 0 in 32 bits, 2^29 * 8 bytes is 2^32.
        {"ProductThatWraps32Bits", "1 1 3 1 1 65536 65536 65536 id sum", NO_LAYERS},
        {"LastLayerThatWraps32Bits", "1 1 2 65536 1 65536 65536 id sum", NO_LAYERS},
        {"RowsBeyond32Bits", "1 1 2 4294967295 1 0 2 id sum", NO_LAYERS},
        // Every pass is run when a call evaluates it, so not more of them than a test has time for.
        {"RowsOfZeroTimesMany", "1 1 2 1000000 1 0 0 id sum", 1},

        // Characters.
        {"NulInANumber", "2@1 2 1 8 2 3 id sum", NO_LAYERS},
        {"NulForABlank", "2 1 2 1 8@2 3 id sum", ANY},
        {"NulInTheActivation", "2 1 2 1 8 2 3 re@lu sum", 13},
        {"NulBehindTheNorm", "2 1 2 1 8 2 3 relu sum@", 13},
        {"NulAfterAll", "2 1 2 1 8 2 3 relu sum @@@", 13},
        {"ByteOrderMark",
         "\xef\xbb\xbf"
         "2 1 2 1 8 2 3 relu sum",
         NO_LAYERS},
        {"CarriageReturns", "2 1\r\n2 1\r\n8 2\r\n3 relu\r\nsum\r\n", 13},
        {"NoBreakSpaces",
         "2\xc2\xa0"
         "1 2 1 8 2 3 relu sum",
         NO_LAYERS},
        {"FullWidthDigits", "\xef\xbc\x92 1 2 1 8 2 3 relu sum", NO_LAYERS},
        {"FormatDirectives", "2 1 2 1 8 2 3 %s%n %s%n%p", 13},
        {"HugeActivation", "2 1 2 1 8 2 3 ", 'a', " sum", 13},
        {"HugeNorm", "2 1 2 1 8 2 3 relu ", 'n', "", 13},
        {"HugeTail", "2 1 2 1 8 2 3 relu sum ", '9', "", 13},
    };
    return all;
}

class HostileTextFault : public testing::TestWithParam<std::size_t> {
protected:
    const Text& text() const { return texts()[GetParam()]; }
};

std::vector<std::size_t> indices()
{
    std::vector<std::size_t> all;
    for (std::size_t i = 0; i < texts().size(); ++i) all.push_back(i);
    return all;
}

std::string text_name(const testing::TestParamInfo<std::size_t>& instance)
{
    return texts()[instance.param].name;
}

// The most memory that the process had in use since that was last reset.
void forget_the_peak()
{
    std::ofstream("/proc/self/clear_refs") << "5";
}

long peak_kilobytes()
{
    std::ifstream status("/proc/self/status");
    std::string word;
    long kilobytes = 0;
    while (status >> word) {
        if (word == "VmHWM:") status >> kilobytes;
    }
    return kilobytes;
}

}  // namespace

// Parses a text, reads what can be read, calls, and reports the cost in a last line.
SCENE(parses)
{
    const std::string words = texts().at(std::stoul(arguments.at(0))).words();
    alarm(60);  // what takes that long has failed already
    forget_the_peak();
    const long kilobytes_before = peak_kilobytes();
    const std::clock_t start = std::clock();
    VEMKNInfo* const net = initVEMKNet(words.data(), static_cast<int>(words.size()));
    const std::uint64_t parameters = vemk_numel(net);
    unsigned rows = 0, cols = 0, length = 0;
    vemk_weights(net, 0, nullptr, &rows, &cols);
    vemk_bias(net, 0, nullptr, &length);
    double result = 0;
    vemk_getweights(net, &result, parameters > 0 ? 1 : 0);
    // Refused, or one row of zeros.
    vemk_compute(net, nullptr, 0, nullptr, 1, 0, 0, vemk_numout(net) == 1 ? &result : nullptr);
    releaseVEMKNet(net);
    const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    std::cout << "\ncost " << parameters << " " << seconds << " "
              << peak_kilobytes() - kilobytes_before << " " << words.size() << "\n";
}

TEST_P(HostileTextFault, HostileText_NoSignalAndLittleTimeAndMemory)
{
    const child::Outcome outcome = child::play("parses", {std::to_string(GetParam())});
    ASSERT_TRUE(outcome.exited_with(0)) << outcome.description().substr(0, 1000);
    EXPECT_EQ(BANNER, outcome.out.substr(0, BANNER.size()));
    std::istringstream report(outcome.out.substr(outcome.out.rfind("\ncost ") + 6));
    std::uint64_t parameters = 0;
    double seconds = 0;
    long kilobytes = 0, characters = 0;
    report >> parameters >> seconds >> kilobytes >> characters;
    ASSERT_TRUE(report);
    EXPECT_LT(seconds, SECONDS);
#if !defined(VEMKN_SANITIZED) && !defined(VEMKN_EMULATOR)  // whose time and memory are not ours
    if (text().parameters == NO_LAYERS && !text().filled) {
        EXPECT_LT(seconds, SECONDS_REFUSED);
    }
    // A model of so many parameters and layers, both of its kinds; a call works on a copy.
    const long layers = parameters > 0 ? text().layers() : 0;
    const long model = (static_cast<long>(parameters) * 6 * 8 + layers * 600) / 1024;
    EXPECT_LT(kilobytes, KILOBYTES_ANYWAY + characters * BYTES_PER_CHARACTER / 1024 + model);
#endif
    if (text().parameters == ANY) return;
    EXPECT_EQ(text().parameters, parameters);
    const bool says_invalid = outcome.err.substr(0, 2 * INVALID.size()) == INVALID + INVALID;
    EXPECT_EQ(text().parameters == NO_LAYERS, says_invalid) << outcome.err.substr(0, 1000);
}

INSTANTIATE_TEST_SUITE_P(Texts, HostileTextFault, testing::ValuesIn(indices()), text_name);
