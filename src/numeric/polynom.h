/// Three-point parabolic interpolation: where a sampled peak lies between the samples, and how high
/// it is. The abscissa is local: the samples sit at x = -1, 0 and +1, the peak sample at 0.

#pragma once

/// Parabola p(x) = a x^2 + b x + c.
struct parabola {
    double a;
    double b;
    double c;
};

/// Fits the parabola through three samples in a row.
///
/// \param[in]  y  [3] samples at x = -1, 0 and +1
/// \param[out] p  the parabola
/// \return 0 always
int parabfit(const double *y, parabola *p);

/// Fits the parabola through three samples given one by one.
///
/// \param[out] p       the parabola
/// \param[in]  before  sample at x = -1
/// \param[in]  middle  sample at x = 0
/// \param[in]  after   sample at x = +1
/// \return 0 always
int parabfitpoints(parabola *p, double before, double middle, double after);

/// Abscissa of the vertex, -b / (2 a). Where the middle sample is above both neighbours it lies
/// strictly between -0.5 and +0.5; a straight line (a = 0) gives what the division gives.
double parabextx(const parabola *p);

/// Value at the vertex, c - b^2 / (4 a). Where the middle sample is above both neighbours it is not
/// below that sample; a straight line (a = 0) gives what the division gives.
double parabexty(const parabola *p);
