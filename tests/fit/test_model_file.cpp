// Model files: round trips, and what hostile ones do.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "rows.h"

namespace {

namespace fs = std::filesystem;
using rows::Data;
using rows::Fit;

class ModelFile : public testing::Test {
protected:
    void SetUp() override
    {
        fs::create_directories(folder);
        fit = rows::fitted(data, rows::options());
        ASSERT_TRUE(fit);
        text = rows::text_of(fit.get());
    }

    void TearDown() override { fs::remove_all(folder); }

    std::string replaced(const std::string& what, const std::string& by) const
    {
        std::string other = text;
        const std::size_t at = other.find(what);
        if (at == std::string::npos) throw std::invalid_argument("not there: " + what);
        return other.replace(at, what.size(), by);
    }

    const fs::path folder =
        fs::temp_directory_path() / ("vemknfit-test-" + std::to_string(getpid()));
    const std::string path = (folder / "model.json").string();
    const Data data = Data(80);
    Fit fit;
    std::string text;
};

std::string content_of(const std::string& path)
{
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

Fit loaded(const std::string& path)
{
    VEMKNFit* made = nullptr;
    EXPECT_EQ(VEMKN_FIT_OK, vemkn_fit_load(path.c_str(), &made)) << vemkn_fit_message();
    return Fit(made);
}

}  // namespace

TEST_F(ModelFile, KeepsEveryBit)
{
    ASSERT_EQ(VEMKN_FIT_OK, vemkn_fit_save(fit.get(), path.c_str())) << vemkn_fit_message();
    EXPECT_EQ(text, content_of(path));
    const Fit other = loaded(path);
    EXPECT_EQ(rows::predicted(fit.get(), data), rows::predicted(other.get(), data));
    EXPECT_EQ(text, rows::text_of(other.get()));
    EXPECT_EQ(vemkn_fit_core(fit.get(), 0), vemkn_fit_core(other.get(), 0));
    EXPECT_EQ(vemkn_fit_shift(fit.get(), 0), vemkn_fit_shift(other.get(), 0));
    EXPECT_EQ(vemkn_fit_objective(fit.get()), vemkn_fit_objective(other.get()));
    EXPECT_EQ(vemkn_fit_settled(fit.get()), vemkn_fit_settled(other.get()));
    EXPECT_EQ(vemkn_fit_notes(fit.get()), vemkn_fit_notes(other.get()));
}

TEST_F(ModelFile, SurvivesWhatGoesWrong)
{
    std::ofstream(path) << "older";
    EXPECT_EQ(VEMKN_FIT_FILE, vemkn_fit_save(fit.get(), (folder / "no/such").c_str()));
    EXPECT_EQ(VEMKN_FIT_FILE, vemkn_fit_save(fit.get(), folder.c_str()));
    EXPECT_EQ(VEMKN_FIT_FILE, vemkn_fit_save(fit.get(), "/dev/full"));
    EXPECT_EQ(VEMKN_FIT_OK, vemkn_fit_save(fit.get(), "/dev/null"));
    EXPECT_EQ("older", content_of(path));
    fs::permissions(path, fs::perms(0640));
    ASSERT_EQ(VEMKN_FIT_OK, vemkn_fit_save(fit.get(), path.c_str()));
    EXPECT_EQ(text, content_of(path));
    EXPECT_EQ(fs::perms(0640), fs::status(path).permissions());
    // Nothing is left beside it.
    EXPECT_EQ(1, std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

TEST_F(ModelFile, SaysWhatIsMissing)
{
    VEMKNFit* made = nullptr;
    EXPECT_EQ(VEMKN_FIT_FILE, vemkn_fit_load((folder / "none").c_str(), &made));
    EXPECT_EQ(VEMKN_FIT_FILE, vemkn_fit_load(folder.c_str(), &made));
    EXPECT_EQ(VEMKN_FIT_MODEL, vemkn_fit_load("/dev/zero", &made));
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_load(nullptr, &made));
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_load(path.c_str(), nullptr));
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_save(nullptr, path.c_str()));
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_save(fit.get(), nullptr));
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_read(nullptr, 0, &made));
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_read("{}", 2, nullptr));
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_write(nullptr, nullptr, 0, nullptr));
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_write(fit.get(), nullptr, 0, nullptr));
    EXPECT_EQ(nullptr, made);
}

TEST_F(ModelFile, LeavesATextThatIsTooShortAlone)
{
    std::size_t length = 0;
    std::string short_text(text.size(), 'x');
    EXPECT_EQ(VEMKN_FIT_OK, vemkn_fit_write(fit.get(), short_text.data(), text.size(), &length));
    EXPECT_EQ(text.size(), length);
    EXPECT_EQ(std::string(text.size(), 'x'), short_text);
}

