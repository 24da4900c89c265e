// The program from end to end: exit status, messages, files.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "temporary.h"

namespace {

namespace fs = std::filesystem;

class Run : public testing::Test {
protected:
    /// Runs the program and keeps what it says; [before] goes in front, for the environment.
    int fit(const std::string& arguments, const std::string& before = "")
    {
        const std::string command = before + " '" FIT_PROGRAM "' " + arguments + " --out '" + out +
                                    "' >'" + (folder / "stdout") + "' 2>'" + (folder / "stderr") +
                                    "'";
        const int status = std::system(command.c_str());
        output = read_text(folder / "stdout");
        errors = read_text(folder / "stderr");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// A run that must end with status 2 and leave nothing behind.
    std::string refused(const std::string& arguments)
    {
        EXPECT_EQ(fit(arguments), 2) << arguments;
        EXPECT_FALSE(fs::exists(out)) << arguments;
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

    bool has(const std::string& file) const { return fs::exists(out + "/" + file); }

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

testing::AssertionResult contains(const std::string& text, const std::string& part)
{
    if (text.find(part) != std::string::npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "\"" << part << "\" is not in:\n" << text;
}

TEST_F(Run, RefusesBadDataWithTheirPlace)
{
    const std::string bad = folder.write("bad.csv", "x,horsepower,y\n1,2,3\n1,abc,3\n");
    EXPECT_TRUE(contains(refused("'" + bad + "' --target y"),
                         "bad.csv:3:2: \"abc\" in column 'horsepower' is not a number"));
    EXPECT_TRUE(contains(refused("'" + folder.write("empty.csv", "") + "' --target y"),
                         "empty.csv: the file is empty"));
    EXPECT_TRUE(
        contains(refused("'" + (folder / "none.csv") + "' --target y"), "none.csv: No such"));
    EXPECT_TRUE(
        contains(refused("'" FIT_DATA "/auto_mpg.csv' --target speed"), "no column 'speed'"));
    EXPECT_TRUE(contains(refused(mpg), "auto_mpg.csv:12:8: \"NA\" in column 'mpg' is missing"));
}

TEST_F(Run, RefusesAWrongCommandLine)
{
    refused("");
    refused(complete + "--no-such-option");
    refused(complete + "--hidden 0");
    refused(complete + "--activation tanh");
    refused(complete + "--core -1");
    EXPECT_TRUE(contains(refused(complete + "--norm sum"), "has no minimum"));
    EXPECT_TRUE(contains(refused(complete + "--norm l2"), "\"l2\" is neither"));
    EXPECT_TRUE(contains(refused(complete + "--method gauss-newton --norm sum_log_dnorm_fat"),
                         "--norm sum only"));
    EXPECT_TRUE(contains(refused(complete + "--periodic year"), "name=period"));
    EXPECT_TRUE(contains(refused(complete + "--periodic mpg=1"), "'mpg' is not an input"));
    EXPECT_TRUE(contains(refused(complete + "--plot-over mpg"), "'mpg' is not an input"));
    EXPECT_TRUE(contains(refused(complete + "--activation atan --core 1"), "range of atan"));
    EXPECT_TRUE(contains(refused(complete + "--core 1e-9"), "larger --core"));
}

TEST_F(Run, ExplainsItself)
{
    EXPECT_EQ(fit("--help"), 0);
    EXPECT_TRUE(contains(output, "--drop-missing"));
    EXPECT_EQ(fit("--version"), 0);
    EXPECT_TRUE(contains(output, "vemkn-fit 20"));
}

TEST_F(Run, FitsWithMissingRowsDropped)
{
    ASSERT_EQ(fit(complete), 0) << errors;
    EXPECT_EQ(figure("dropped_rows"), 14);
    EXPECT_EQ(figure("training_rows") + figure("held_out_rows"), 392);
    EXPECT_LT(figure("training.median_error.mpg"), 1.7);
    EXPECT_LT(figure("held_out.median_error.mpg"), 2.2);
    EXPECT_LT(figure("objective"), 0.55);
    EXPECT_FALSE(has("plot.gp"));
    const std::string predictions = read_text(out + "/predictions.csv");
    EXPECT_EQ(std::count(predictions.begin(), predictions.end(), '\n'), 393);
}

TEST_F(Run, NewtonGetsAsLow)
{
    ASSERT_EQ(fit(complete + "--method newton"), 0) << errors;
    EXPECT_LT(figure("objective"), 0.5);
    EXPECT_GT(figure("product_calls"), 0);
}

TEST_F(Run, GaussNewtonGetsAsLow)
{
    ASSERT_EQ(fit(complete + "--method gauss-newton"), 0) << errors;
    EXPECT_LT(figure("objective"), 0.5);
    EXPECT_EQ(summary().at("norm"), "sum");
}

TEST_F(Run, RepeatsToTheBit)
{
    for (const char* method : {"lbfgs --threads 2", "newton", "gauss-newton"}) {
        const std::string arguments =
            complete + "--starts 2 --max-evaluations 60 --method " + method;
        ASSERT_EQ(fit(arguments + " --seed 7"), 0) << errors;
        const std::string first = read_text(out + "/weights.txt");
        ASSERT_EQ(fit(arguments + " --seed 7"), 0);
        EXPECT_EQ(read_text(out + "/weights.txt"), first) << method;
        ASSERT_EQ(fit(arguments + " --seed 8"), 0);
        EXPECT_NE(read_text(out + "/weights.txt"), first) << method;
    }
}

TEST_F(Run, RobustFitLeavesLateFlightsAside)
{
    ASSERT_EQ(fit(flights + "--compare --no-plot --starts 2"), 0) << errors;
    EXPECT_LT(figure("training.median_error.delay_min"), 12.5);
    EXPECT_GT(figure("training.outliers.delay_min"), 0.015);
    EXPECT_LT(figure("training.outliers.delay_min"), 0.035);
    EXPECT_LT(figure("training.bias.delay_min"),
              figure("least_squares.training.bias.delay_min") - 1.0);
    EXPECT_LT(figure("training.median_error.delay_min"),
              figure("least_squares.training.median_error.delay_min") - 0.5);
    EXPECT_GT(figure("training.rms_error.delay_min"),
              figure("least_squares.training.rms_error.delay_min"));
}

TEST_F(Run, WritesErrorsAndCurves)
{
    ASSERT_EQ(fit(complete + "--uncertainty --method newton"), 0) << errors;
    EXPECT_TRUE(contains(read_text(out + "/predictions.csv"), "standard_error(mpg)"));
    ASSERT_EQ(fit(mpg + "--drop-missing --uncertainty --compare --plot-over weight_lb"), 0)
        << errors;
    EXPECT_TRUE(contains(read_text(out + "/curve.csv"),
                         "weight_lb,fit(mpg),low(mpg),high(mpg),least_squares(mpg)"));
    for (const char* file : {"plot.gp", "medians.csv", "weights.txt", "summary.txt"})
        EXPECT_TRUE(has(file)) << file;
}

TEST_F(Run, DoesWithoutGnuplot)
{
    ASSERT_EQ(fit(mpg + "--drop-missing --starts 1", "PATH=/nonexistent"), 0) << errors;
    EXPECT_TRUE(contains(errors, "gnuplot is not installed"));
    EXPECT_TRUE(has("plot.gp"));
    EXPECT_FALSE(has("plot.png"));
}

TEST_F(Run, DrawsThePlot)
{
    if (std::system("command -v gnuplot >/dev/null") != 0) GTEST_SKIP() << "no gnuplot";
    ASSERT_EQ(fit(mpg + "--drop-missing --starts 1"), 0) << errors;
    EXPECT_EQ(read_text(out + "/plot.png").substr(1, 3), "PNG") << errors;
    ASSERT_EQ(fit(complete + "--starts 1"), 0);
    EXPECT_FALSE(has("plot.png")) << "a plot of other weights must not stay";
}

TEST_F(Run, FitsSeveralTargetsWithEveryActivation)
{
    for (const char* activation : {"softplus", "atan", "relu", "id"}) {
        ASSERT_EQ(fit("'" FIT_DATA "/auto_mpg.csv' --quiet --drop-missing --target mpg,horsepower "
                      "--hidden 5,4 --no-plot --activation " +
                      std::string(activation)),
                  0)
            << activation << errors;
        EXPECT_LT(figure("training.median_error.mpg"), 3.0) << activation;
        EXPECT_LT(figure("training.median_error.horsepower"), 12.0) << activation;
    }
}

TEST_F(Run, StandsAbsurdCores)
{
    for (const char* core : {"1e-3", "1e6"})
        ASSERT_EQ(fit(complete + "--starts 1 --core " + core), 0) << core << errors;
}

TEST_F(Run, LeavesForeignFilesAlone)
{
    fs::create_directory(out);
    std::ofstream(out + "/mine.txt") << "mine";
    EXPECT_EQ(fit(complete + "--target none"), 2);
    ASSERT_EQ(fit(complete + "--starts 1"), 0) << errors;
    EXPECT_EQ(read_text(out + "/mine.txt"), "mine");
    for (const auto& entry : fs::directory_iterator(out))
        EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
}

TEST_F(Run, RefusesAFileAsFolder)
{
    out = folder.write("file", "x");
    EXPECT_EQ(fit(complete), 2);
    EXPECT_TRUE(contains(errors, "is not a folder"));
    EXPECT_EQ(read_text(out), "x");
}

}  // namespace
