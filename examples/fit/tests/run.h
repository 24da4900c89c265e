#ifndef VEMKN_FIT_TESTS_RUN_H
#define VEMKN_FIT_TESTS_RUN_H

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include "temporary.h"

/// Runs of the program into the folder [out].
class Run : public testing::Test {
protected:
    /// Runs the program and keeps what it says; [before] goes in front, for the environment.
    int fit(const std::string& arguments, const std::string& before = "")
    {
        return run("", arguments + " --out '" + out + "'", before);
    }

    /// A run of a verb that has no such folder.
    int run(const std::string& verb, const std::string& arguments, const std::string& before = "")
    {
        const std::string command = before + " " FIT_COMMAND " " + verb + " " + arguments + " >'" +
                                    (folder / "stdout") + "' 2>'" + (folder / "stderr") + "'";
        const int status = std::system(command.c_str());
        output = read_text(folder / "stdout");
        errors = read_text(folder / "stderr");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// A run that must end with status 2 and leave nothing behind.
    std::string refused(const std::string& arguments)
    {
        EXPECT_EQ(fit(arguments), 2) << arguments;
        EXPECT_FALSE(std::filesystem::exists(out)) << arguments;
        return errors;
    }

    std::map<std::string, std::string> summary() const
    {
        std::map<std::string, std::string> values;
        std::istringstream lines(read_text(out + "/summary.txt"));
        for (std::string line; std::getline(lines, line);)
            values[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
        return values;
    }

    double figure(const std::string& key) const { return std::stod(summary().at(key)); }

    bool has(const std::string& file) const { return std::filesystem::exists(out + "/" + file); }

    TemporaryFolder folder;
    std::string out = folder / "out";
    std::string output;
    std::string errors;
    const std::string mpg = "'" FIT_DATA "/auto_mpg.csv' --target mpg --quiet ";
    const std::string complete = mpg + "--drop-missing --no-plot ";
    const std::string flights =
        "'" FIT_DATA
        "/flight_delays.csv' --target delay_min --core 15 --quiet --inputs "
        "hour,day_of_year,distance_miles --periodic hour=24,day_of_year=365 ";
};

inline testing::AssertionResult contains(const std::string& text, const std::string& part)
{
    if (text.find(part) != std::string::npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "\"" << part << "\" is not in:\n" << text;
}

#endif
