// Model files, and predictions of new rows by them.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vemkn_fit.h>

#include <string>
#include <vector>

#include "run.h"

namespace {

namespace fs = std::filesystem;

std::string replaced(std::string text, const std::string& what, const std::string& by)
{
    const std::size_t at = text.find(what);
    if (at == std::string::npos) throw std::invalid_argument("not there: " + what);
    return text.replace(at, what.size(), by);
}

class Predict : public Run {
protected:
    void SetUp() override
    {
        std::string rows = "a,label,b,y\n";
        for (int i = 0; i < 60; ++i)
            rows += std::to_string(0.1 * i) + ",\"row, " + std::to_string(i) + "\"," +
                    std::to_string((i * 37) % 24) + "," + std::to_string((i * i) % 17 + 0.3) + "\n";
        data = folder.write("data.csv", rows);
        ASSERT_EQ(fit("'" + data + "' --target y --inputs a,b --periodic b=24 --no-plot --quiet"),
                  0)
            << errors;
        model = read_text(out + "/model.json");
    }

    /// A run of the verb.
    int predict(const std::string& arguments, const std::string& before = "")
    {
        return run("predict", arguments, before);
    }

    std::string with_model(const std::string& text) const
    {
        return "'" + folder.write("changed.json", text) + "' '" + data + "'";
    }

    std::string data, model;
    const std::string fitted = "'" + out + "/model.json' ";
};

}  // namespace

TEST_F(Predict, GivesEveryRowWhatTheFitGaveIt)
{
    const auto known = lines_of(read_text(out + "/predictions.csv"));
    for (const std::string& by : {out, out + "/model.json"}) {
        ASSERT_EQ(predict("'" + by + "' '" + data + "'"), 0) << errors;
        const auto rows = lines_of(output);
        ASSERT_EQ(known.size(), rows.size());
        EXPECT_EQ("a,label,b,y,fit(y)", rows[0]);
        for (std::size_t i = 1; i < rows.size(); ++i) {
            // line,set,a,b,y,fit(y),...
            std::istringstream cells(known[i]);
            std::string cell;
            for (int c = 0; c < 6; ++c) std::getline(cells, cell, ',');
            EXPECT_TRUE(rows[i].ends_with("," + cell)) << known[i] << "\n" << rows[i];
        }
        EXPECT_TRUE(rows[1].starts_with("0.000000,\"row, 0\",0,")) << rows[1];
    }
}

TEST_F(Predict, FindsColumnsByNameAndNamesWhatIsMissing)
{
    const std::string other = folder.write("other.csv", "b,extra,a\n5,\"\"\"x\"\"\",1.5\n7,,2.5\n");
    ASSERT_EQ(predict(fitted + "'" + other + "'"), 0) << errors;
    const auto rows = lines_of(output);
    ASSERT_EQ(3u, rows.size());
    EXPECT_EQ("b,extra,a,fit(y)", rows[0]);
    EXPECT_TRUE(rows[1].starts_with("5,\"\"\"x\"\"\",1.5,")) << rows[1];

    EXPECT_EQ(2, predict(fitted + "'" + folder.write("short.csv", "a,c\n1,2\n") + "'"));
    EXPECT_TRUE(contains(errors, "no column 'b'; there are a, c"));
    EXPECT_EQ(2, predict(fitted + "'" + folder.write("twice.csv", "a,b,fit(y)\n1,2,3\n") + "'"));
    EXPECT_TRUE(contains(errors, "a column 'fit(y)' already"));
}

