// Pieces shared by the spline curve and surface approximations: B-spline basis values,
// a span's Bezier points by blossoming, the banded positive definite solve of least
// squares, and Brent's one-dimensional maximiser.
#pragma once

#include <cmath>

namespace lawutil {

// The highest degree the approximations build.
constexpr int sw_max_degree = 7;

// The p + 1 B-spline basis values at t of the span starting at knot k (U[k] <= t <=
// U[k+1]), by the Cox-de Boor triangle.
void sw_basis(const double* U, int p, int k, double t, double* N);

// The Bezier points of the span starting at knot k of a degree-p B-spline: point r is the
// blossom at (U[k] x (p - r), U[k+1] x r), by de Boor's triangle with those arguments.
// `P` holds the span's p + 1 control points, `dim` (at most 3) doubles each, `stride` doubles
// apart; `B` gets p + 1 points of `dim` doubles, packed.
void sw_span_to_bezier(const double* U, int p, int k, const double* P, int stride, int dim,
                       double* B);

// Solves A X = R for a symmetric positive definite band matrix of half-width p: row i of
// A holds A(i, i - d) at A[i*(p+1) + d]; R has F rows of `cols` values and receives X.  A
// is overwritten by its Cholesky factor.  False when A is not numerically positive
// definite (nothing is then guaranteed about R).
bool sw_band_solve(double* A, int F, int p, double* R, int cols);

// Maximises g on [lo, hi] by Brent's method (golden section with parabolic steps) from x0
// where g is g0, locating the maximum to 1e-4 of the interval; returns the largest value.
template <class G>
double sw_brent_max(G g, double lo, double hi, double x0, double g0) {
    const double golden = 0.3819660112501051;
    const double tol = 1e-4 * (hi - lo);
    double x = x0, w = x0, v = x0, fx = -g0, fw = fx, fv = fx;
    double d = 0.0, e = 0.0, a = lo, b = hi;
    for (int it = 0; it < 40; ++it) {
        const double m = 0.5 * (a + b);
        if (std::fabs(x - m) <= 2 * tol - 0.5 * (b - a)) break;
        bool golden_step = true;
        if (std::fabs(e) > tol) {
            // Parabola through (v, fv), (w, fw), (x, fx).
            double r = (x - w) * (fx - fv), q = (x - v) * (fx - fw), s = (x - v) * q - (x - w) * r;
            q = 2 * (q - r);
            if (q > 0) s = -s;
            q = std::fabs(q);
            if (std::fabs(s) < std::fabs(0.5 * q * e) && s > q * (a - x) && s < q * (b - x)) {
                e = d;
                d = s / q;
                golden_step = false;
                if ((x + d) - a < 2 * tol || b - (x + d) < 2 * tol) d = x < m ? tol : -tol;
            }
        }
        if (golden_step) {
            e = (x < m ? b : a) - x;
            d = golden * e;
        }
        const double u = x + (std::fabs(d) >= tol ? d : (d > 0 ? tol : -tol));
        const double fu = -g(u);
        if (fu <= fx) {
            (u < x ? b : a) = x;
            v = w, fv = fw, w = x, fw = fx, x = u, fx = fu;
        } else {
            (u < x ? a : b) = u;
            if (fu <= fw || w == x) {
                v = w, fv = fw, w = u, fw = fu;
            } else if (fu <= fv || v == x || v == w) {
                v = u, fv = fu;
            }
        }
    }
    return -fx;
}

}  // namespace lawutil
