#include "app/report_page.h"

#include "app/summary.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace app {
namespace {

constexpr const char* LIBRARY = "/usr/share/javascript/dygraphs/dygraph.min.js";
constexpr const char* LIBRARY_STYLE = "/usr/share/javascript/dygraphs/dygraph.min.css";

constexpr const char* STYLE =
    "body{font:14px/1.45 sans-serif;color:#222;max-width:1200px;margin:1.5em auto;padding:0 1em}"
    "h1{margin:0 0 .1em}h2{margin:1.6em 0 .3em;border-bottom:1px solid #ccc}"
    ".what{color:#555;margin:0 0 1em}"
    ".verdict{padding:.5em .8em;border-radius:4px;font-weight:bold}.good{background:#dff0dc}"
    ".bad{background:#f6d4cf}.cut{background:#f5ecd2}"
    "table{border-collapse:collapse;margin:.5em 0;font-size:13px}"
    "td,th{padding:.15em .7em;text-align:left;vertical-align:top;border-bottom:1px solid #eee}"
    "tr.fail td{background:#fbe9e6}[data-from],.at{cursor:pointer;color:#2458a6;text-decoration:underline}"
    "pre{background:#f5f5f2;padding:1em;overflow-x:auto;font-size:12.5px}summary{cursor:pointer;color:#555}"
    "figure{margin:.9em 0}figcaption{display:flex;gap:1.5em;justify-content:space-between;font-size:13px}"
    ".read{color:#333;white-space:nowrap;font-variant-numeric:tabular-nums;overflow:hidden;text-overflow:"
    "ellipsis}"
    ".read i{display:inline-block;width:.8em;height:.8em;margin-right:.3em;vertical-align:-1px}"
    ".plot{width:100%;height:190px}.tools{position:sticky;top:0;background:#fffffff0;padding:.4em "
    "0;z-index:9;"
    "font-size:13px;color:#555}svg{width:100%;height:auto}.none{color:#777}";

std::string contentOf(const char* file)
{
    std::ifstream in(file, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return in ? content.str() : "";
}

std::string summaryText(const Recording& recording)
{
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = open_memstream(&text, &size);
    if (stream == nullptr) return "";
    printSummary(recording, stream);
    std::fclose(stream);
    const std::string copy(text, size);
    std::free(text);
    return copy;
}

std::string rowOf(const CheckResult& c)
{
    char times[64];
    std::snprintf(times, sizeof times, " data-from=%.3f data-to=%.3f", c.from_s, c.to_s);
    std::string when = clockText(c.from_s);
    if (c.to_s > c.from_s) when += " to " + clockText(c.to_s);
    if (c.to_s <= 0) when = "";
    return std::string(c.pass ? "<tr>" : "<tr class=fail>") + "<td>" + (c.pass ? "ok" : "<b>FAIL</b>")
           + "<td>" + htmlText(c.unit) + "<td>" + htmlText(c.name) + "<td" + (when.empty() ? "" : times) + ">"
           + when + "<td>" + htmlText(c.detail) + "\n";
}

/// What failed comes first and is seen at once, the rest is folded away.
std::string verdict(const Recording& recording)
{
    const auto failed = std::ranges::count(recording.checks, false, &CheckResult::pass);
    std::ostringstream said;
    if (!recording.complete)
        said << "Ended at " << clockText(recording.virtual_s) << ", before its end: its checks aren't judged";
    else if (recording.checks.empty()) said << "No checks";
    else if (failed == 0)          said << "All " << recording.checks.size() << " checks hold";
    else                           said << failed << " of " << recording.checks.size() << " checks fail";
    const char* const colour = !recording.complete ? "cut" : recording.passed() ? "good" : "bad";
    std::string html = std::string("<p class='verdict ") + colour + "'>";
    html += said.str() + "</p>\n";
    for (const std::string& misuse : recording.misuses)
        html += "<p class='verdict bad'>kernel misuse: " + htmlText(misuse) + "</p>\n";
    const auto table = [&](bool pass) {
        std::string rows;
        for (const CheckResult& c : recording.checks)
            if (c.pass == pass) rows += rowOf(c);
        return rows.empty() ? rows : "<table>\n" + rows + "</table>\n";
    };
    html += table(false);
    const std::string held = table(true);
    if (!held.empty()) html += "<details><summary>checks that hold</summary>" + held + "</details>\n";
    return html;
}

std::string plots(const Recording& recording)
{
    const std::string library = contentOf(LIBRARY);
    if (library.empty()) {
        std::string page = "<p class=none>Pictures only: the plotting library isn't installed "
                           "(apt-get install libjs-dygraphs)</p>\n";
        appendPictures(page, recording);
        return page;
    }
    return "<style>" + contentOf(LIBRARY_STYLE) +
           "</style>\n"
           "<p class=tools>Drag to zoom all plots, double click or <button id=unzoom>whole run</button> to "
           "see "
           "everything, point to read. <label><input type=checkbox id=whole> whole ranges</label>, the "
           "warm-up and "
           "every outlier too. Dashed: the scenario's events; yellow: holdover; red: where a check "
           "failed.</p>\n"
           "<div id=plots></div>\n<script>\n" +
           library + "\n</script>\n<script>\nconst RUN = " + reportData(recording) +
           ";\n</script>\n<script>\n" + REPORT_SCRIPT + "</script>\n";
}

}  // namespace

std::string htmlText(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;";  break;
        case '>': out += "&gt;";  break;
        default:  out += c;       break;
        }
    }
    return out;
}

std::string reportPage(const Recording& recording)
{
    return "<!doctype html>\n<html lang=en><meta charset=utf-8><title>" + htmlText(recording.scenario)
           + "</title>\n<style>" + STYLE + "</style>\n<h1>" + htmlText(recording.scenario)
           + "</h1>\n<p class=what>" + htmlText(recording.title) + "</p>\n" + verdict(recording)
           + "<details><summary>summary</summary><pre>" + htmlText(summaryText(recording))
           + "</pre></details>\n" + plots(recording) + "</html>\n";
}

}  // namespace app
