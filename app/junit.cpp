#include "app/junit.h"

#include "app/summary.h"

#include <algorithm>
#include <sstream>

namespace app {
namespace {

/// Text of an attribute; a byte that XML can't hold becomes a question mark.
std::string attribute(const std::string& text)
{
    std::string out = "\"";
    for (const char c : text) {
        switch (c) {
        case '&': out += "&amp;";  break;
        case '<': out += "&lt;";   break;
        case '>': out += "&gt;";   break;
        case '"': out += "&quot;"; break;
        case '\n': out += "&#10;"; break;
        default: out += static_cast<unsigned char>(c) < 0x20 ? '?' : c;
        }
    }
    return out + "\"";
}

void addSuite(std::ostringstream& xml, const Recording& run)
{
    const std::string name = run.scenario + (run.seed != 0 ? " seed " + std::to_string(run.seed) : "");
    const auto failed = std::ranges::count(run.checks, false, &CheckResult::pass);
    std::vector<std::pair<const char*, std::string>> errors;
    for (const std::string& misuse : run.misuses) errors.emplace_back("misuse", misuse);
    if (!run.complete)
        errors.emplace_back("end", "ended at " + clockText(run.virtual_s) + ", before its end");
    xml << " <testsuite name=" << attribute(name) << " tests=\"" << run.checks.size() + errors.size()
        << "\" failures=\"" << failed << "\" errors=\"" << errors.size() << "\" time=\"" << run.wall_s
        << "\">\n";
    for (const CheckResult& c : run.checks) {
        xml << "  <testcase classname=" << attribute(run.scenario + "." + c.unit)
            << " name=" << attribute(c.name);
        if (c.pass) xml << "/>\n";
        else        xml << "><failure message=" << attribute(c.detail) << "/></testcase>\n";
    }
    for (const auto& [what, text] : errors)
        xml << "  <testcase classname=" << attribute(run.scenario + ".run") << " name=" << attribute(what)
            << "><error message=" << attribute(text) << "/></testcase>\n";
    xml << " </testsuite>\n";
}

}  // namespace

std::string junitXml(const std::vector<Recording>& runs)
{
    std::ostringstream xml;
    xml << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
    for (const Recording& run : runs) addSuite(xml, run);
    xml << "</testsuites>\n";
    return xml.str();
}

}  // namespace app
