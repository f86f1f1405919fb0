// kvd_math.h - Arithmetic on time pairs: a coarse and a fine part in seconds whose sum is the time.
// Owner   stateless.
// Units   seconds; a modulus of 0 means "nothing known".
// Errors  none; operations are total.
#pragma once
#include "ose/types.h"

#include <cmath>

struct TimePair {
    double c;   // coarse, s
    double f;   // fine, s
};

/// How far x is from 0: nearer than the limit, at most as far, farther.
inline bool isWithin(double x, double limit) { return std::fabs(x) < limit; }
inline bool isUpTo(double x, double limit) { return std::fabs(x) <= limit; }
inline bool isBeyond(double x, double limit) { return std::fabs(x) > limit; }

/// The C remainder of x by y moved so that it takes the sign of y; x when y is 0.
double KvdLoz6Math_fmodSignY(double x, double y);
/// x moved by whole m into -m/2 up to +m/2.
double KvdLoz6Math_wrapSymmetric(double x, double m);
/// Normal form of a pair: whole seconds and a fraction from 0 up to 1.
TimePair KvdLoz6Math_longDouble(double a, double b);
/// The pair reduced so that its sum lies in -t_mod/2 up to +t_mod/2, upper end excluded; both 0 when
/// t_mod is 0.
TimePair KvdLoz6Math_ldMod(double c, double f, double t_mod);
/// Sum of two times given as whole and fraction, carry moved into the whole part.
TimePair KvdLoz6Math_addTime(TimePair a, TimePair b);
/// Nearest integer; a fraction of exactly 0.5 goes down, below zero too.
double KvdLoz6Math_roundHalfDown(double x);
