/// Elementary functions that give the same bytes everywhere. A C library picks variants of its own
/// by processor and by version, which differ in the last bit; these are fixed by their source.
///
/// Each is a power series on a short interval, to which its argument is reduced. The result is
/// within one unit in the last place of the exact value, that of the arc tangent within one and a
/// half. What is exact stays exact: the logarithm of 1, the exponential, sine and arc tangent of 0.
/// Needs simd.

#pragma once

#include <cstddef>

namespace nalveo {

/// Sine of x radians, |x| up to 10^6; NaN beyond and for a NaN.
double sine(double x);

/// Cosine of x radians, |x| up to 10^6; NaN beyond and for a NaN.
double cosine(double x);

/// Sines and cosines of n angles, each exactly as sine and cosine give it.
///
/// \param[in]  angles   [n] radians
/// \param[in]  n        number of angles
/// \param[out] sines    [n]; neither may overlap the angles
/// \param[out] cosines  [n]
void sinesandcosines(const double *angles, std::size_t n, double *sines, double *cosines);

/// Angle of the point (x, y), -pi .. pi, in the quadrant of the point; signs of zeros count as in
/// std::atan2, and infinite coordinates give NaN.
double arctangent(double y, double x);

/// e to the power of x.
double exponential(double x);

/// Replaces n values by their exponentials, each exactly as exponential gives it.
///
/// \param[in,out] values  [n]
/// \param[in]     n       number of values
void exponentials(double *values, std::size_t n);

/// Natural logarithm: minus infinity for 0, NaN below.
double logarithm(double x);

/// Replaces n values by their natural logarithms, each exactly as logarithm gives it.
///
/// \param[in,out] values  [n]
/// \param[in]     n       number of values
void logarithms(double *values, std::size_t n);

/// x to the power of p for x from 0 on, as exponential(p logarithm(x)): the error grows with the
/// exponent of the result, by a unit in the last place per factor of e.
double power(double x, double p);

/// Replaces n values by their powers, each exactly as power gives it.
///
/// \param[in,out] values  [n] values from 0 on
/// \param[in]     n       number of values
/// \param[in]     p       exponent
void powers(double *values, std::size_t n, double p);

}  // namespace nalveo
