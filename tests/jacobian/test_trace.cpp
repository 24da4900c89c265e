#include <cstdlib>
#include <ctime>
#include <functional>
#include <iostream>
#include <locale>
#include <regex>

#include "jacobian/derivative_calls.h"
#include "support/capture.h"

// The timing line of the four derivative products.

namespace {

// NN_TRACE for a scope; null: not in the environment.
class TraceVariable {
public:
    explicit TraceVariable(const char* value)
    {
        if (value != nullptr) {
            setenv("NN_TRACE", value, 1);
        } else {
            unsetenv("NN_TRACE");
        }
    }

    ~TraceVariable() { unsetenv("NN_TRACE"); }

    TraceVariable(const TraceVariable&) = delete;
    TraceVariable& operator=(const TraceVariable&) = delete;
};

// 2-3-2, numel = 3 + 6 + 2 + 6. `offset` is added to the targets.
Problem problem(const char* norm, double offset = 0)
{
    Random random(1);
    Problem p;
    p.shape = {.numin = 2, .numout = 2, .sizes = {2, 3}, .activation = "atan", .norm = norm};
    p.nrows = 5;
    p.xcols = 2;
    p.fill(random);
    for (double& y : p.y) y += offset;
    return p;
}

struct Entry {
    const char* name;
    void (*call)(VEMKNInfo* net, const Problem& p);
    // What the line says of the problem.
    long double (*traced)(const Problem& p);
};

long double objective(const Problem& p)
{
    return p.shape.objective(p.w, p.x, p.y, p.nrows, p.xcols);
}

// The mean norm of values that are element-normed already.
long double twice_normed(const Problem& p)
{
    long double sum = 0;
    for (const long double f : p.shape.element_norms(p.w, p.x, p.y, p.nrows, p.xcols)) {
        sum += plain::element_norm(p.shape.norm, f);
    }
    return sum / static_cast<long double>(p.elements());
}

const Entry ENTRIES[] = {
    {"vemk_Hv",
     [](VEMKNInfo* net, const Problem& p) { call_Hv(net, p, Numbers(2 * p.w.size()), 2); },
     objective},
    {"vemk_Jv",
     [](VEMKNInfo* net, const Problem& p) { call_Jv(net, p, Numbers(2 * p.w.size()), 2); },
     twice_normed},
    {"vemk_vJ",
     [](VEMKNInfo* net, const Problem& p) { call_vJ(net, p, Numbers(p.elements())); },
     objective},
    {"vemk_vJ_vec",
     [](VEMKNInfo* net, const Problem& p) { call_vJ_vec(net, p, Numbers(2 * p.elements()), 2); },
     objective}};

void PrintTo(const Entry& entry, std::ostream* out)
{
    *out << entry.name;
}

std::string name_of(const testing::TestParamInfo<Entry>& instance)
{
    return instance.param.name;
}

// printf's %g, which the default format of streams is made to equal.
std::string six_digits(long double x)
{
    char text[64];
    std::snprintf(text, sizeof text, "%g", static_cast<double>(x));
    return text;
}

class Trace : public testing::TestWithParam<Entry> {
protected:
    // All of standard output during a call; standard error must stay silent.
    std::string output_of(const Problem& p) const
    {
        const Network net(p.shape.text());
        Capture err = Capture::error(), out = Capture::output();
        GetParam().call(net, p);
        std::string output = out.text();
        EXPECT_EQ("", err.text());
        return output;
    }

    // Exactly one line, with that value.
    void expect_line(const std::string& output, const std::string& value) const
    {
        std::smatch parts;
        const std::regex form("J = (\\S+), ([0-9.]+(e-[0-9]+)?) s\n");
        ASSERT_TRUE(std::regex_match(output, parts, form)) << output;
        EXPECT_EQ(value, parts[1]);
        // A call takes more than no time, and far less than a minute.
        EXPECT_LT(std::stod(parts[2]), 60.0);
        EXPECT_GE(std::stod(parts[2]), 0.0);
    }
};

// The locale of a country that writes 1.234,5.
struct Commas : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }

    char do_thousands_sep() const override { return '.'; }

    std::string do_grouping() const override { return "\3"; }
};

}  // namespace

TEST_P(Trace, IsOneLineWithTheValueAndTheSeconds)
{
    const TraceVariable variable("1");
    for (const char* norm : NORMS) {
        const Problem p = problem(norm);
        expect_line(output_of(p), six_digits(GetParam().traced(p)));
    }
}

TEST_P(Trace, CountsAVariableThatIsSetToNothing)
{
    const TraceVariable variable("");
    const Problem p = problem("sum");
    expect_line(output_of(p), six_digits(GetParam().traced(p)));
}

TEST_P(Trace, IsSilentWithoutTheVariable)
{
    const TraceVariable variable(nullptr);
    EXPECT_EQ("", output_of(problem("sum")));
}

