// Which files a run takes the place of: its own kind, and never the data or what is the user's.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "output_directory.h"
#include "run.h"
#include "user_error.h"

namespace {

namespace fs = std::filesystem;

const std::vector<std::string> all_files{"model.json",
                                         "weights.txt",
                                         "predictions.csv",
                                         "summary.txt",
                                         "curve.csv",
                                         "medians.csv",
                                         "plot.gp",
                                         "plot.png"};

class Outputs : public Run {
protected:
    Outputs()
    {
        for (int row = 0; row < 30; ++row)
            data += std::to_string(row) + "," + std::to_string(row * 7 % 11) + "\n";
        fs::create_directory(out);
    }

    int run(const std::string& input, const std::string& options = "")
    {
        return fit("'" + input + "' --target y --starts 1 --max-evaluations 3 --quiet " + options);
    }

    std::string put(const std::string& name, const std::string& text) const
    {
        return folder.write("out/" + name, text);
    }

    /// What is in [out], by name.
    std::map<std::string, std::string> contents() const
    {
        std::map<std::string, std::string> texts;
        for (const auto& entry : fs::directory_iterator(out))
            texts[entry.path().filename().string()] = read_text(entry.path().string());
        return texts;
    }

    /// A run that is refused for what [why] says, and changes nothing.
    void expect_refusal(const std::string& input,
                        const std::string& options,
                        const std::string& why)
    {
        const auto before = contents();
        EXPECT_EQ(run(input, options), 2);
        EXPECT_TRUE(contains(errors, why));
        EXPECT_EQ(contents(), before);
    }

    std::string data = "x,y\n";
};

TEST_F(Outputs, AreNeverTheInput)
{
    for (const std::string& name : all_files) {
        const std::string input = put(name, data);
        for (const char* options : {"", "--no-plot"})
            expect_refusal(input, options, name + " there is the data file");
        fs::remove(input);
    }
}

TEST_F(Outputs, AreNeverTheInputByAnotherName)
{
    const std::string input = put("curve.csv", data);
    fs::create_symlink(input, folder / "soft.csv");
    fs::create_hard_link(input, folder / "hard.csv");
    fs::create_directory_symlink(out, folder / "elsewhere");
    for (const char* name : {"soft.csv", "hard.csv", "elsewhere/curve.csv"})
        expect_refusal(folder / name, "--no-plot", "curve.csv there is the data file");

    fs::rename(input, folder / "moved.csv");
    fs::create_symlink(folder / "moved.csv", input);
    expect_refusal(folder / "moved.csv", "--no-plot", "curve.csv there is the data file");
}

TEST_F(Outputs, OfAnEarlierRunAreNeverTheInput)
{
    ASSERT_EQ(run(folder.write("data.csv", data)), 0) << errors;
    const auto before = contents();
    EXPECT_EQ(fit("'" + out + "/curve.csv' --target x --no-plot"), 2);
    EXPECT_EQ(contents(), before);
}

TEST_F(Outputs, NeverReplaceAFileOfTheUser)
{
    const std::string input = put("data.csv", data);
    for (const std::string& name : all_files) {
        put(name, "mine");
        expect_refusal(input, "", "changed since: " + name);
        fs::remove(out + "/" + name);
    }
    fs::create_symlink("nowhere", out + "/weights.txt");
    expect_refusal(input, "", "changed since: weights.txt");
}

TEST_F(Outputs, LeaveAPlotOfTheUserAlone)
{
    const std::string input = put("data.csv", data);
    for (const char* name : {"curve.csv", "medians.csv", "plot.gp", "plot.png"}) put(name, "mine");
    ASSERT_EQ(run(input, "--no-plot"), 0) << errors;
    for (const char* name : {"curve.csv", "medians.csv", "plot.gp", "plot.png"})
        EXPECT_EQ(contents().at(name), "mine") << name;
    EXPECT_TRUE(
        contains(errors, "stays in " + out + ": curve.csv, medians.csv, plot.gp, plot.png"));
}

TEST_F(Outputs, ReplaceThoseOfAnEarlierRun)
{
    const std::string input = put("data.csv", data);
    ASSERT_EQ(run(input), 0) << errors;
    ASSERT_EQ(run(input), 0) << errors;
    EXPECT_TRUE(has("curve.csv"));
    ASSERT_EQ(run(input, "--no-plot"), 0) << errors;
    EXPECT_EQ(folder.files(),
              (std::set<std::string>{"out/data.csv",
                                     "out/model.json",
                                     "out/predictions.csv",
                                     "out/summary.txt",
                                     "out/weights.txt",
                                     "stderr",
                                     "stdout"}));
}

TEST_F(Outputs, KeepWhatTheUserMadeOfAnEarlierRun)
{
    const std::string input = put("data.csv", data);
    ASSERT_EQ(run(input), 0) << errors;
    put("curve.csv", "mine");
    expect_refusal(input, "", "changed since: curve.csv;");
    ASSERT_EQ(run(input, "--no-plot"), 0) << errors;
    EXPECT_EQ(contents().at("curve.csv"), "mine");
    EXPECT_FALSE(has("plot.gp"));

    std::ofstream(out + "/summary.txt", std::ios::app) << "note=mine\n";
    expect_refusal(input,
                   "--no-plot",
                   "changed since: model.json, weights.txt, predictions.csv, summary.txt;");
}

TEST_F(Outputs, NeverReplaceWhatCameDuringTheFit)
{
    fit::OutputDirectory directory(out, folder.write("data.csv", data), false);
    put("weights.txt", "mine");
    EXPECT_THROW(directory.open(), fit::UserError);
}

}  // namespace