TEST_F(Predict, GivesIntervalsOfRobustFits)
{
    EXPECT_EQ(2, predict(fitted + "'" + data + "' --interval"));
    EXPECT_TRUE(contains(errors, "not from a robust fit"));
    ASSERT_EQ(
        0, fit("'" + data + "' --target y --inputs a --method robust --decay 3 --no-plot --quiet"))
        << errors;
    const auto numbers = [](const std::string& row) {
        std::vector<double> cells;
        std::istringstream stream(row.substr(row.rfind('"')));
        std::string cell;
        while (std::getline(stream, cell, ',')) cells.push_back(std::strtod(cell.c_str(), nullptr));
        return std::vector(cells.end() - 4, cells.end());
    };
    ASSERT_EQ(0, predict(fitted + "'" + data + "' --interval")) << errors;
    EXPECT_TRUE(contains(errors, "of the 60 fitted rows lie beyond six cores"));
    const auto wide = lines_of(output);
    ASSERT_EQ(0, predict(fitted + "'" + data + "' --interval confidence --level 0.5")) << errors;
    const auto narrow = lines_of(output);
    EXPECT_EQ("a,label,b,y,fit(y),error(y),lower(y),upper(y)", wide[0]);
    for (std::size_t i = 1; i < wide.size(); ++i) {
        const auto row = numbers(wide[i]), band = numbers(narrow[i]);
        EXPECT_EQ(row[0], band[0]);
        EXPECT_EQ(row[1], band[1]);
        EXPECT_LT(row[2], band[2]);
        EXPECT_LT(band[2], band[0]);
        EXPECT_NEAR(band[3] - band[0], 0.68 * band[1], 0.01 * band[1]);
        EXPECT_GT(row[3], band[3]);
    }
    EXPECT_EQ(2, predict(fitted + "'" + data + "' --interval some"));
    EXPECT_EQ(2, predict(fitted + "'" + data + "' --level 95 --interval"));
}

TEST_F(Predict, RefusesOrLeavesOutMissingCells)
{
    const std::string gaps = folder.write("gaps.csv", "a,b\n1,2\nNA,3\n,4\n5,6\n");
    EXPECT_EQ(2, predict(fitted + "'" + gaps + "'"));
    EXPECT_TRUE(contains(errors, "gaps.csv:3:1"));
    EXPECT_EQ("", output);
    ASSERT_EQ(0, predict(fitted + "--drop-missing '" + gaps + "'")) << errors;
    ASSERT_EQ(3u, lines_of(output).size());
    EXPECT_TRUE(lines_of(output)[2].starts_with("5,6,"));
}

TEST_F(Predict, PutsRowsAloneOnStandardOutput)
{
    ASSERT_EQ(0, predict(fitted + "'" + data + "'"));
    const std::string quiet = output;
    ASSERT_EQ(0, predict(fitted + "'" + data + "'", "INFO=1 NN_TRACE=1"));
    EXPECT_EQ(quiet, output);
    EXPECT_TRUE(contains(errors, "VEMKN"));
}

TEST_F(Predict, WritesAFileWholeOrNotAtAll)
{
    const std::string file = folder.write("rows.csv", "older");
    EXPECT_EQ(2, predict("'" + (folder / "none.json") + "' '" + data + "' -o '" + file + "'"));
    EXPECT_EQ("older", read_text(file));
    ASSERT_EQ(0, predict(fitted + "'" + data + "' -o '" + file + "'")) << errors;
    EXPECT_EQ("", output);
    EXPECT_EQ(61u, lines_of(read_text(file)).size());
    EXPECT_EQ(1, predict(fitted + "'" + data + "' -o '" + (folder / "no/such") + "'"));
    EXPECT_TRUE(contains(errors, "cannot be written"));
    // A device stays one.
    EXPECT_EQ(0, predict(fitted + "'" + data + "' -o /dev/null"));
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_EQ(1, predict(fitted + "'" + data + "' -o /dev/full"));
    const int status = std::system((FIT_COMMAND " predict " + fitted + "'" + data +
                                    "' >/dev/full 2>'" + (folder / "stderr") + "'")
                                       .c_str());
    EXPECT_EQ(1, WEXITSTATUS(status));
}

TEST_F(Predict, NamesTheRowOfInputsThatAreTooLarge)
{
    const std::string far = folder.write("far.csv", "a,b\n1,2\n1.7e308,3\n-1.7e308,3\n");
    const int status = predict(fitted + "'" + far + "'");
    if (status == 2) {
        EXPECT_TRUE(contains(errors, "far.csv:"));
        EXPECT_EQ("", output);
    } else {
        EXPECT_EQ(0, status);
        EXPECT_EQ(std::string::npos, output.find("inf"));
        EXPECT_EQ(std::string::npos, output.find("nan"));
    }
}