TEST_P(Trace, ReadsTheVariableAtEveryCall)
{
    const Problem p = problem("sum");
    {
        const TraceVariable variable("0");
        expect_line(output_of(p), six_digits(GetParam().traced(p)));
    }
    EXPECT_EQ("", output_of(p));
}

TEST_P(Trace, HasSixSignificantDigits)
{
    const TraceVariable variable("1");
    // Residuals of about 1234567, -0.00001 and 100000.
    for (const double offset : {-1234567.0, 1e-5, -1e5, 12.5, -123.456}) {
        const Problem p = problem("sum", offset);
        expect_line(output_of(p), six_digits(GetParam().traced(p)));
    }
    EXPECT_EQ("1.23457e+06", six_digits(1234567));
}

TEST_P(Trace, IsWrittenInTheClassicLocaleWhateverTheHostDidToItsStreams)
{
    const TraceVariable variable("1");
    const Problem p = problem("sum", -123456.25);
    const std::string expected = six_digits(GetParam().traced(p));

    const std::locale before = std::locale::global(std::locale(std::locale(), new Commas));
    const std::ios::fmtflags flags = std::cout.flags();
    const std::streamsize precision = std::cout.precision(15);
    const std::locale stream_before = std::cout.imbue(std::locale());
    std::cout << std::scientific << std::showpos << std::showpoint << std::hex;
    std::cout.width(30);
    std::cout.fill('*');
    const std::string output = output_of(p);
    std::cout.width(0);
    std::cout.fill(' ');
    std::cout.flags(flags);
    std::cout.precision(precision);
    std::cout.imbue(stream_before);
    std::locale::global(before);

    expect_line(output, expected);
}

TEST_P(Trace, SurvivesAStreamThatHasFailed)
{
    const TraceVariable variable("1");
    const Problem p = problem("sum");
    std::cout.setstate(std::ios::badbit);
    const std::string output = output_of(p);
    std::cout.clear();
    // Whether a line comes out is the stream buffer's affair; the call goes on.
    if (!output.empty()) expect_line(output, six_digits(GetParam().traced(p)));
}

TEST_P(Trace, IsTheSameForAnySlices)
{
    const TraceVariable variable("1");
    for (const char* norm : NORMS) {
        const Problem p = problem(norm);
        const Network net(p.shape.text());
        vemk_setpar(net, 2, 2);
        Capture out = Capture::output();
        GetParam().call(net, p);
        expect_line(out.text(), six_digits(GetParam().traced(p)));
    }
}

INSTANTIATE_TEST_SUITE_P(Entries, Trace, testing::ValuesIn(ENTRIES), name_of);

TEST(JvTrace, NormsValuesThatAreNormedAlready)
{
    // The values of Jv are likelihoods; the trace takes the likelihood of them once more.
    const TraceVariable variable("1");
    const Problem p = problem("sum_log_dnorm_fat");
    EXPECT_NE(six_digits(objective(p)), six_digits(twice_normed(p)));
    const Network net(p.shape.text());
    Capture out = Capture::output();
    call_Jv(net, p, {}, 0);
    EXPECT_EQ("J = " + six_digits(twice_normed(p)) + ", ",
              out.text().substr(0, 6 + six_digits(twice_normed(p)).size()));
}

TEST(JvTrace, ComesWithoutTangentsToo)
{
    const TraceVariable variable("1");
    const Problem p = problem("sum");
    const Network net(p.shape.text());
    for (const int order : {0, 1}) {
        const RowOrder row_order(order);
        Capture out = Capture::output();
        call_Hv(net, p, {}, 0);
        call_Jv(net, p, {}, 0);
        call_vJ_vec(net, p, {}, 0);
        const std::string output = out.text();
        EXPECT_EQ(3, std::count(output.begin(), output.end(), '\n')) << output;
    }
}

TEST(GTrace, DoesNotExist)
{
    const TraceVariable variable("1");
    const Problem p = problem("sum");
    const Network net(p.shape.text());
    Capture out = Capture::output();
    call_g(net, p);
    EXPECT_EQ("", out.text());
}

TEST(Trace, MeasuresTheTimeOfTheWork)
{
    // Some 50 million operations, which no processor does in a tenth of a millisecond.
    const TraceVariable variable("1");
    Random random(2);
    Problem p;
    p.shape = {.numin = 20, .numout = 4, .sizes = {20, 64, 64}, .activation = "atan"};
    p.nrows = 500;
    p.xcols = 20;
    p.fill(random);
    const Network net(p.shape.text());
    const Numbers v = random.list(p.nw());
    const auto now = [] {
        timespec t{};
        clock_gettime(CLOCK_REALTIME, &t);
        return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
    };
    Capture out = Capture::output();
    const double start = now();
    call_Hv(net, p, v, 1);
    const double whole = now() - start;
    const std::string output = out.text();
    const double seconds = std::stod(output.substr(output.find(", ") + 2));
    // Microseconds are what the clock of the trace counts in, and six digits what is written.
    EXPECT_LE(seconds, whole * (1 + 1e-5) + 2e-6);
    EXPECT_GE(seconds, 1e-4);
}
