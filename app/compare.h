// compare.h - What changed from one summary to another, in numbers.
#pragma once
#include <cstdio>
#include <stdexcept>
#include <string>

namespace app {

/// A file that is no summary: one line, "file: reason".
class CompareError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// How far two numbers may be apart and still be called the same: the larger of the two allowances.
struct Tolerance {
    double relative = 0;      // of the larger one
    double absolute = 0;      // in the number's own unit
};

/// Prints a line for everything that differs, what is beyond the tolerance marked; answers how many those
/// are. Wall time and the words of a check's detail are no differences. Throws CompareError.
std::size_t compareSummaries(const std::string& before, const std::string& after, const Tolerance& tolerance,
                             std::FILE* out);

}  // namespace app
