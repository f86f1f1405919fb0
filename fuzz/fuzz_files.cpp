// Scenario and series files of any content: taken, or refused with a line; nothing else.
#include "sim/clock/series.h"
#include "sim/scenario/scenario.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

// Pieces that make a random file look like one of ours often enough to get past the first line.
constexpr const char* PIECES[] = {
    "duration = \"1h\"\n", "[[unit]]\n", "name = \"tu1\"\n", "board_type = 1\n", "[unit.oscillator]\n",
    "offset_ppb = 3\n", "[[unit.input]]\n", "at = \"pps\"\n", "[[event]]\n", "at = \"1m\"\n",
    "do = \"input.off\"\n", "input = \"pps\"\n", "[[check]]\n", "check = \"clock\"\n", "is = \"WARMUP\"\n",
    "1.5\n", "# note\n", "1e400\n", "-inf\n", "10000000.25,3\n",
};

template <typename Read>
void feed(const std::string& path, Read read)
{
    try {
        read(path);
    } catch (const sim::ScenarioError&) {
    } catch (const sim::SeriesError&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const std::string path =
        (std::filesystem::temp_directory_path() / ("tu-fuzz-" + std::to_string(getpid()))).string();
    std::string content;
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] < 200)
            content += PIECES[data[i] % std::size(PIECES)];
        else
            content += static_cast<char>(data[i]);
    }
    std::ofstream(path, std::ios::binary) << content;
    feed(path, [](const std::string& file) { sim::readScenario(file); });
    feed(path, [](const std::string& file) { sim::readSeries(file); });
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
    return 0;
}
