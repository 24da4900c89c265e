#include <gtest/gtest.h>

#include <clocale>
#include <iostream>
#include <locale>
#include <regex>

#include "support/all_entries.h"
#include "support/child.h"

// A host whose global locale groups digits and writes a decimal comma.

namespace {

struct Grouped : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }

    char do_decimal_point() const override { return ','; }

    std::string do_grouping() const override { return "\3"; }
};

void take_the_locale_of(const std::string& host)
{
    if (host == "classic") return;
    std::locale::global(std::locale(std::locale::classic(), new Grouped));
    std::cout.imbue(std::locale());
    std::cerr.imbue(std::locale());
    // The C library has one of its own; where none of these is installed, the other has to do.
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8"}) {
        if (std::setlocale(LC_ALL, name) != nullptr) break;
    }
}

// What took how long is another matter at every call.
std::string without_seconds(const std::string& text)
{
    return std::regex_replace(text, std::regex(", [-+0-9.e]+ s\n"), ", t s\n");
}

}  // namespace

SCENE(says_all_that_can_be_said)
{
    take_the_locale_of(arguments.at(0));
    // Read as written: 1.234 is no number of layers, 2006002 parameters are printed as such.
    const Network large("3 2 2 1 8 1000 2000 softplus sum");
    const Network fraction("3 2 2 1 8 1.000 2.000 softplus sum");
    const Network grouped("1,000 2 2 1 8 3 4 softplus sum");
    const Network unknown_norm("3 2 2 1 8 3 4 relu l2");
    const double w = 0;
    vemk_g(large, &w, 123456, nullptr, nullptr, 1, 3, 2, nullptr, nullptr);
    vemk_getweights(fraction, nullptr, 0);
    for (VEMKNInfo* const net :
         {static_cast<VEMKNInfo*>(large), static_cast<VEMKNInfo*>(fraction)}) {
        // In digits of its own, so that no locale has a say.
        const std::string parameters = std::to_string(vemk_numel(net));
        std::cout.rdbuf()->sputn(parameters.data(),
                                 static_cast<std::streamsize>(parameters.size()));
    }
    vemk_norm(large, nullptr, 65536, 65536, nullptr);
    // With a trace: values with a decimal point.
    const Network net(usual_network().text());
    const Request q = random_request(usual_network(), 40, 5, 2, 1);
    for (const AnyEntry& entry : ALL_ENTRIES) entry.run(net, q);
    vemk_compute(net, nullptr, 0, nullptr, 1, 1234567, 0, nullptr);
}

TEST(LocaleFault, GroupedDigitsAndDecimalComma_ParsingAndMessagesUnchanged)
{
    const child::Setting setting{.environment = {{"NN_TRACE", "1"}, {"INFO", "1"}}};
    const child::Outcome classic = child::play("says_all_that_can_be_said", {"classic"}, setting);
    const child::Outcome local = child::play("says_all_that_can_be_said", {"grouped"}, setting);
    EXPECT_TRUE(classic.exited_with(3)) << classic.description();
    EXPECT_TRUE(local.exited_with(3)) << local.description();
    EXPECT_EQ(without_seconds(classic.out), without_seconds(local.out));
    EXPECT_EQ(classic.err, local.err);
    EXPECT_NE(std::string::npos, classic.out.find("2006002")) << classic.out;
    EXPECT_NE(std::string::npos, classic.err.find("nw is 123456,")) << classic.err;
    EXPECT_NE(std::string::npos, classic.err.find("too many predicates: 1234567 > 5\n"));
    EXPECT_TRUE(std::regex_search(classic.out, std::regex("J = [0-9]+\\.[0-9]+, [-+0-9.e]+ s\n")));
}
