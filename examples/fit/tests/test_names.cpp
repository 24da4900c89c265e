// Column names with a meaning to gnuplot, to shells and to terminals, through the whole program.
#include <gtest/gtest.h>

#include <algorithm>

#include "csv_table.h"
#include "escape.h"
#include "random_names.h"
#include "run.h"

namespace {

std::string shell_quoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return quoted + "'";
}

/// What a run leaves behind, apart from names.
struct Traces {
    std::set<std::string> files;
    std::vector<std::string> keys;
    std::size_t weights_lines = 0;
    std::size_t output_lines = 0;
    std::string errors;
};

class Names : public Run {
protected:
    /// Fits the last two columns from the first two, the first along the x axis of the plot.
    Traces traces(const std::vector<std::string>& names)
    {
        std::string table;
        for (const std::string& name : names) {
            std::string cell;
            for (const char c : name) cell += c == '"' ? "\"\"" : std::string(1, c);
            table += (table.empty() ? "\"" : ",\"") + cell + "\"";
        }
        table += "\n";
        for (int row = 0; row < 30; ++row)
            table += std::to_string(row) + "," + std::to_string(row * 7 % 11) + "," +
                     std::to_string(row * 3 % 17) + "," + std::to_string(row * 5 % 13) + "\n";
        std::filesystem::remove_all(out);
        EXPECT_EQ(fit(shell_quoted(folder.write("data.csv", table)) + " --target=" +
                          shell_quoted(names[2]) + " --target=" + shell_quoted(names[3]) +
                          " --core 10 --starts 1 --max-evaluations 3 --quiet",
                      "cd " + shell_quoted(folder / "") + " &&"),
                  0)
            << errors;

        Traces found;
        found.files = folder.files();
        found.errors = errors;
        for (const std::string& line : lines_of(read_text(out + "/summary.txt")))
            found.keys.push_back(line.substr(0, line.find('=')));
        found.weights_lines = lines_of(read_text(out + "/weights.txt")).size();
        found.output_lines = lines_of(output).size();
        EXPECT_TRUE(std::none_of(output.begin(), output.end(), [](unsigned char c) {
            return (c < ' ' && c != '\n') || c == 0x7f;
        })) << output;
        return found;
    }

    void expect_names_alone(const std::vector<std::string>& names)
    {
        SCOPED_TRACE(fit::visible(names[0] + " -- " + names[2]));
        const Traces found = traces(names);
        EXPECT_EQ(found.files, plain.files);
        EXPECT_EQ(found.errors, plain.errors);
        EXPECT_EQ(found.output_lines, plain.output_lines);
        EXPECT_EQ(found.weights_lines, plain.weights_lines);
        std::vector<std::string> keys;
        for (std::string key : plain.keys) {
            for (const std::size_t target : {2U, 3U}) {
                const auto at = key.find(plain_names[target]);
                if (at != std::string::npos)
                    key.replace(at, plain_names[target].size(), fit::key_part(names[target]));
            }
            keys.push_back(key);
        }
        EXPECT_EQ(found.keys, keys);
        std::vector<std::string> header{
            "line", "set", fit::visible(names[0]), fit::visible(names[1])};
        for (const std::size_t target : {2U, 3U}) {
            const std::string name = fit::visible(names[target]);
            for (const std::string& column :
                 {name, "fit(" + name + ")", "residual(" + name + ")", "outlier(" + name + ")"})
                header.push_back(column);
        }
        EXPECT_EQ(fit::read_csv(out + "/predictions.csv").header, header);
    }

    const std::vector<std::string> plain_names{"input0", "input1", "target2", "target3"};
    const Traces plain = traces(plain_names);
    const std::string trace = folder / "trace";
};

TEST_F(Names, RunNothing)
{
    const std::vector<std::string> hostile{"a\nsystem(\"touch " + trace + "\")\nset xlabel \"a",
                                           "a\n!touch " + trace + "\n",
                                           "`touch " + trace + "`",
                                           "'; system('touch " + trace + "')",
                                           "\"; system(\"touch " + trace + "\")"};
    for (const std::string& name : hostile) {
        expect_names_alone({name, "b", "y", "z"});
        expect_names_alone({"a", "b", name, "z"});
    }
}

TEST_F(Names, BreakNothing)
{
    for (const std::string name :
         {"Temp\n(C)", "'a", "@TARGETS@", "a\\", "\"", "core.x=1", "\xFF"}) {
        expect_names_alone({name, "b", "y", "z"});
        expect_names_alone({"a", "b", name, "z"});
    }
    expect_names_alone({std::string(100000, 'a'), "b", std::string(50000, '\n'), "z"});
}

TEST_F(Names, OfAnyBytesStayNames)
{
    RandomNames random(2, trace);
    // What --target takes for a list.
    const auto no_target = [](const std::string& name) {
        return name.find(',') != std::string::npos || name.front() == '[';
    };
    for (int run = 0; run < 40; ++run) {
        std::vector<std::string> names;
        while (names.size() < 4) {
            const std::string name = random.next();
            if (name.find('\0') != std::string::npos) continue;  // no text
            if (names.size() < 2 || !no_target(name)) names.push_back(name);
        }
        if (std::set<std::string>(names.begin(), names.end()).size() == 4)
            expect_names_alone(names);
    }
}

TEST_F(Names, AreShownInErrors)
{
    const std::string data = folder.write("d.csv", "\"a\n\x1b[2J\",y\n1\x1b,2\n");
    EXPECT_EQ(fit("'" + data + "' --target y"), 2);
    EXPECT_TRUE(contains(errors, ":3:1: \"1\\x1b\" in column 'a\\n\\x1b[2J' is not a number\n"));
    EXPECT_EQ(fit("'" + data + "' --target none"), 2);
    EXPECT_TRUE(contains(errors, "there are a\\n\\x1b[2J, y\n"));
    EXPECT_EQ(fit("'" + data + "' --target y --norm '\x1b[2J'"), 2);
    EXPECT_TRUE(contains(errors, "--norm: \"\\x1b[2J\""));
    EXPECT_EQ(fit("'" + data + "' '\x1b[2J' --target y"), 2);
    EXPECT_TRUE(contains(errors, "\\x1b[2J\n"));
}

}  // namespace
