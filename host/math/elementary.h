#pragma once

/// Elementary functions whose results are the same bits on every machine.
///
/// The C library's sine differs in the last bit between versions and instruction sets; stored
/// placements must not. These use only IEEE double additions, multiplications, divisions and
/// square roots in a fixed order. Errors are against the exact value, in double.
namespace host {

struct SinCos {
  double sin, cos;
};

/// Sine and cosine of `a` radians. |a| <= 2^20: absolute error below 3e-16. Beyond that the
/// argument is first brought into a period with the double 2 pi, which adds |a| * 1e-16.
/// An infinite or undefined argument gives NaN for both.
SinCos SinCosOf(double a);
double Sin(double a);
double Cos(double a);
double Tan(double a);

/// Arc tangent of y / x in the right quadrant, -pi to pi, error below 5e-16. Signs of zero as the
/// C library has them: Atan2(0, -1) is pi, Atan2(-0.0, -1) is -pi, Atan2(0, 0) is 0.
double Atan2(double y, double x);

/// Arc cosine of c, 0 to pi; arguments outside -1 to 1 are taken as the nearer end.
double Acos(double c);

/// Square root of x^2 + y^2. Exact to the last place or one beside it while the squares neither
/// overflow nor underflow, as those of single precision arguments never do.
double Hypot(double x, double y);

inline constexpr double kPi = 3.14159265358979323846;

}  // namespace host
