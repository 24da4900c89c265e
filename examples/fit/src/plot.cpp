#include "plot.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "escape.h"
#include "text.h"

namespace fit {
namespace {

constexpr double band = 1.959963984540054;  // 95 % of a Gaussian

constexpr std::size_t longest_label = 100;

/// A column's name as a label: cut where it would not fit beside an axis anyway, as drawing takes long.
std::string label(const std::string& name, const std::string& addition = "")
{
    std::size_t end = name.size();
    if (end > longest_label) {
        end = longest_label;
        const auto inside_character = [&] { return (name[end] & '\xc0') == '\x80'; };
        for (int byte = 0; byte < 3 && inside_character(); ++byte) --end;
    }
    const std::string dots = end < name.size() ? "..." : "";
    return gnuplot_string(name.substr(0, end) + dots + addition);
}

/// The columns of curve.csv that one target has.
struct CurveColumns {
    CurveColumns(const PlotContent& content, Eigen::Index target)
    {
        const bool errors = content.fit.errors.size() > 0;
        const Eigen::Index stride = 1 + (errors ? 2 : 0) + (content.least_squares ? 1 : 0);
        fit = 2 + target * stride;
        low = errors ? fit + 1 : 0;
        least_squares = content.least_squares ? fit + stride - 1 : 0;
    }

