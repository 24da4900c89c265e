// The verb cv: rows that are left out are predicted by the fit to all others.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "run.h"

namespace {

struct Line {
    std::string line, fold, y, prediction;
};

class CrossValidation : public Run {
protected:
    void SetUp() override
    {
        header = "x,y\n";
        for (int i = 0; i < 120; ++i) {
            const double x = 0.01 * ((i * 37) % 201 - 100);
            const double y = x * x + 0.001 * ((i * 7919) % 101 - 50) + (i % 10 == 0 ? 5.0 : 0.0);
            rows.push_back(std::to_string(x) + "," + std::to_string(y) + "\n");
        }
        data = write("data.csv", [](std::size_t) { return true; });
    }

    template <class Keep>
    std::string write(const std::string& name, const Keep& keep)
    {
        std::string text = header;
        for (std::size_t i = 0; i < rows.size(); ++i)
            if (keep(i)) text += rows[i];
        return "'" + folder.write(name, text) + "' ";
    }

    int cv(const std::string& arguments)
    {
        return run("cv", data + "--target y --seed 5 --starts 1 " + arguments);
    }

    std::vector<Line> left_out() const
    {
        std::istringstream text(read_text(file));
        std::string ignored;
        std::getline(text, ignored);
        std::vector<Line> lines;
        for (Line l; std::getline(text, l.line, ',');) {
            std::getline(text, l.fold, ',');
            std::getline(text, l.y, ',');
            std::getline(text, l.prediction);
            lines.push_back(l);
        }
        return lines;
    }

    std::string header, data;
    std::vector<std::string> rows;
    const std::string file = folder / "rows.csv";
};

}  // namespace

TEST_F(CrossValidation, PredictsARowByTheFitToTheRowsOfAllOtherFolds)
{
    ASSERT_EQ(0, cv("--folds 3 --decay 0.1 --out '" + file + "'")) << errors;
    const std::vector<Line> lines = left_out();
    ASSERT_EQ(rows.size(), lines.size());
    int of_fold[3] = {};
    for (const Line& line : lines) ++of_fold[std::stoi(line.fold) - 1];
    for (const int n : of_fold) EXPECT_EQ(40, n);

    const std::string others =
        write("others.csv", [&](std::size_t i) { return lines[i].fold != "2"; });
    const std::string new_rows =
        write("new.csv", [&](std::size_t i) { return lines[i].fold == "2"; });
    ASSERT_EQ(0,
              fit(others +
                  "--target y --method robust --seed 5 --starts 1 --decay 0.1 --no-plot --quiet"))
        << errors;
    ASSERT_EQ(0, run("predict", "'" + out + "' " + new_rows)) << errors;
    std::istringstream text(output);
    std::string predicted;
    std::getline(text, predicted);
    EXPECT_EQ("x,y,fit(y)", predicted);
    for (const Line& line : lines) {
        if (line.fold != "2") continue;
        ASSERT_TRUE(std::getline(text, predicted));
        EXPECT_EQ(predicted.substr(predicted.rfind(',') + 1), line.prediction) << line.line;
    }
}

TEST_F(CrossValidation, SaysHowFarPredictionsAreOff)
{
    ASSERT_EQ(0, cv("--folds 3 --decay 0.1 --out '" + file + "'")) << errors;
    std::vector<double> errors_of_rows;
    double squares = 0.0;
    int beyond = 0;
    for (const Line& line : left_out()) {
        const double error = std::abs(std::stod(line.prediction) - std::stod(line.y));
        errors_of_rows.push_back(error);
        squares += error * error;
        beyond += error > 1.0;
    }
    std::sort(errors_of_rows.begin(), errors_of_rows.end());
    std::istringstream all(output.substr(output.rfind("  all ") + 6));
    double median = 0.0, bias = 0.0, rms = 0.0, share = 0.0;
    all >> median >> bias >> rms >> share;
    EXPECT_NEAR(0.5 * (errors_of_rows[59] + errors_of_rows[60]), median, 1e-3 * median);
    EXPECT_LT(median, 0.05);
    EXPECT_NEAR(std::sqrt(squares / 120.0), rms, 1e-3 * rms);
    EXPECT_EQ(12, beyond);
    EXPECT_NEAR(10.0, share, 1e-9);

    const std::string first = output;
    ASSERT_EQ(0, cv("--folds 3 --decay 0.1")) << errors;
    EXPECT_EQ(first, output);
}

TEST_F(CrossValidation, RefusesAnOutThatCannotBeBeforeItFits)
{
    const std::string path = folder / "data.csv", before = read_text(path);
    const auto refuses = [&](const std::string& name, const std::string& why) {
        EXPECT_EQ(2, cv("--out '" + name + "'"));
        EXPECT_TRUE(contains(errors, why));
        EXPECT_EQ("", output);
    };
    std::filesystem::create_symlink(path, folder / "link.csv");
    refuses(path, "is the data file");
    refuses(folder / "./data.csv", "is the data file");
    refuses(folder / "link.csv", "is the data file");
    refuses(folder / "", "is a folder");
    refuses(folder / "no/such.csv", "there is no such folder");
    EXPECT_EQ(before, read_text(path));
    ASSERT_EQ(1, cv("--folds 2 --decay 1 --out /dev/full"));
    EXPECT_TRUE(contains(output, "  all "));  // the table is not lost
}

TEST_F(CrossValidation, SaysWhichFoldHasWhatToSay)
{
    header = "fold,x\n";
    for (std::size_t i = 0; i < rows.size(); ++i)
        rows[i] = std::to_string(i < 59 ? 1.0 : 0.01 * static_cast<double>(i)) + "," +
                  std::to_string(i) + "\n";
    data = write("half.csv", [](std::size_t) { return true; });
    EXPECT_EQ(2, run("cv", data + "--target fold --out '" + file + "'"));
    EXPECT_TRUE(contains(errors, "a column 'fold' of its own"));
    EXPECT_EQ(2, run("cv", data + "--target fold --folds 3 --decay 1"));
    EXPECT_TRUE(contains(errors, "without fold "));

    header = "x,y\n";
    for (std::size_t i = 0; i < rows.size(); ++i)
        rows[i] = std::to_string(i == 7 ? 1e6 : 0.01 * static_cast<double>(i)) + "," +
                  std::to_string(0.1 * static_cast<double>((i * 7) % 11)) + "\n";
    data = write("far.csv", [](std::size_t) { return true; });
    ASSERT_EQ(0, cv("--folds 2 --decay 1")) << errors;
    EXPECT_TRUE(contains(errors, "vemkn-fit: note: without fold "));
}

TEST_F(CrossValidation, RefusesWhatMakesNoFolds)
{
    EXPECT_EQ(2, cv("--folds 61"));
    EXPECT_TRUE(contains(errors, "--folds: 120 rows are too few for 61 folds"));
    EXPECT_EQ(2, cv("--folds 1"));
    EXPECT_EQ(2, cv("--validation 0.2"));
    EXPECT_EQ(2, cv("--activation relu"));
    EXPECT_EQ(2, run("cv", data));
    EXPECT_TRUE(contains(errors, "--target"));
    EXPECT_EQ("", output);
}
