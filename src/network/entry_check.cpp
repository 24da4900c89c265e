#include <algorithm>
#include <array>
#include <locale>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "network/description.h"
#include "runtime/messages.h"
#include "vemkn.h"

using namespace VEMKN;

namespace {

// What vemk_check returns, and its sentence.
struct Finding {
    int status = 0;
    std::string sentence;
};

using Fault = std::optional<std::string>;

constexpr std::array LEADING{"numin", "numout", "nlayers", "nmult", "batch"};

std::string name_of(std::size_t number)
{
    if (number < LEADING.size()) return LEADING[number];
    return message("size ", number - LEADING.size() + 1);
}

std::uint32_t value_of(const Description& d, std::size_t number)
{
    const std::array leading{d.numin, d.numout, d.nlayers, d.nmult, d.batch};
    return number < leading.size() ? leading[number] : d.sizes[number - leading.size()];
}

bool is_one_of(std::string_view characters, int c)
{
    return c > 0 && characters.find(static_cast<char>(c)) != std::string_view::npos;
}

// As much as there is room for, with no character of UTF-8 cut through.
std::string_view cut(std::string_view text, std::size_t room)
{
    if (text.size() <= room) return text;
    constexpr int MOST_CONTINUATIONS = 3;
    for (int i = 0; i < MOST_CONTINUATIONS && room > 0; ++i) {
        if ((static_cast<unsigned char>(text[room]) & 0xc0u) != 0x80u) break;
        --room;
    }
    return text.substr(0, room);
}

std::string quoted(const std::string& word)
{
    std::string shown(cut(word, 40));
    std::replace_if(
        shown.begin(), shown.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
    return "\"" + shown + "\"";
}

std::string listed(const char* (*list)(unsigned))
{
    std::string words;
    for (unsigned i = 0; const char* const word = list(i); ++i)
        words += (i ? ", " : "") + std::string(word);
    return words;
}

bool lists(const char* (*list)(unsigned), const std::string& wanted)
{
    for (unsigned i = 0; const char* const word = list(i); ++i) {
        if (wanted == word) return true;
    }
    return false;
}

// How a text spells its numbers and what comes after them, which the parser does not look at.
struct Spelling {
    std::optional<std::size_t> negative,
        glued;            // the first number with a minus sign; that runs on into another word
    std::string next;     // the word after the last number that could be read
    std::string surplus;  // the word after the norm
};

Spelling spelling_of(const std::string& text, std::size_t numbers)
{
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    in.exceptions(std::ios_base::badbit);  // lack of memory
    Spelling found;
    for (std::size_t i = 0; i < numbers; ++i) {
        std::uint32_t number = 0;
        in >> std::ws;
        if (in.peek() == '-' && !found.negative) found.negative = i;
        in >> number;
        if (!in.eof() && !is_one_of(" \t\n\v\f\r", in.peek()) && !found.glued) found.glued = i;
    }
    std::string norm;
    in >> found.next >> norm >> found.surplus;
    return found;
}

// The number that stands nowhere, or where another word stands.
std::string missing_number(const Description& d, const Spelling& spelling)
{
    const std::string name = name_of(d.numbers);
    const bool ends = spelling.next.empty();
    if (d.numbers < LEADING.size()) {
        if (ends) return message(name, " is missing: the text ends before it");
        return message(name, " is ", quoted(spelling.next), ", not a whole number below 2^32");
    }
    const std::string announced = message("nlayers announces ", d.nlayers, " sizes, but ");
    if (ends) return message(announced, "the text ends before ", name);
    return message(announced, quoted(spelling.next), " stands in the place of ", name);
}

// Why computing calls refuse what the parser makes of the text. One fault brings others along: as a rule the first one
// in the text is named.
Fault fault_of(const Description& d, const Spelling& spelling)
{
    for (std::size_t i = 0; i < std::min(d.numbers, LEADING.size()); ++i) {
        if (value_of(d, i) == 0) return message(name_of(i), " is 0, needs to be at least 1");
    }
    if (d.numbers < LEADING.size()) return missing_number(d, spelling);
    if (!d.valid) {
        std::string sentence =
            "the network takes more than half of the machine's memory, or more than the process "
            "may have";
        if (const auto i = spelling.negative; i && *i < LEADING.size() + d.sizes.size()) {
            sentence +=
                message(": ", name_of(*i), " has a minus sign and counts as ", value_of(d, *i));
        }
        return sentence;
    }
    if (d.numbers < LEADING.size() + d.nlayers) return missing_number(d, spelling);
    if (Fault why = unfit_layers(d.nlayers, d.nmult, d.sizes[0], d.sizes[d.nlayers - 1]))
        return why;
    if (d.activation_name.empty()) return "the activation is missing: the text ends before it";
    if (lists(vemk_norms, d.norm_name)) return {};
    if (const auto i = spelling.glued) {
        return message(
            "a blank is missing after ", name_of(*i), ", which counts as ", value_of(d, *i));
    }
    if (is_one_of("-0123456789", d.activation_name[0])) {
        return message("nlayers announces ",
                       d.nlayers,
                       " sizes, but another number, ",
                       quoted(d.activation_name),
                       ", stands in the place of the activation");
    }
    if (d.norm_name.empty()) return "the norm is missing: the text ends before it";
    return message("the norm ", quoted(d.norm_name), " is none of ", listed(vemk_norms));
}

// What in a text that can be used does not do what it seems to.
Fault surprise_of(const Description& d, const Spelling& spelling)
{
    if (const auto i = spelling.negative) {
        return message(name_of(*i), " has a minus sign and counts as ", value_of(d, *i));
    }
    if (const auto i = spelling.glued) {
        return message(
            "a blank is missing after ", name_of(*i), ", which counts as ", value_of(d, *i));
    }
    for (std::size_t i = LEADING.size(); i < d.numbers; ++i) {
        if (value_of(d, i) == 0) return message(name_of(i), " is 0: the layer has no units");
    }
    if (d.numin != d.sizes[0]) {
        return message("numin is ",
                       d.numin,
                       ", the first size ",
                       d.sizes[0],
                       ": a call takes the smaller number of columns");
    }
    if (!lists(vemk_activations, d.activation_name)) {
        return message("the activation ",
                       quoted(d.activation_name),
                       " is none of ",
                       listed(vemk_activations),
                       ": it counts as softplus");
    }
    if (spelling.surplus.empty()) return {};
    return message(
        "the text goes on after the norm, with ", quoted(spelling.surplus), ": that is not read");
}

Finding finding(const char* text, int length)
{
    if (length < 0) return {-1, "the length of the text is negative"};
    if (text == nullptr && length > 0) return {-1, "the text is null"};
    const std::string words(text == nullptr ? "" : text, static_cast<std::size_t>(length));
    const Description d = parse_description(words);
    const Spelling spelling = spelling_of(words, d.numbers);
    if (Fault fault = fault_of(d, spelling)) return {-1, *fault};
    if (Fault surprise = surprise_of(d, spelling)) return {1, *surprise};
    return {};
}

void put(std::string_view sentence, char* buffer, unsigned size)
{
    if (buffer == nullptr || size == 0) return;
    buffer[cut(sentence, size - 1).copy(buffer, size - 1)] = '\0';
}

}  // namespace

int vemk_check(const char* text, int length, char* buffer, unsigned size)
{
    try {
        const Finding found = finding(text, length);
        put(found.sentence, buffer, size);
        return found.status;
    } catch (const std::bad_alloc&) {
        put("there is not enough memory to read the text", buffer, size);
        return -1;
    }
}