    Eigen::Index fit;
    Eigen::Index low;            ///< 0: there is no band
    Eigen::Index least_squares;  ///< 0: there is none
};

/// Draws from a table, whose first line holds names and not data.
std::string table(const std::string& file, const std::string& columns)
{
    return "  '" + file + "' skip 1 using " + columns;
}

std::string range(double low, double high)
{
    return "[" + number(low) + ":" + number(high) + "]";
}

/// What the curves and the medians span; the whole range of the data would flatten them.
std::string close_up_range(const PlotContent& content, Eigen::Index t)
{
    double low = content.fit.fit.col(t).minCoeff();
    double high = content.fit.fit.col(t).maxCoeff();
    const auto widen = [&](const Vector& values) {
        if (values.size() == 0) return;
        low = std::min(low, values.minCoeff());
        high = std::max(high, values.maxCoeff());
    };
    widen(content.medians.targets.col(t));
    if (content.least_squares) widen(content.least_squares->fit.col(t));
    const double margin = 0.08 * std::max(high - low, 1e-3 * std::max(1e-3, std::abs(high)));
    return range(low - margin, high + margin);
}

std::string x_range(const Vector& x)
{
    const double low = x[0];
    const double high = x[x.size() - 1];
    const double margin = 0.01 * (high - low);
    return high > low ? range(low - margin, high + margin) : range(low - 1.0, high + 1.0);
}

std::string curves(const PlotContent& content, Eigen::Index target)
{
    const CurveColumns columns(content, target);
    const auto curve = [](Eigen::Index column) {
        return ", \\\n" + table("curve.csv", "1:" + std::to_string(column)) + " with lines lw ";
    };
    std::string text;
    if (columns.least_squares > 0)
        text += curve(columns.least_squares) + "3 lc rgb '#e08a00' title 'least squares'";
    return text + curve(columns.fit) + "3.5 lc rgb '#0b4fa0' title " +
           gnuplot_string(content.fit_name);
}

std::string band_of(const PlotContent& content, Eigen::Index target)
{
    const Eigen::Index low = CurveColumns(content, target).low;
    if (low == 0) return "";
    return table("curve.csv", "1:" + std::to_string(low) + ":" + std::to_string(low + 1)) +
           " with filledcurves lc rgb '#0b4fa0' title '95 % band', \\\n";
}

/// All data of a target above, and a close-up of the curves below.
std::string panels(const Problem& problem,
                   const PlotContent& content,
                   Eigen::Index t,
                   Eigen::Index x,
                   Eigen::Index y)
{
    const std::string& name = problem.columns.target_names[static_cast<std::size_t>(t)];
    const auto points = [&](const char* outlier) {
        return table("predictions.csv",
                     std::to_string(x) + ":($" + std::to_string(y + 3) + " == " + outlier + " ? $" +
                         std::to_string(y) + " : 1/0)") +
               " with points ";
    };
    std::ostringstream out;
    out << "\nset ylabel " << label(name) << " offset 1,0\nset autoscale y\n"
        << "set key at graph 0,1.02 left bottom horizontal maxrows 1 reverse Left samplen 2 width "
           "1\nplot \\\n"
        << points("0") << "pt 7 ps 0.35 lc rgb '#9a9a9a' title 'data', \\\n"
        << points("1") << "pt 6 ps 0.9 lw 1.5 lc rgb '#c8102e' title 'beyond six core scales'"
        << curves(content, t) << "\n\nset ylabel " << label(name, " (close-up)")
        << " offset 1,0\nset yrange " << close_up_range(content, t) << "\nplot \\\n"
        << band_of(content, t) << table("medians.csv", "1:" + std::to_string(t + 2))
        << " with points pt 7 ps 1.4 lc rgb '#333333' title 'median of the data nearby'"
        << curves(content, t) << "\n";
    return out.str();
}

}  // namespace

std::string curve_csv(const Problem& problem, const PlotContent& content)
{
    const auto& names = problem.columns.target_names;
    const bool errors = content.fit.errors.size() > 0;
    std::string text =
        csv_cell(problem.columns.input_names[static_cast<std::size_t>(content.column)]);
    for (const std::string& name : names) {
        text += "," + csv_cell("fit(" + name + ")");
        if (errors)
            text += "," + csv_cell("low(" + name + ")") + "," + csv_cell("high(" + name + ")");
        if (content.least_squares) text += "," + csv_cell("least_squares(" + name + ")");
    }
    text += "\n";
    for (Eigen::Index i = 0; i < content.fit.x.size(); ++i) {
        text += number(content.fit.x[i], 8);
        for (Eigen::Index t = 0; t < content.fit.fit.cols(); ++t) {
            const double value = content.fit.fit(i, t);
            text += "," + number(value, 8);
            if (errors) {
                const double reach = band * content.fit.errors(i, t);
                text += "," + number(value - reach, 8) + "," + number(value + reach, 8);
            }
            if (content.least_squares) text += "," + number(content.least_squares->fit(i, t), 8);
        }
        text += "\n";
    }
    return text;
}

std::string medians_csv(const Problem& problem, const PlotContent& content)
{
    std::string text =
        csv_cell(problem.columns.input_names[static_cast<std::size_t>(content.column)]);
    for (const std::string& name : problem.columns.target_names)
        text += "," + csv_cell("median(" + name + ")");
    text += "\n";
    for (Eigen::Index i = 0; i < content.medians.x.size(); ++i) {
        text += number(content.medians.x[i], 8);
        for (Eigen::Index t = 0; t < content.medians.targets.cols(); ++t)
            text += "," + number(content.medians.targets(i, t), 8);
        text += "\n";
    }
    return text;
}

std::string plot_script(const Problem& problem,
                        const PlotContent& content,
                        Eigen::Index first_column,
                        Eigen::Index target_stride)
{
    const auto targets = static_cast<Eigen::Index>(problem.columns.target_names.size());
    const auto column = static_cast<std::size_t>(content.column);
    const double left = 0.03 + 0.05 / static_cast<double>(targets);
    std::ostringstream out;
    out << "# Draws plot.png from the tables beside this file: gnuplot plot.gp\n"
           "set encoding utf8\n"
           "set terminal pngcairo size "
        << 200 + 1000 * targets << ",1100 font 'DejaVu Sans,13'\n"
        << "set termoption noenhanced\n"
           "set output 'plot.png'\n"
           "set datafile separator comma\n"
           "set border lw 0.8 lc rgb '#777777'\n"
           "set grid lt 1 lw 0.6 lc rgb '#cccccc'\n"
           "set tics nomirror\n"
           "set style fill solid 0.25 noborder\n"
        << "set xrange " << x_range(content.fit.x) << "\nset xlabel "
        << label(problem.columns.input_names[column]) << "\nset multiplot layout 2," << targets
        << " columnsfirst margins " << number(left) << ",0.98,0.07,0.94 spacing " << number(left)
        << ",0.12\n";
    // Line number and set come before the inputs in predictions.csv.
    const Eigen::Index x = content.column + 3;
    for (Eigen::Index t = 0; t < targets; ++t)
        out << panels(problem, content, t, x, first_column + t * target_stride);
    out << "unset multiplot\n";
    return out.str();
}

}  // namespace fit
