#include "command_line.h"

#include <charconv>
#include <cstdint>
#include <string>
#include <vector>

#include "escape.h"
#include "text.h"

namespace fit {
namespace {

/// An option that there is not, and the one that was meant.
std::string unknown_option(const CLI::App& app)
{
    std::vector<std::string> names;
    for (const CLI::Option* const option : app.get_options())
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    for (const std::string& rest : app.remaining()) {
        const std::string given = rest.substr(0, rest.find('='));
        if (!given.starts_with("--")) continue;
        const std::string meant = nearest(given, names);
        return "there is no option " + given + (meant.empty() ? "" : "; perhaps " + meant);
    }
    return "";
}

}  // namespace

CLI::Validator finite_number()
{
    const auto check = [](const std::string& text) {
        double value = 0.0;
        return read_number(text, value) == std::errc() ? "" : "\"" + text + "\" is not a number";
    };
    return {check, ""};
}

CLI::Validator whole_number()
{
    const auto check = [](const std::string& text) {
        std::uint64_t value = 0;
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        return error == std::errc() && stop == end
                   ? ""
                   : "\"" + text + "\" is not a whole number from 0 to 2^64 - 1";
    };
    return {check, ""};
}

std::optional<int> parse(CLI::App& app, int argc, char** argv)
{
    constexpr int BAD_USAGE = 2;
    app.failure_message([](const CLI::App* given, const CLI::Error& error) {
        const std::string unknown =
            error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError)
                ? unknown_option(*given)
                : std::string();
        return visible(unknown.empty() ? error.what() : unknown) +
               "\nRun with --help for more information.\n";
    });
    for (CLI::Option* const option : app.get_options())
        if (option->get_items_expected_max() == 1)
            option->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : BAD_USAGE;
    }
    return std::nullopt;
}

}  // namespace fit
