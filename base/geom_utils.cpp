#include "base/geom_utils.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <new>

#include "base/memory.hpp"

namespace vorx {

namespace {

// Insertion sort for the handful of elements sorted here; std::sort's unrolled
// small-array path draws false array-bounds warnings from GCC on fixed arrays this
// small.
template <class T, class Less>
void small_sort(T* a, int n, Less less) {
    for (int i = 1; i < n; ++i) {
        T v = a[i];
        int j = i;
        for (; j > 0 && less(v, a[j - 1]); --j) a[j] = a[j - 1];
        a[j] = v;
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Directions

bool parallel(const vector& a, const vector& b, double tol) {
    double la = a.len(), lb = b.len();
    if (la == 0.0 || lb == 0.0) return false;
    return (a * b).len() <= tol * la * lb && a % b > 0.0;
}

bool antiparallel(const vector& a, const vector& b, double tol) {
    double la = a.len(), lb = b.len();
    if (la == 0.0 || lb == 0.0) return false;
    return (a * b).len() <= tol * la * lb && a % b < 0.0;
}

bool biparallel(const unit_vector& a, const unit_vector& b, double tol) {
    return parallel(a, b, tol) || antiparallel(a, b, tol);
}

// ---------------------------------------------------------------------------------------
// Symmetric eigenproblem and fits

void symmetric_eigen3(const double m[3][3], double values[3], vector vecs[3]) {
    // Cyclic Jacobi: slow for big matrices, but for 3x3 it is a handful of rotations,
    // always converges, and gets small eigenvalues to full relative accuracy.
    double a[3][3], v[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (int i = 0; i < 3; ++i)
        for (int j = i; j < 3; ++j) a[i][j] = a[j][i] = m[i][j];
    for (int sweep = 0; sweep < 50; ++sweep) {
        double off = a[0][1] * a[0][1] + a[0][2] * a[0][2] + a[1][2] * a[1][2];
        double diag = a[0][0] * a[0][0] + a[1][1] * a[1][1] + a[2][2] * a[2][2];
        if (off == 0.0 || off <= 1e-36 * diag) break;
        for (int p = 0; p < 2; ++p)
            for (int q = p + 1; q < 3; ++q) {
                if (a[p][q] == 0.0) continue;
                // The rotation angle that zeroes a[p][q]; t is its tangent, taken as the
                // smaller root so the rotation stays below 45 degrees.
                double theta = (a[q][q] - a[p][p]) / (2.0 * a[p][q]);
                double t = std::isfinite(theta * theta)
                               ? std::copysign(1.0, theta) /
                                     (std::fabs(theta) + std::sqrt(theta * theta + 1.0))
                               : 0.5 / theta;
                double c = 1.0 / std::sqrt(t * t + 1.0), s = t * c;
                for (int k = 0; k < 3; ++k) {
                    double akp = a[k][p], akq = a[k][q];
                    a[k][p] = c * akp - s * akq;
                    a[k][q] = s * akp + c * akq;
                }
                for (int k = 0; k < 3; ++k) {
                    double apk = a[p][k], aqk = a[q][k];
                    a[p][k] = c * apk - s * aqk;
                    a[q][k] = s * apk + c * aqk;
                }
                a[p][q] = a[q][p] = 0.0;
                for (int k = 0; k < 3; ++k) {
                    double vkp = v[k][p], vkq = v[k][q];
                    v[k][p] = c * vkp - s * vkq;
                    v[k][q] = s * vkp + c * vkq;
                }
            }
    }
    int order[3] = {0, 1, 2};
    small_sort(order, 3, [&](int i, int j) { return a[i][i] < a[j][j]; });
    for (int i = 0; i < 3; ++i) {
        int k = order[i];
        values[i] = a[k][k];
        vecs[i] = vector(v[0][k], v[1][k], v[2][k]);
    }
}

namespace {

// The centroid of the points and the eigen decomposition of their scatter matrix.
position scatter(int n, const position* pts, double values[3], vector vecs[3]) {
    double sum[3] = {0, 0, 0};
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < 3; ++k) sum[k] += pts[i][k];
    position c(sum[0] / n, sum[1] / n, sum[2] / n);
    double m[3][3] = {};
    for (int i = 0; i < n; ++i) {
        vector d = pts[i] - c;
        for (int j = 0; j < 3; ++j)
            for (int k = j; k < 3; ++k) m[j][k] += d[j] * d[k];
    }
    symmetric_eigen3(m, values, vecs);
    return c;
}

}  // namespace

bool get_plane_from_points(int n, const position* pts, position& root, unit_vector& normal) {
    if (n < 3 || !pts) return false;
    double values[3];
    vector vecs[3];
    position c = scatter(n, pts, values, vecs);
    // values[1] is the mean square distance from the best line, times n.
    if (values[1] <= n * resabs * resabs) return false;
    vector nv = vecs[0];
    // Orient by the area vector of the points taken in order, when it says anything.
    vector area;
    for (int i = 0; i < n; ++i) area += (pts[i] - c) * (pts[(i + 1) % n] - c);
    double along = area % nv;
    if (std::fabs(along) > resnor * area.len() && area.len() > 0.0) {
        if (along < 0.0) nv = -nv;
    } else {
        // No winding: make the sense deterministic by the largest component.
        int k = 0;
        for (int i = 1; i < 3; ++i)
            if (std::fabs(nv[i]) > std::fabs(nv[k])) k = i;
        if (nv[k] < 0.0) nv = -nv;
    }
    root = c;
    normal = normalise(nv);
    return true;
}

bool get_line_from_points(int n, const position* pts, position& root, unit_vector& dir) {
    if (n < 2 || !pts) return false;
    double values[3];
    vector vecs[3];
    position c = scatter(n, pts, values, vecs);
    if (values[2] <= n * resabs * resabs) return false;
    vector d = vecs[2];
    if ((pts[n - 1] - pts[0]) % d < 0.0) d = -d;
    root = c;
    dir = normalise(d);
    return true;
}

// ---------------------------------------------------------------------------------------
// Polynomial roots

namespace {

using cplx = complex_number;

// p(x) for p[0] x^m + ... + p[m], and p'(x) when asked.
cplx poly_eval(const double* p, int m, const cplx& x, cplx* deriv = nullptr) {
    cplx v(p[0], 0.0), d;
    for (int i = 1; i <= m; ++i) {
        d = d * x + v;
        v = v * x + cplx(p[i], 0.0);
    }
    if (deriv) *deriv = d;
    return v;
}

// Eigenvalues of [[a, b], [c, d]], computed so that neither is lost to cancellation.
void eigen2(double a, double b, double c, double d, cplx& l1, cplx& l2) {
    double p = 0.5 * (a - d), bc = b * c;
    double q = p * p + bc;
    if (q >= 0.0) {
        double z = p + std::copysign(std::sqrt(q), p);
        l1 = cplx(d + z, 0.0);
        l2 = cplx(z != 0.0 ? d - bc / z : d, 0.0);
    } else {
        double w = std::sqrt(-q);
        l1 = cplx(d + p, w);
        l2 = cplx(d + p, -w);
    }
}

// Scales rows and columns by powers of two (a similarity, so the eigenvalues are kept
// exactly) until row and column norms are comparable; companion matrices of polynomials
// with widely spread coefficients need it to lose no accuracy.
void balance(double h[4][4], int n) {
    for (int pass = 0; pass < 100; ++pass) {
        bool changed = false;
        for (int i = 0; i < n; ++i) {
            double c = 0.0, r = 0.0;
            for (int j = 0; j < n; ++j)
                if (j != i) {
                    c += std::fabs(h[j][i]);
                    r += std::fabs(h[i][j]);
                }
            if (c == 0.0 || r == 0.0) continue;
            double s = c + r, f = 1.0;
            // Track c f^2 against r to find the f that evens c f and r / f.
            while (c < r / 2.0) {
                f *= 2.0;
                c *= 4.0;
            }
            while (c > r * 2.0) {
                f /= 2.0;
                c /= 4.0;
            }
            if ((c + r) / f < 0.95 * s) {
                changed = true;
                for (int j = 0; j < n; ++j) {
                    h[i][j] /= f;
                    h[j][i] *= f;
                }
            }
        }
        if (!changed) break;
    }
}

// Applies the reflector I - beta v v^T, of size `len` (2 or 3) at row/column k, to rows
// k.. of columns [c0, c1] from the left and to columns k.. of rows [r0, r1] from the
// right.
void reflect(double h[4][4], int k, int len, const double v[3], double beta, int c0, int c1, int r0,
             int r1) {
    for (int j = c0; j <= c1; ++j) {
        double s = 0.0;
        for (int i = 0; i < len; ++i) s += v[i] * h[k + i][j];
        s *= beta;
        for (int i = 0; i < len; ++i) h[k + i][j] -= s * v[i];
    }
    for (int i = r0; i <= r1; ++i) {
        double s = 0.0;
        for (int j = 0; j < len; ++j) s += h[i][k + j] * v[j];
        s *= beta;
        for (int j = 0; j < len; ++j) h[i][k + j] -= s * v[j];
    }
}

// The reflector taking u (of size len) to a multiple of e1; false when u is zero.
bool householder(const double u[3], int len, double v[3], double& beta) {
    double nn = 0.0;
    for (int i = 0; i < len; ++i) nn += u[i] * u[i];
    if (nn == 0.0) return false;
    double alpha = -std::copysign(std::sqrt(nn), u[0]);
    for (int i = 0; i < len; ++i) v[i] = u[i];
    v[0] -= alpha;
    double vv = 0.0;
    for (int i = 0; i < len; ++i) vv += v[i] * v[i];
    if (vv == 0.0) return false;
    beta = 2.0 / vv;
    return true;
}

// Eigenvalues of the upper Hessenberg matrix h (n <= 4) by implicit double-shift QR,
// deflating from the bottom.  Only the active diagonal block is updated: the eigenvalues
// do not depend on the rest.  False when an eigenvalue failed to converge; its slot then
// holds the diagonal element, a starting guess for polishing.
bool hessenberg_eigenvalues(double h[4][4], int n, cplx* out) {
    double norm = 0.0;
    for (int i = 0; i < n; ++i)
        for (int j = std::max(i - 1, 0); j < n; ++j) norm += std::fabs(h[i][j]);
    int hi = n - 1, its = 0;
    while (hi >= 0) {
        int lo = hi;
        for (; lo > 0; --lo) {
            double s = std::fabs(h[lo - 1][lo - 1]) + std::fabs(h[lo][lo]);
            if (s == 0.0) s = norm;
            if (std::fabs(h[lo][lo - 1]) <= DBL_EPSILON * s) {
                h[lo][lo - 1] = 0.0;
                break;
            }
        }
        if (lo == hi) {
            out[hi] = cplx(h[hi][hi], 0.0);
            --hi;
            its = 0;
            continue;
        }
        if (lo == hi - 1) {
            eigen2(h[lo][lo], h[lo][hi], h[hi][lo], h[hi][hi], out[lo], out[hi]);
            hi -= 2;
            its = 0;
            continue;
        }
        if (++its > 300) {
            for (int i = 0; i <= hi; ++i) out[i] = cplx(h[i][i], 0.0);
            return false;
        }
        // Shifts by the eigenvalues of the trailing 2x2 block, through their sum and
        // product; every tenth step an ad hoc pair near the last diagonal element breaks
        // the cycles the standard shifts can fall into (a permutation matrix, e.g. the
        // companion of x^4 - 1).
        double s, t;
        if (its % 10 == 0) {
            double w = std::fabs(h[hi][hi - 1]) + std::fabs(h[hi - 1][hi - 2]);
            double c = h[hi][hi] + 0.75 * w;
            s = 2.0 * c;
            t = c * c + 0.4375 * w * w;
        } else {
            s = h[hi - 1][hi - 1] + h[hi][hi];
            t = h[hi - 1][hi - 1] * h[hi][hi] - h[hi - 1][hi] * h[hi][hi - 1];
        }
        // First column of (H - s1)(H - s2), which starts the bulge.
        double u[3] = {h[lo][lo] * h[lo][lo] + h[lo][lo + 1] * h[lo + 1][lo] - s * h[lo][lo] + t,
                       h[lo + 1][lo] * (h[lo][lo] + h[lo + 1][lo + 1] - s),
                       h[lo + 1][lo] * h[lo + 2][lo + 1]};
        double v[3], beta;
        for (int k = lo; k <= hi - 2; ++k) {
            if (householder(u, 3, v, beta)) {
                reflect(h, k, 3, v, beta, std::max(lo, k - 1), hi, lo, std::min(k + 3, hi));
                if (k > lo) h[k + 1][k - 1] = h[k + 2][k - 1] = 0.0;
            }
            u[0] = h[k + 1][k];
            u[1] = h[k + 2][k];
            u[2] = k < hi - 2 ? h[k + 3][k] : 0.0;
        }
        if (householder(u, 2, v, beta)) {
            reflect(h, hi - 1, 2, v, beta, hi - 2, hi, lo, hi);
            h[hi][hi - 2] = 0.0;
        }
    }
    return true;
}

// Newton steps on p, each kept only when it lowers |p|.  A root of multiplicity k is a
// simple root of the (k-1)-th derivative, so a merged cluster is polished there, where
// Newton still converges fast.
void polish(const double* p, int m, int multiplicity, cplx& r) {
    double q[5];
    int deg = m;
    for (int i = 0; i <= m; ++i) q[i] = p[i];
    for (int k = 1; k < multiplicity; ++k, --deg)
        for (int i = 0; i < deg; ++i) q[i] *= deg - i;
    if (deg < 1) return;
    cplx d;
    double res = poly_eval(q, deg, r, &d).abs();
    for (int it = 0; it < 10 && res > 0.0; ++it) {
        if (d.re() == 0.0 && d.im() == 0.0) return;
        cplx next = r - poly_eval(q, deg, r) / d;
        cplx nd;
        double next_res = poly_eval(q, deg, next, &nd).abs();
        if (!(next_res < res)) return;
        r = next;
        res = next_res;
        d = nd;
    }
}

// Whether x is, within the rounding of evaluating p, a root of multiplicity k: the
// Taylor coefficients of p at x below the k-th must all be as small as the error made
// in computing them.  That error is bounded, up to a small factor, by eps times the same
// sums taken with absolute values, which keeps the test relative to the size of x, so
// small roots are judged on their own scale.
bool is_multiple_root(const double* p, int m, const cplx& x, int k) {
    // Repeated synthetic division by (y - x): after pass j, t[m - j] holds the j-th
    // Taylor coefficient; the same passes over |p| and |x| give the bounds.
    cplx t[5];
    double b[5];
    for (int i = 0; i <= m; ++i) {
        t[i] = cplx(p[i], 0.0);
        b[i] = std::fabs(p[i]);
    }
    double ax = x.abs();
    for (int j = 0; j < k; ++j) {
        for (int i = 1; i <= m - j; ++i) {
            t[i] += t[i - 1] * x;
            b[i] += b[i - 1] * ax;
        }
        if (t[m - j].abs() > 8.0 * (m + 1) * DBL_EPSILON * b[m - j]) return false;
    }
    return true;
}

// Replaces clusters of roots that are, within rounding, one multiple root by their
// mean.  The eigenvalues of a matrix with a k-fold eigenvalue scatter by eps^(1/k)
// round it, but their mean is good to near eps, and Newton on the (k-1)-th derivative
// then polishes it further.  Distinct roots that are close but resolvable fail the
// multiplicity test, as p at their mean is far from negligible.
// Each root's multiplicity goes to `multiplicity` and the first root of its cluster to
// `leader`.
void merge_multiple_roots(const double* p, int m, cplx* r, int* multiplicity, int* leader) {
    for (int i = 0; i < m; ++i) {
        multiplicity[i] = 1;
        leader[i] = i;
    }
    int merged = 0;  // mask of roots already merged
    for (int size = m; size >= 2; --size) {
        // Candidate clusters of this size, tightest first.
        struct candidate {
            int mask;
            double spread;
            cplx mean;
        } cand[6];
        int nc = 0;
        for (int mask = 1; mask < (1 << m); ++mask) {
            int count = 0;
            cplx sum;
            for (int i = 0; i < m; ++i)
                if (mask & (1 << i)) {
                    ++count;
                    sum += r[i];
                }
            if (count != size || (mask & merged)) continue;
            cplx mean = sum / (double)size;
            double spread = 0.0;
            for (int i = 0; i < m; ++i)
                if (mask & (1 << i)) spread = std::max(spread, (r[i] - mean).abs());
            if (spread <= 0.1 * (1.0 + mean.abs())) cand[nc++] = {mask, spread, mean};
        }
        small_sort(cand, nc,
                   [](const candidate& x, const candidate& y) { return x.spread < y.spread; });
        for (int k = 0; k < nc; ++k) {
            if (cand[k].mask & merged) continue;
            cplx mean = cand[k].mean;
            polish(p, m, size, mean);
            if (is_multiple_root(p, m, mean, size)) {
                int first = -1;
                for (int i = 0; i < m; ++i) {
                    if (cand[k].mask & (1 << i)) {
                        r[i] = mean;
                        if (first < 0) first = i;
                        multiplicity[i] = size;
                        leader[i] = first;
                    }
                }
                merged |= cand[k].mask;
            }
        }
    }
}

// |p(x)| relative to the sum of the magnitudes of its terms, which bounds the rounding
// error of evaluating it: near DBL_EPSILON means x is as good a root as can be told.
double relative_residual(const double* p, int m, const cplx& x) {
    double ax = x.abs(), scale = 0.0;
    for (int i = 0; i <= m; ++i) scale = scale * ax + std::fabs(p[i]);
    double v = poly_eval(p, m, x).abs();
    if (!std::isfinite(scale) || !std::isfinite(v)) return HUGE_VAL;
    return scale > 0.0 ? v / scale : v;
}

double worst_residual(const double* p, int m, const cplx* r) {
    double w = 0.0;
    for (int i = 0; i < m; ++i) w = std::max(w, relative_residual(p, m, r[i]));
    return w;
}

// The eigenvalues of the balanced companion matrix of p (degree m >= 2, p[0] != 0).
void companion_roots(const double* p, int m, cplx* r) {
    // Companion matrix of the monic polynomial, already in Hessenberg form.
    double h[4][4] = {};
    for (int j = 0; j < m; ++j) h[0][j] = -p[j + 1] / p[0];
    for (int i = 1; i < m; ++i) h[i][i - 1] = 1.0;
    balance(h, m);
    hessenberg_eigenvalues(h, m, r);
}

// Eigenvalues carry errors of about eps times the largest root, which swamps roots many
// orders of magnitude smaller.  The reversed polynomial (roots 1/r) gets those right, so
// the set is rebuilt from its smallest roots and the given set's largest, split where
// both sets show a clear gap in modulus, keeping the split that leaves the smallest
// worst residual.  p has no zero roots, so the reverse keeps the degree.
void mix_in_reversed_roots(const double* p, int m, cplx* r) {
    double rev[5];
    for (int i = 0; i <= m; ++i) rev[i] = p[m - i];
    cplx s[4];
    companion_roots(rev, m, s);
    for (int i = 0; i < m; ++i) s[i] = cplx(1.0, 0.0) / s[i];
    auto by_modulus = [](const cplx& x, const cplx& y) { return x.abs() < y.abs(); };
    small_sort(r, m, by_modulus);
    small_sort(s, m, by_modulus);
    cplx best[4];
    std::copy(r, r + m, best);
    double best_res = worst_residual(p, m, r);
    for (int k = 1; k <= m; ++k) {
        // Splitting between members of a conjugate pair or a cluster could take one
        // root twice and lose another.
        if (k < m && !(s[k].abs() > 1.5 * s[k - 1].abs() && r[k].abs() > 1.5 * r[k - 1].abs()))
            continue;
        cplx trial[4];
        for (int i = 0; i < m; ++i) trial[i] = i < k ? s[i] : r[i];
        double res = worst_residual(p, m, trial);
        if (res < best_res) {
            best_res = res;
            std::copy(trial, trial + m, best);
        }
    }
    std::copy(best, best + m, r);
}

}  // namespace

complex_number* quartic_roots(double a, double b, double c, double d, double e, int* n) {
    const double coef[5] = {a, b, c, d, e};
    double big = 0.0;
    for (double v : coef) big = std::max(big, std::fabs(v));
    int start = 0;
    while (start < 4 && !(std::fabs(coef[start]) > 1e-14 * big)) ++start;
    int deg = 4 - start;
    if (n) *n = deg;
    if (deg == 0) return nullptr;

    // Scale by a power of two (exact) so the largest coefficient is about one.
    int exp2;
    std::frexp(big, &exp2);
    double p[5];
    for (int i = 0; i <= deg; ++i) p[i] = std::ldexp(coef[start + i], -exp2);

    // Exact zero roots come off first; they would otherwise form a multiple eigenvalue.
    int zeros = 0;
    while (zeros < deg && p[deg - zeros] == 0.0) ++zeros;
    int m = deg - zeros;

    cplx r[4];
    if (m == 1) {
        r[0] = cplx(-p[1] / p[0], 0.0);
    } else if (m >= 2) {
        companion_roots(p, m, r);
        if (worst_residual(p, m, r) > 1e-13) mix_in_reversed_roots(p, m, r);
        // Merging first: Newton on the single roots of a cluster would move them by
        // amounts the rounding decides, and their mean would lose its accuracy.
        int multiplicity[4], leader[4];
        merge_multiple_roots(p, m, r, multiplicity, leader);
        // The roots of a cluster are equal: polish its first and copy to the rest.
        for (int i = 0; i < m; ++i)
            if (leader[i] == i) polish(p, m, multiplicity[i], r[i]);
        for (int i = 0; i < m; ++i) r[i] = r[leader[i]];
    }

    complex_number* roots = VORX_ALLOC_ARRAY(complex_number, 4);
    for (int i = 0; i < 4; ++i) new (&roots[i]) complex_number(i < m ? r[i] : cplx());
    small_sort(roots, deg, [](const cplx& x, const cplx& y) {
        return x.re() < y.re() || (x.re() == y.re() && x.im() < y.im());
    });
    return roots;
}

}  // namespace vorx
