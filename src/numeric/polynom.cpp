#include "numeric/polynom.h"

int parabfit(const double *y, parabola *p) { return parabfitpoints(p, y[0], y[1], y[2]); }

int parabfitpoints(parabola *p, double before, double middle, double after) {
    // The outer samples are added first: a symmetric triple then has b = 0 exactly and its vertex
    // on the middle sample.
    p->a = ((after + before) - 2.0 * middle) * 0.5;
    p->b = (after - before) * 0.5;
    p->c = middle;
    return 0;
}

double parabextx(const parabola *p) { return -p->b / (2.0 * p->a); }

double parabexty(const parabola *p) { return p->c - p->b * p->b / (4.0 * p->a); }
