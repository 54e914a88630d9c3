// Small geometric predicates and fits, and the roots of polynomials up to degree four.
#pragma once

#include "complex_number.hpp"
#include "position.hpp"
#include "tolerance.hpp"

namespace vorx {

// |a - b| < resabs.
inline bool is_equal(double a, double b) {
    return std::fabs(a - b) < resabs;
}

inline double distance_to_point_squared(const position& a, const position& b) {
    return (a - b).len_sq();
}
inline double distance_to_point(const position& a, const position& b) {
    return (a - b).len();
}

// The points are closer than `tol`.
inline bool same_point(const position& a, const position& b, double tol = resabs) {
    return distance_to_point_squared(a, b) < tol * tol;
}
// The vectors differ by less than `tol` in length.
inline bool same_vector(const vector& a, const vector& b, double tol = resabs) {
    return (a - b).len_sq() < tol * tol;
}

// The vectors point the same way: the sine of the angle between them is at most `tol`
// and their dot product is positive.  A zero vector has no direction and is parallel to
// nothing.
bool parallel(const vector& a, const vector& b, double tol = resnor);
// As parallel, but pointing opposite ways.
bool antiparallel(const vector& a, const vector& b, double tol = resnor);
// Parallel or antiparallel.
bool biparallel(const unit_vector& a, const unit_vector& b, double tol = resnor);

// (1 - t) a + t b.
inline position interpolate(double t, const position& a, const position& b) {
    return a + (b - a) * t;
}

// The least-squares plane of `n` points: `root` is their centroid and `normal` the
// direction in which they vary least.  The normal follows the right-hand rule when the
// points, in order, go round it; otherwise its sense is arbitrary.  False (outputs
// untouched) when n < 3 or the points lie within resabs of a line.
bool get_plane_from_points(int n, const position* pts, position& root, unit_vector& normal);

// The least-squares line of `n` points: `root` is their centroid and `dir` the direction
// of greatest variance, pointing from the first point towards the last.  False (outputs
// untouched) when n < 2 or the points lie within resabs of one point.
bool get_line_from_points(int n, const position* pts, position& root, unit_vector& dir);

// The eigenvalues of the symmetric matrix `m` (only its upper triangle m[i][j], i <= j,
// is read), in increasing order, with unit eigenvectors as the rows of `vecs`.
void symmetric_eigen3(const double m[3][3], double values[3], vector vecs[3]);

// All roots, real and complex, of a x^4 + b x^3 + c x^2 + d x + e = 0.
//
// The degree is that of the highest coefficient that is not negligible: a leading
// coefficient below 1e-14 times the largest one counts as zero, so a vanishing a gives
// the three roots of the cubic, and so on (roots so large that they make the leading
// coefficient negligible go with it).  The number of roots goes to *n (when given) and
// the roots, sorted by real then imaginary part, to an array of four allocated with
// VORX_ALLOC_ARRAY that the caller releases with VORX_FREE.  With no roots (a constant,
// including the zero polynomial) the result is null.
//
// Roots are found as eigenvalues of the balanced companion matrix; when roots span so
// many orders of magnitude that the small ones drown in the large ones' rounding, those
// are taken from the reversed polynomial instead.  A cluster of roots that is, within
// rounding, one multiple root is replaced by its mean, and every root is then polished
// by Newton steps kept only while they lower the residual (a multiple root on the
// derivative where it is simple).  Simple roots come out to near machine precision; a
// root of multiplicity m that is not recognised as such is good to about eps^(1/m).
complex_number* quartic_roots(double a, double b, double c, double d, double e, int* n = nullptr);

}  // namespace vorx
