#include "app/plot.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace app {
namespace {

std::string quoted(const std::string& text)
{
    std::string out = "'";
    for (const char c : text) out += c == '\'' ? "''" : std::string(1, c);
    return out + "'";
}

std::string scriptOf(const Plot& plot, const std::string& output)
{
    std::ostringstream script;
    script.precision(12);
    script << "set terminal svg size 960,300 dynamic font 'sans-serif,12' background '#ffffff'\n"
           << "set output " << quoted(output) << "\n"
           << "set title " << quoted(plot.title) << "\nset xlabel " << quoted(plot.xLabel) << "\nset ylabel "
           << quoted(plot.yLabel) << "\n"
           << "set grid lc rgb '#dddddd'\nset border 3 lc rgb '#444444'\nset tics nomirror\n"
           << "set termoption noenhanced\nset lmargin 29\n"
           << (plot.curves.size() > 1 ? "set key outside right top\n" : "unset key\n");
    if (plot.logarithmic)
        script << "set logscale xy\nset format x '%g'\nset format y '%g'\n";
    else
        script << "set offsets graph 0, 0, 0.05, 0.05\nset format y '%.9g'\n";
    if (!plot.yTics.empty()) {
        script << "set ytics (";
        for (std::size_t i = 0; i < plot.yTics.size(); ++i)
            script << (i > 0 ? ", " : "") << quoted(plot.yTics[i].first) << " " << plot.yTics[i].second;
        script << ")\n";
    }
    for (std::size_t i = 0; i < plot.curves.size(); ++i) {
        script << "$curve" << i << " << END\n";
        for (const auto& [x, y] : plot.curves[i].points) script << x << " " << y << "\n";
        script << "END\n";
    }
    script << "plot ";
    for (std::size_t i = 0; i < plot.curves.size(); ++i)
        script << (i > 0 ? ", " : "") << "$curve" << i << " with " << plot.curves[i].style << " title "
               << quoted(plot.curves[i].title);
    script << "\n";
    return script.str();
}

/// A file that goes away with its owner.
class TemporaryFile {
public:
    explicit TemporaryFile(const char* suffix)
        : path_((std::filesystem::temp_directory_path() /
                 ("tu-" + std::to_string(getpid()) + "-" + std::to_string(count_++) + suffix)).string())
    {
    }
    ~TemporaryFile()
    {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    const std::string& path() const { return path_; }

private:
    static inline int count_ = 0;
    std::string path_;
};

}  // namespace

std::string drawSvg(const Plot& plot, std::string& reason)
{
    std::vector<Curve> filled;
    for (const Curve& c : plot.curves)
        if (!c.points.empty()) filled.push_back(c);
    if (filled.empty()) {
        reason = "no data";
        return "";
    }
    Plot drawn = plot;
    drawn.curves = std::move(filled);
    const TemporaryFile script{".gp"};
    const TemporaryFile picture{".svg"};
    std::ofstream(script.path()) << scriptOf(drawn, picture.path());
    const std::string command = "gnuplot '" + script.path() + "' 2>/dev/null";
    if (std::system(command.c_str()) != 0) {
        reason = "gnuplot can't be run";
        return "";
    }
    std::ifstream in(picture.path());
    std::stringstream svg;
    svg << in.rdbuf();
    const std::string text = svg.str();
    const std::size_t begin = text.find("<svg");
    if (begin == std::string::npos) {
        reason = "gnuplot drew nothing";
        return "";
    }
    return text.substr(begin);
}

std::vector<std::pair<double, double>> thinned(const std::vector<std::pair<double, double>>& points,
                                               std::size_t most)
{
    if (points.size() <= most) return points;
    const std::size_t stretch = (2 * points.size() + most - 1) / most;
    std::vector<std::pair<double, double>> out;
    for (std::size_t begin = 0; begin < points.size(); begin += stretch) {
        const std::size_t end = std::min(begin + stretch, points.size());
        std::size_t low = begin;
        std::size_t high = begin;
        for (std::size_t i = begin; i < end; ++i) {
            if (points[i].second < points[low].second) low = i;
            if (points[i].second > points[high].second) high = i;
        }
        out.push_back(points[std::min(low, high)]);
        if (low != high) out.push_back(points[std::max(low, high)]);
    }
    return out;
}

}  // namespace app