TEST_F(ModelFile, SaysWhatIsWrong)
{
    struct Wrong {
        std::string text, why;
    };

    for (const Wrong& wrong : {
             Wrong{"", "no JSON"},
             Wrong{"{}", "is not a model"},
             Wrong{text.substr(0, text.size() / 2), "no JSON"},
             Wrong{std::string(1000000, '['), "nests deeper"},
             Wrong{replaced("\"vemkn_model\": 1", "\"vemkn_model\": 2"), "newer release"},
             Wrong{replaced("softplus", "a\\u001b[2Jb"), "unknown activation \"a?[2Jb\""},
             Wrong{replaced("\"spread\": ", "\"spread\": -"), "\"spread\" is not positive"},
             Wrong{replaced("\"hidden\": [\n  6", "\"hidden\": [\n  7"), "numbers, as the"},
             Wrong{replaced("\"hidden\": [\n  6", "\"hidden\": [\n  4096,4096,4096"),
                   "numbers, as the"},
             Wrong{replaced("\"hidden\": [\n  6", "\"hidden\": [\n  60000"), "1 to 4096"},
             Wrong{replaced("\"centre\"", "\"middle\""), "no \"centre\""},
             Wrong{replaced("\"seed\": 0", "\"seed\": -1"), "\"seed\" is not a whole number"},
             Wrong{replaced("\"beyond_six_cores\"", "\"beyond\""), "no \"beyond_six_cores\""},
             Wrong{replaced("\"decay\": ", "\"decay\": -"), "\"decay\" is negative"},
         }) {
        Fit other;
        EXPECT_EQ(VEMKN_FIT_MODEL, rows::read(wrong.text, other)) << wrong.why;
        EXPECT_NE(std::string::npos, std::string(vemkn_fit_message()).find(wrong.why))
            << vemkn_fit_message() << "\nlacks " << wrong.why;
    }
}

// A model of several targets with straight and periodic columns, as other fits write them.
TEST_F(ModelFile, ReadsModelsOfOtherFits)
{
    Fit other;
    ASSERT_EQ(VEMKN_FIT_OK,
              rows::read(R"({"vemkn_model": 1, "hidden": [1], "activation": "id",
        "inputs": [{"name": "a", "mean": 1, "deviation": 2}, {"name": "b", "period": 4}],
        "targets": [{"name": "u", "core": 0.5, "shift": 3}, {"name": "v", "core": 1, "shift": 0}],
        "method": "lbfgs", "norm": "sum_log_dnorm_fat", "seed": 1, "training_rows": 9,
        "weights": [0.5, 1, 2, 4,  10, 20, 1, -1]})",
                         other))
        << vemkn_fit_message();
    EXPECT_TRUE(std::isnan(vemkn_fit_objective(other.get())));
    EXPECT_TRUE(std::isnan(vemkn_fit_decay(other.get())));
    const double x[] = {5.0, 1.0};
    double found[2];
    ASSERT_EQ(VEMKN_FIT_OK, vemkn_fit_predict(other.get(), x, 1, 2, found));
    const double hidden = 0.5 + (5.0 - 1.0) / 2.0 + 2.0;  // sin is 1, cos 0
    EXPECT_NEAR(1.5 * (10.0 + hidden) + 3.0, found[0], 1e-12);
    EXPECT_NEAR(3.0 * (20.0 - hidden), found[1], 1e-12);
}

// Bytes changed, taken out, doubled: a message or a model, and nothing else.
TEST_F(ModelFile, TakesNoHarmFromDamage)
{
    std::mt19937 engine(5);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(engine()) % n; };
    const double x[] = {0.5, 0.5};
    std::size_t refused = 0;
    for (int turn = 0; turn < 10000; ++turn) {
        std::string damaged = text;
        for (std::size_t edits = 1 + below(4); edits > 0; --edits) {
            const std::size_t at = below(damaged.size()),
                              length = std::min(below(40), damaged.size() - at);
            switch (below(4)) {
                case 0:
                    damaged[at] = static_cast<char>(engine());
                    break;
                case 1:
                    damaged.erase(at, length);
                    break;
                case 2:
                    damaged.insert(below(damaged.size()), damaged.substr(at, length));
                    break;
                default:
                    damaged[at] = "0123456789-e.[]{},:\""[below(20)];
            }
        }
        Fit other;
        const int code = rows::read(damaged, other);
        if (code == VEMKN_FIT_OK) {
            double found = 0.0;
            vemkn_fit_predict(other.get(), x, 1, 2, &found);
            EXPECT_TRUE(std::isfinite(found));
        } else {
            EXPECT_EQ(VEMKN_FIT_MODEL, code) << vemkn_fit_message();
            EXPECT_STRNE("", vemkn_fit_message());
            ++refused;
        }
    }
    EXPECT_GT(refused, 2000u);
    EXPECT_LT(refused, 9900u);
}
