// plot.h - Plots as inline SVG, drawn by gnuplot.
#pragma once
#include <string>
#include <utility>
#include <vector>

namespace app {

struct Curve {
    std::string title;
    std::string style;                              // gnuplot's, "lines lc rgb '#...'"
    std::vector<std::pair<double, double>> points;
};

struct Plot {
    std::string title;
    std::string xLabel, yLabel;
    bool logarithmic = false;                       // both axes
    std::vector<std::pair<std::string, double>> yTics;   // named values in place of numbers
    std::vector<Curve> curves;
};

/// The plot as an <svg> element; "" and the reason when gnuplot can't be run.
std::string drawSvg(const Plot& plot, std::string& reason);

/// At most about `most` points that keep each stretch's extremes.
std::vector<std::pair<double, double>> thinned(const std::vector<std::pair<double, double>>& points,
                                               std::size_t most);

}  // namespace app