TEST_F(Predict, SaysWhatIsWrongWithAModel)
{
    struct Wrong {
        std::string text, why;
    };

    for (const Wrong& wrong : {
             Wrong{"", "no JSON"},
             Wrong{"{}", "not a model"},
             Wrong{model.substr(0, model.size() / 2), "no JSON"},
             Wrong{replaced(model, "\"vemkn_model\": 1", "\"vemkn_model\": 2"), "newer release"},
             Wrong{replaced(model, "\"vemkn_model\": 1", "\"vemkn_model\": 1e99"), "number of a"},
             Wrong{replaced(model, "softplus", "tanh"), "unknown activation"},
             Wrong{replaced(model, "\"core\": ", "\"core\": -"), "\"core\" is not positive"},
             Wrong{replaced(model, "\"hidden\": [\n  6", "\"hidden\": [\n  7"), "numbers, as the"},
             Wrong{replaced(model, "\"hidden\": [\n  6", "\"hidden\": [\n  60000"), "1 to 4096"},
             Wrong{replaced(model, "\"mean\"", "\"mode\""), "no \"mean\""},
         }) {
        EXPECT_EQ(2, predict(with_model(wrong.text))) << wrong.why;
        EXPECT_TRUE(contains(errors, wrong.why));
        EXPECT_EQ("", output);
    }
}

// Inputs far out, which the program's other methods scale otherwise than the library does.
TEST_F(Predict, RobustModelsAreThoseThatTheLibraryWrites)
{
    std::string text = "a,hour,y\n";
    std::vector<double> x, y;
    for (int i = 0; i < 80; ++i) {
        const int a = (i * 37) % 80, hour = (i * 11) % 24, target = (i * i) % 17 + 2 * a;
        x.insert(x.end(), {i == 7 ? 4000.0 : a, static_cast<double>(hour)});
        y.push_back(target);
        text += std::to_string(i == 7 ? 4000 : a) + "," + std::to_string(hour) + "," +
                std::to_string(target) + "\n";
    }
    ASSERT_EQ(0,
              fit("'" + folder.write("far.csv", text) +
                  "' --target y --periodic hour=24 --method robust --no-plot --quiet"))
        << errors;
    const VEMKNFitColumn columns[] = {{"a", 0.0, 0.0, 0.0}, {"hour", 24.0, 0.0, 0.0}};
    VEMKNFitOptions options{};
    options.size = sizeof options;
    options.columns = columns;
    options.seed = 1;
    VEMKNFit* made = nullptr;
    ASSERT_EQ(VEMKN_FIT_OK, vemkn_fit_robust(x.data(), 80, 2, y.data(), &options, &made))
        << vemkn_fit_message();
    const std::string path = folder / "library.json";
    EXPECT_EQ(VEMKN_FIT_OK, vemkn_fit_save(made, path.c_str()));
    vemkn_fit_free(made);
    EXPECT_EQ(read_text(path), read_text(out + "/model.json"));
}

TEST_F(Predict, ShowsWhatAModelHolds)
{
    ASSERT_EQ(0, run("show", fitted + "--json", "INFO=1 NN_TRACE=1")) << errors;
    EXPECT_EQ(model, output);
    ASSERT_EQ(0, run("show", "'" + out + "'")) << errors;
    for (const char* const part : {"method           lbfgs\n",
                                   "2 columns, hidden 6, softplus, 31 weights",
                                   "inputs           a, b\n",
                                   "target           y: core "})
        EXPECT_TRUE(contains(output, part));
    ASSERT_EQ(
        0, fit("'" + data + "' --target y --inputs a --method robust --decay 3 --no-plot --quiet"))
        << errors;
    ASSERT_EQ(0, run("show", "'" + out + "'")) << errors;
    for (const char* const part :
         {"method           robust\n", "decay            3\n", "beyond six cores "})
        EXPECT_TRUE(contains(output, part));
    EXPECT_EQ(2, run("show", "'" + data + "'"));
    EXPECT_EQ(2, run("show", ""));
}
