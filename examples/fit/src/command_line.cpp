#include "command_line.h"

#include "escape.h"

namespace fit {

std::optional<int> parse(CLI::App& app, int argc, char** argv)
{
    constexpr int BAD_USAGE = 2;
    app.failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
        return visible(error.what()) + "\nRun with --help for more information.\n";
    });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : BAD_USAGE;
    }
    return std::nullopt;
}

}  // namespace fit
