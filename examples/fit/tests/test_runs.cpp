// The program from end to end: exit status, messages, files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>

#include "run.h"

namespace {

namespace fs = std::filesystem;

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

TEST_F(Run, RefusesOptionsThatAreNoNumbers)
{
    for (const char* given : {"--validation nan",
                              "--core nan",
                              "--core 0x5",
                              "--shift ''",
                              "--shift inf",
                              "--tolerance nan",
                              "--tolerance 1e-400",
                              "--decay nan --method robust"})
        EXPECT_TRUE(contains(refused(complete + given), "is not a number")) << given;
    for (const char* seed : {"18446744073709551616", "-1", "1.5", "''"})
        EXPECT_TRUE(contains(refused(complete + "--seed " + seed), "not a whole number")) << seed;
    EXPECT_TRUE(contains(refused(complete + "--periodic year=24,year=12"), "has two periods"));
}

TEST_F(Run, NamesWhatAMisspeltWordMayHaveMeant)
{
    EXPECT_TRUE(contains(refused(complete + "--validaton=0.1"),
                         "no option --validaton; perhaps --validation"));
    EXPECT_TRUE(contains(refused(complete + "--frobnicate"), "no option --frobnicate\n"));
    EXPECT_TRUE(contains(refused(complete + "--inputs wieght_lb"), "perhaps 'weight_lb'"));
}

TEST_F(Run, TakesTheLastOfAnOptionGivenTwice)
{
    ASSERT_EQ(fit(complete + "--starts 2 --seed 3 --starts 1 --max-evaluations 5"), 0) << errors;
    EXPECT_EQ(figure("starts"), 1);
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

TEST_F(Run, RobustEstimatesCoreShiftAndDecay)
{
    ASSERT_EQ(fit(complete + "--method robust --uncertainty --validation 0.2"), 0) << errors;
    EXPECT_LT(figure("training.median_error.mpg"), 1.5);
    EXPECT_LT(figure("held_out.median_error.mpg"), 1.5);
    EXPECT_LT(figure("gradient_norm"), 1e-5);
    EXPECT_GT(figure("core.mpg"), 1.5);
    EXPECT_LT(figure("core.mpg"), 3.0);
    const double decay = figure("decay");
    ASSERT_EQ(fit(complete + "--method robust --validation 0.2 --decay " + std::to_string(decay)),
              0)
        << errors;
    EXPECT_EQ(decay, figure("decay"));
}

// Every fourth target a hundred times as large: least squares would follow them, and so would a core that was estimated with them.
TEST_F(Run, RobustPassesOverGrossOutliers)
{
    std::string rows = "x,y\n";
    for (int i = 0; i < 200; ++i) {
        const double x = 0.02 * i, wave = std::sin(2.0 * x) + 0.02 * ((i * 7919) % 101 - 50) / 50.0;
        rows += std::to_string(x) + "," + std::to_string(i % 4 == 3 ? 100.0 + x : wave) + "\n";
    }
    const std::string data =
        "'" + folder.write("rows.csv", rows) + "' --target y --no-plot --quiet ";
    ASSERT_EQ(fit(data + "--method robust --decay 0.1"), 0) << errors;
    EXPECT_EQ(200, figure("training_rows"));
    EXPECT_NEAR(0.25, figure("training.outliers.y"), 1e-9);
    EXPECT_NEAR(0.0117, figure("core.y"), 0.002);
    EXPECT_LT(figure("training.median_error.y"), 0.03);
}

TEST_F(Run, RobustRefusesWhatItCannotEstimate)
{
    EXPECT_TRUE(contains(refused(complete + "--method robust --shift 2"), "leave out --shift"));
    EXPECT_TRUE(
        contains(refused(complete + "--method robust --activation atan"), "softplus or id"));
    EXPECT_TRUE(contains(refused(complete + "--decay 1"), "for --method robust"));
    EXPECT_TRUE(contains(
        refused("'" FIT_DATA "/auto_mpg.csv' --target mpg,year --drop-missing --method robust"),
        "one target"));
    const std::string data = folder.write("equal.csv", "x,y\n1,2\n2,2\n3,2\n4,2\n5,2\n6,7\n");
    EXPECT_TRUE(contains(refused("'" + data + "' --target y --method robust"), "by --core"));
}

// Of id, which is a line: y = 1 + 2x, every tenth 50 higher.
TEST_F(Run, RobustTakesACoreAndALine)
{
    std::string rows = "x,y\n";
    for (int i = 0; i < 60; ++i)
        rows += std::to_string(i) + "," +
                std::to_string(1 + 2 * i + (i * 7) % 3 - 1 + (i % 10 == 3 ? 50 : 0)) + "\n";
    const std::string data =
        "'" + folder.write("line.csv", rows) + "' --target y --no-plot --quiet ";
    ASSERT_EQ(fit(data + "--method robust --activation id --hidden 1 --core 1.5"), 0) << errors;
    EXPECT_EQ(1.5, figure("core.y"));
    EXPECT_NEAR(0.1, figure("training.outliers.y"), 1e-9);
    EXPECT_LT(figure("training.median_error.y"), 1.1);
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

// In files as German and French spreadsheets write them, with the verb and without.
TEST_F(Run, TakesTheVerbSemicolonsAndDecimalCommas)
{
    std::string points = "a,y\n", commas = "a;y\n";
    for (int i = 0; i < 30; ++i) {
        const std::string a = std::to_string(i), y = std::to_string((i * i) % 7);
        points.append(a).append(".25,").append(y).append(".5\n");
        commas.append(a).append(",25;").append(y).append(",5\n");
    }
    const std::string end = " --target y --starts 1 --no-plot --quiet";
    ASSERT_EQ(fit("'" + folder.write("points.csv", points) + "'" + end), 0) << errors;
    const std::string weights = read_text(out + "/model.json");
    out = folder / "other";
    ASSERT_EQ(fit("fit '" + folder.write("commas.csv", commas) + "' --decimal-comma" + end), 0)
        << errors;
    EXPECT_EQ(read_text(out + "/model.json"), weights);
    EXPECT_TRUE(contains(errors, "semicolons separate cells"));
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

TEST_F(Run, ReadsStandardInputAndGzip)
{
    const std::string options = "--target mpg --quiet --drop-missing --no-plot --starts 1 ";
    const std::string data = FIT_DATA "/auto_mpg.csv";
    ASSERT_EQ(fit("'" + data + "' " + options), 0) << errors;
    auto expected = summary();
    ASSERT_EQ(fit("- " + options + "<'" + data + "'"), 0) << errors;
    auto piped = summary();
    EXPECT_EQ(piped["data"], "standard input");
    const std::string packed = folder / "mpg.csv.gz";
    ASSERT_EQ(std::system(("gzip -c '" + data + "' >'" + packed + "'").c_str()), 0);
    ASSERT_EQ(fit("'" + packed + "' " + options), 0) << errors;
    auto unpacked = summary();
    for (auto* const values : {&expected, &piped, &unpacked})
        for (const char* const key : {"data", "seconds", "checksum.summary.txt"})
            values->erase(key);
    EXPECT_EQ(piped, expected);
    EXPECT_EQ(unpacked, expected);
    ASSERT_EQ(run("predict", "'" + out + "' - --drop-missing <'" + data + "'"), 0) << errors;
    const std::string predictions = output;
    ASSERT_EQ(run("predict", "'" + out + "' '" + packed + "' --drop-missing"), 0) << errors;
    EXPECT_EQ(output, predictions);
    EXPECT_EQ(run("predict", "'" + out + "' - <&-"), 2);
    EXPECT_TRUE(contains(errors, "standard input: "));
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

TEST_F(Run, DrawsWithoutStartupFilesAndStandardInput)
{
    if (std::system("command -v gnuplot >/dev/null") != 0) GTEST_SKIP() << "no gnuplot";
    folder.write(".gnuplot", "print 'started'\n");
    ASSERT_EQ(fit(mpg + "--drop-missing --starts 1 <&-", "HOME='" + (folder / "") + "'"), 0);
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(has("plot.png"));
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
