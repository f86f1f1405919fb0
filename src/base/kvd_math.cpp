#include "base/kvd_math.h"

#include <cmath>

double KvdLoz6Math_fmodSignY(double x, double y)
{
    if (y == 0.0) return x;
    const double r = std::fmod(x, y);
    return r != 0.0 && std::signbit(r) != std::signbit(y) ? r + y : r;
}

double KvdLoz6Math_wrapSymmetric(double x, double m) { return KvdLoz6Math_fmodSignY(x + m / 2, m) - m / 2; }

TimePair KvdLoz6Math_longDouble(double a, double b)
{
    const double inner = KvdLoz6Math_fmodSignY(a, 1.0) + KvdLoz6Math_fmodSignY(b, 1.0);
    return {std::floor(inner) + std::floor(a) + std::floor(b), KvdLoz6Math_fmodSignY(inner, 1.0)};
}

TimePair KvdLoz6Math_ldMod(double c, double f, double t_mod)
{
    if (t_mod == 0.0) return {0.0, 0.0};
    const double h = t_mod / 2;
    double coarse = KvdLoz6Math_wrapSymmetric(c, t_mod);
    const double fine = std::fabs(f) >= h ? KvdLoz6Math_wrapSymmetric(f, t_mod) : f;
    const double sum = coarse + fine;

    if (std::fabs(sum) > h) {
        coarse -= std::copysign(t_mod, coarse);
    } else if (std::fabs(sum) == h) {
        // The sum sits on the limit as far as a double can tell; what rounding took from it
        // decides.
        const double residual = sum - coarse - fine;
        if (std::signbit(sum) == (residual > 0.0)) coarse -= std::copysign(t_mod, sum);
    }
    return {coarse, fine};
}

TimePair KvdLoz6Math_addTime(TimePair a, TimePair b)
{
    const double fractions = a.f + b.f;
    const double carry = std::floor(fractions);
    return {a.c + b.c + carry, fractions - carry};
}

double KvdLoz6Math_roundHalfDown(double x)
{
    const double nearest = std::round(x);       // exact, a half goes away from zero
    return nearest - x == 0.5 ? nearest - 1.0 : nearest;
}
