// portable_math.h - Logarithm, exponential and sine from the exact operations of IEEE 754 alone, so
// that a run gives the same bytes with every compiler, build type and C library. Good to 1e-14.
#pragma once
#include <cmath>

namespace sim::portable {

/// Natural logarithm of a positive number.
inline double ln(double x)
{
    constexpr double LN_2 = 0.6931471805599453;
    constexpr double ROOT_HALF = 0.7071067811865476;
    int exponent = 0;
    double m = std::frexp(x, &exponent);          // 0.5 up to 1
    if (m < ROOT_HALF) {
        m *= 2.0;
        --exponent;
    }
    // ln m = 2 artanh s, |s| below 0.1716: the twelfth term is below 1e-17.
    const double s = (m - 1.0) / (m + 1.0);
    const double square = s * s;
    double sum = 0.0;
    for (int k = 23; k >= 1; k -= 2) sum = sum * square + 1.0 / k;
    return 2.0 * s * sum + exponent * LN_2;
}

/// e to the power of x; 0 below -700.
inline double exp(double x)
{
    constexpr double LN_2 = 0.6931471805599453;
    if (x < -700.0) return 0.0;
    const double halvings = std::floor(x / LN_2 + 0.5);
    const double rest = x - halvings * LN_2;      // |rest| up to 0.347
    double sum = 1.0;
    for (int k = 14; k >= 1; --k) sum = 1.0 + sum * rest / k;
    return std::ldexp(sum, static_cast<int>(halvings));
}

/// Sine of an angle in turns.
inline double sineOfTurns(double turns)
{
    constexpr double TWO_PI = 6.283185307179586;
    double t = turns - std::floor(turns + 0.5);   // -0.5 up to 0.5
    if (t > 0.25) t = 0.5 - t;
    if (t < -0.25) t = -0.5 - t;
    const double x = TWO_PI * t;
    double sum = 1.0;
    for (int k = 22; k >= 2; k -= 2) sum = 1.0 - sum * x * x / (k * (k + 1.0));
    return x * sum;
}

}  // namespace sim::portable
