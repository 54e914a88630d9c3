// Nroot_classified: every root of a scalar law on [a, b], classified.
//
// Mechanism.  [a, b] is clipped to the law's term_domain and cut at the points its
// `singularities` reports (each cut point is classified on the spot, and the pieces stop
// just short of it where the law is finite).  The stretches between cuts are searched left
// to right; within one, pieces wait on a fixed-size stack and the widest is taken next,
// so a bound on evaluations is spent on the bulk of the stretch first.
// Each piece goes through these steps:
//  1. Sample the law at the Chebyshev-Lobatto points cos(j pi/n) of the piece for
//     n = 8, 16, ..., 128.  The grids nest, so doubling n costs n new evaluations, and
//     the values at the piece's ends are handed down from the parent when known.
//  2. The interpolant is taken as resolved when its trailing coefficients (the last
//     eighth, at least two) fall below 1e-12 of the largest sample and it agrees to
//     1e-9 with the law at one off-grid point (one evaluation per piece, against
//     aliasing).  If one half of the piece stays below 1e-6 of the other, the piece is
//     halved instead, so that each half is resolved to its own scale.  The roots of the
//     interpolant are the eigenvalues of its colleague matrix, computed by balancing and
//     a Francis double-shift QR written here for the small Hessenberg matrix; an
//     interpolant of degree above 24 is cut in halves and re-interpolated (no evaluation
//     of the law) so no matrix exceeds 24 x 24.  Eigenvalues within 1e-2 of the real
//     segment are candidates.
//  3. When f is not resolved but 1/f, built from the same samples, is, the piece holds
//     no root of f, and the roots of the interpolant of 1/f are its poles: a pole is how
//     a law like COT or 1/(X-c) is resolved without cutting the interval into slivers.
//     1/f is not tried where neighbouring samples change sign close to zero (a root).
//  4. Otherwise the piece is split: at a domain boundary (where the law raises or is not
//     finite: located by bisection between a finite and a failing sample), at a jump
//     (located by bisecting towards the larger difference of values, stopped when the
//     difference fades, which means a steep but smooth stretch), at a kink (the slope
//     between nodes changes at one place by half its range: the jump of f' is located
//     the same way on f'), towards a singular end (the largest step of values or of
//     slopes lies at an end, where the nodes are closest: SQRT and LN at 0; the piece is
//     cut 1/16 from that end, so the pieces shrink geometrically towards it), or at its
//     middle.  The decay of the coefficients over the last two levels predicts whether
//     degree 128 can be reached, and the piece splits early when it cannot.
//  5. A piece narrower than 1e-5 of [a, b] that is still not resolved is checked by sign
//     changes between its samples only (each is bisected and classified) and counted as
//     unresolved in the search's report.  A sign change across a gap of the domain that
//     narrow (TAN fails within 1e-6 of its poles) is classified at the end.
//
// Polishing and classification are done on the law, not on the interpolant, against the
// law's size near the candidate: the scale S is the largest sample within an eighth of
// the piece on either side, the width w a quarter of the piece.  A candidate gets Newton
// steps with f' (symbolic, made before the search starts).  The root is simple when
// |f'| w is above 1e-4 S, or above 1e-7 S and Newton converged (it only creeps towards a
// multiple root, by a factor 1 - 1/m per step).  Otherwise Newton on f' finds the nearby
// critical point c: f(c) within 1e-11 S makes c a multiple root; its parity comes from
// the signs of f at c +- h, h below a third of the way to the next cluster of candidates
// and at most w/100, and its multiplicity from the first of f'', f''' not vanishing at c
// (scaled as |f^(k)| w^k / k! against 1e-7 S; "4" means four or more), an odd one being
// placed on the root of f'' nearby.  f(c) of the sign opposite to f'' makes two close
// simple roots at c +- sqrt(-2 f(c)/f''(c)) (then polished separately); anything else is
// no root.  A sign change found by bisection is classified by how |f| behaves on both
// sides of the final bracket against points 64 bracket widths away: growing on both sides
// is a pole, shrinking on both sides a (steep) root, neither a jump.  A cut point where f
// is 8 times smaller than on both sides of it is a root (a kink touching zero is reported
// as even), unless |f| falls away from it on one side, as beside a pole: then it is a
// pole, also when f keeps its sign across it (1/X^2) or keeps a small value at it (TAN,
// whose legacy values tend to 0 just past each pole).
//
// Invariants.  Every law evaluation goes through value(), which counts it, refuses it
// past the bound (answering NaN, which ends every loop), and turns an error raised by the
// law or a non-finite value into NaN: a gap of the domain, never an escaping error.  Every
// loop has a fixed iteration bound; each piece costs at least one evaluation, so the
// search ends within the bound.  The search allocates its work area once, before the
// first evaluation, and then only to grow its list of results; evaluation allocates
// nothing here, and the derivative laws are built before the search.  Results are sorted
// and entries closer than 1e-10 of |b - a| are merged (a multiple root over a simple one,
// any root over a pole or jump).
//
// Error model.  A root of multiplicity m is polished as a simple root of f^(m-1), so its
// position carries the conditioning of that derivative, not eps^(1/m).  What the method
// can miss: two roots closer than about 1e-7 of their piece (reported as one even root),
// a tangency whose |f| stays above 1e-11 of the piece's scale (not a root), features
// inside pieces given up by the evaluation bound or by the width limit (only sign changes
// are seen there), roots where the interpolant's error (1e-12 of the largest value of
// a piece whose halves are within 1e-6 of each other) exceeds |f| over a neighbourhood,
// and the kind of a root in a cluster of multiple roots (a double root next to another
// one, in a polynomial of degree 12, reported as two simple roots side by side).
//
// Evaluation bound: max_evaluations (20000 unless the caller says), counting f, f', f''
// and f'''.  A smooth law with a few roots takes tens of evaluations (9 or 17 samples, one
// check, about four Newton evaluations per root).
#include "lawutil/root_all.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/interval.hpp"
#include "base/memory.hpp"
#include "lawutil/law_base.hpp"
#include "lawutil/main_law_err.hpp"

namespace {

constexpr int finest = 128;     // largest degree of one interpolant
constexpr int first_level = 8;  // first degree tried
constexpr int eigen_max = 24;   // largest colleague matrix
constexpr int split_depth = 5;  // halvings of one interpolant before its roots are taken
constexpr int candidate_max = 256;
constexpr int stack_max = 256;
constexpr double resolve_tol = 1e-12;        // trailing coefficients against the largest sample
constexpr double trim_tol = 1e-14;           // coefficients dropped before the eigenvalue solve
constexpr double check_tol = 1e-9;           // interpolant against the law off the grid
constexpr double check_t = 0.4122872183949;  // the off-grid point, on [-1, 1]
constexpr double imag_tol = 1e-2;            // eigenvalues this near the real segment are tried
constexpr double touch_tol = 1e-11;          // |f| at a touching point, against the scale
// |f^(k)| w^k / k! against the scale: not vanishing above slope_tol; a slope above
// steep_tol needs no proof of convergence.
constexpr double slope_tol = 1e-7;
constexpr double steep_tol = 1e-4;
constexpr double small_piece = 1e-5;      // fraction of [a, b]: narrower pieces are sign-checked
constexpr double negligible_half = 1e-6;  // a half this far below the scale is redone alone
constexpr double grading = 16.0;          // pieces shrink by this towards a singular end
constexpr int newton_steps = 12;
constexpr int bisect_steps = 80;
const double nan_value = std::numeric_limits<double>::quiet_NaN();
const double eps = std::numeric_limits<double>::epsilon();

// cos(m pi / finest) for m = 0 .. 2 finest - 1, exactly symmetric.
struct cos_table {
    double c[2 * finest];
    cos_table() {
        for (int m = 0; m <= finest / 2; ++m) c[m] = std::cos(m * M_PI / finest);
        c[finest / 2] = 0.0;
        for (int m = finest / 2 + 1; m <= finest; ++m) c[m] = -c[finest - m];
        for (int m = finest + 1; m < 2 * finest; ++m) c[m] = c[2 * finest - m];
    }
};
const double* cosines() {
    static const cos_table t;
    return t.c;
}

// Coefficients c[first..n] of the interpolant through v at cos(j pi / n), j = 0..n, read
// from the finest grid with stride finest / n:
// c_k = (2/n) sum'' v_j cos(j k pi / n), with c_0 and c_n halved.
void chebyshev_coefficients(const double* v, int n, double* c, int first = 0) {
    const double* cs = cosines();
    int stride = finest / n;
    const int period = 2 * finest;  // j k stride, taken modulo 2 finest step by step
    for (int k = first; k <= n; ++k) {
        double last = v[n * stride];
        double sum = 0.5 * (v[0] + ((k & 1) ? -last : last));
        int step = k * stride % period, at = 0;
        for (int j = 1; j < n; ++j) {
            at += step;
            if (at >= period) at -= period;
            sum += v[j * stride] * cs[at];
        }
        c[k] = sum * 2.0 / n;
    }
    if (first == 0) c[0] *= 0.5;
    c[n] *= 0.5;
}

// sum c_k T_k(t), by Clenshaw's recurrence.
double clenshaw(const double* c, int n, double t) {
    double b1 = 0.0, b2 = 0.0;
    for (int k = n; k >= 1; --k) {
        double b = 2.0 * t * b1 - b2 + c[k];
        b2 = b1;
        b1 = b;
    }
    return t * b1 - b2 + c[0];
}

double max_abs(const double* c, int from, int to, int stride = 1) {
    double m = 0.0;
    for (int k = from; k <= to; k += stride) m = std::max(m, std::fabs(c[k]));
    return m;
}

// The largest of the last eighth of the coefficients (at least two).
double tail_of(const double* c, int n) {
    return max_abs(c, n - std::max(1, n / 8), n);
}

// The trailing coefficient predicted at degree `finest` from the decay between the last
// two levels, relative to the scale (huge when the coefficients do not decay).
double predicted_tail(double tail, double prev_tail, int n, double scale) {
    if (prev_tail <= 0.0) return 0.0;
    double rate = tail / prev_tail;
    return rate >= 1.0 ? HUGE_VAL : tail * std::pow(rate, (finest - n) / (0.5 * n)) / scale;
}

// The degree once coefficients below trim_tol * scale are dropped from the top.
int trimmed_degree(const double* c, int n, double scale) {
    while (n > 0 && std::fabs(c[n]) <= trim_tol * scale) --n;
    return n;
}

// Diagonal similarity that evens out row and column norms (a[i * (n + 1) + j], 1-based);
// keeps the Hessenberg form.
void balance(double* a, int n) {
    const int s = n + 1;
    for (int sweep = 0; sweep < 32; ++sweep) {
        bool done = true;
        for (int i = 1; i <= n; ++i) {
            double r = 0.0, c = 0.0;
            for (int j = 1; j <= n; ++j)
                if (j != i) {
                    c += std::fabs(a[j * s + i]);
                    r += std::fabs(a[i * s + j]);
                }
            if (c == 0.0 || r == 0.0) continue;
            double g = r / 2.0, f = 1.0, total = c + r;
            while (c < g) {
                f *= 2.0;
                c *= 4.0;
            }
            g = r * 2.0;
            while (c > g) {
                f /= 2.0;
                c /= 4.0;
            }
            if ((c + r) / f < 0.95 * total) {
                done = false;
                for (int j = 1; j <= n; ++j) a[i * s + j] /= f;
                for (int j = 1; j <= n; ++j) a[j * s + i] *= f;
            }
        }
        if (done) return;
    }
}

// Eigenvalues (wr + i wi, 1-based) of the upper Hessenberg matrix a (a[i * (n + 1) + j],
// 1-based), by Francis double-shift QR with exceptional shifts at sweeps 10 and 20.
// False when an eigenvalue takes more than 30 sweeps.
bool hessenberg_eigenvalues(double* a, int n, double* wr, double* wi) {
    const int s = n + 1;
    auto A = [a, s](int i, int j) -> double& { return a[i * s + j]; };
    double anorm = 0.0;
    for (int i = 1; i <= n; ++i)
        for (int j = std::max(i - 1, 1); j <= n; ++j) anorm += std::fabs(A(i, j));
    int nn = n, l = 1;
    double t = 0.0;
    while (nn >= 1) {
        int its = 0;
        do {
            for (l = nn; l >= 2; --l) {
                double sc = std::fabs(A(l - 1, l - 1)) + std::fabs(A(l, l));
                if (sc == 0.0) sc = anorm;
                if (std::fabs(A(l, l - 1)) + sc == sc) {
                    A(l, l - 1) = 0.0;
                    break;
                }
            }
            double x = A(nn, nn);
            if (l == nn) {
                wr[nn] = x + t;
                wi[nn--] = 0.0;
            } else {
                double y = A(nn - 1, nn - 1);
                double w = A(nn, nn - 1) * A(nn - 1, nn);
                if (l == nn - 1) {
                    double p = 0.5 * (y - x);
                    double q = p * p + w;
                    double z = std::sqrt(std::fabs(q));
                    x += t;
                    if (q >= 0.0) {
                        z = p + (p >= 0.0 ? z : -z);
                        wr[nn - 1] = wr[nn] = x + z;
                        if (z != 0.0) wr[nn] = x - w / z;
                        wi[nn - 1] = wi[nn] = 0.0;
                    } else {
                        wr[nn - 1] = wr[nn] = x + p;
                        wi[nn - 1] = -(wi[nn] = z);
                    }
                    nn -= 2;
                } else {
                    if (its == 90) return false;
                    if (its % 10 == 0 && its > 0) {
                        t += x;
                        for (int i = 1; i <= nn; ++i) A(i, i) -= x;
                        double sc = std::fabs(A(nn, nn - 1)) + std::fabs(A(nn - 1, nn - 2));
                        y = x = 0.75 * sc;
                        w = -0.4375 * sc * sc;
                    }
                    ++its;
                    int m = nn - 2;
                    double p = 0.0, q = 0.0, r = 0.0, z = 0.0;
                    for (; m >= l; --m) {
                        z = A(m, m);
                        r = x - z;
                        double sm = y - z;
                        p = (r * sm - w) / A(m + 1, m) + A(m, m + 1);
                        q = A(m + 1, m + 1) - z - r - sm;
                        r = A(m + 2, m + 1);
                        sm = std::fabs(p) + std::fabs(q) + std::fabs(r);
                        p /= sm;
                        q /= sm;
                        r /= sm;
                        if (m == l) break;
                        double u = std::fabs(A(m, m - 1)) * (std::fabs(q) + std::fabs(r));
                        double v = std::fabs(p) * (std::fabs(A(m - 1, m - 1)) + std::fabs(z) +
                                                   std::fabs(A(m + 1, m + 1)));
                        if (u + v == v) break;
                    }
                    for (int i = m + 2; i <= nn; ++i) {
                        A(i, i - 2) = 0.0;
                        if (i != m + 2) A(i, i - 3) = 0.0;
                    }
                    for (int k = m; k <= nn - 1; ++k) {
                        if (k != m) {
                            p = A(k, k - 1);
                            q = A(k + 1, k - 1);
                            r = k != nn - 1 ? A(k + 2, k - 1) : 0.0;
                            if ((x = std::fabs(p) + std::fabs(q) + std::fabs(r)) != 0.0) {
                                p /= x;
                                q /= x;
                                r /= x;
                            }
                        }
                        double sq = std::sqrt(p * p + q * q + r * r);
                        double sg = p >= 0.0 ? sq : -sq;
                        if (sg == 0.0) continue;
                        if (k == m) {
                            if (l != m) A(k, k - 1) = -A(k, k - 1);
                        } else {
                            A(k, k - 1) = -sg * x;
                        }
                        p += sg;
                        x = p / sg;
                        y = q / sg;
                        z = r / sg;
                        q /= p;
                        r /= p;
                        for (int j = k; j <= nn; ++j) {
                            p = A(k, j) + q * A(k + 1, j);
                            if (k != nn - 1) {
                                p += r * A(k + 2, j);
                                A(k + 2, j) -= p * z;
                            }
                            A(k + 1, j) -= p * y;
                            A(k, j) -= p * x;
                        }
                        int mmin = nn < k + 3 ? nn : k + 3;
                        for (int i = l; i <= mmin; ++i) {
                            p = x * A(i, k) + y * A(i, k + 1);
                            if (k != nn - 1) {
                                p += z * A(i, k + 2);
                                A(i, k + 2) -= p * r;
                            }
                            A(i, k + 1) -= p * q;
                            A(i, k) -= p;
                        }
                    }
                }
            }
        } while (l < nn - 1);
    }
    return true;
}

struct piece {
    double lo, hi;
    double flo, fhi;  // values at the ends, when known
    bool known_lo, known_hi;
};

piece make_piece(double lo, double hi) {
    return {lo, hi, nan_value, nan_value, false, false};
}

enum jump_search { jump_located, jump_faded, jump_boundary, jump_failed };

// Where a candidate is tried: the piece and the scale of the law on it.
struct piece_scale {
    double lo, hi, w, scale;
};

// The work of one search: fixed-size buffers, the results and the counts.
class classified_search : public VORX_OBJECT {
  public:
    classified_search(const law* f, const law* f1, const law* f2, const law* f3, double a, double b,
                      int budget)
        : f_(f), f1_(f1), f2_(f2), f3_(f3), a_(a), b_(b), length_(b - a), budget_(budget) {}
    ~classified_search() { VORX_FREE(found_); }
    classified_search(const classified_search&) = delete;
    classified_search& operator=(const classified_search&) = delete;

    void run(const double* cuts, int ncuts);
    classified_root* take_result(int& n);
    root_search_info info;

  private:
    double value(const law* g, double x);
    // Node i of the finest grid: 0 is the right end, `finest` the left end, both exact.
    double node(const piece& p, int i) const {
        if (i == 0) return p.hi;
        if (i == finest) return p.lo;
        return 0.5 * (p.lo + p.hi) + 0.5 * (p.hi - p.lo) * cosines()[i];
    }
    void push(const piece& p);
    void search_stretch(const piece& stretch);
    void process(const piece& p);
    void split(const piece& p, int n, bool failed_samples);
    void sign_scan(const piece& p, int n);
    jump_search narrow_jump(const law* g, double& u, double& v, double& fu, double& fv);
    bool split_at_kink(const piece& p, int n);
    bool crosses_near_zero(int n, double scale) const;
    void push_children(const piece& p, double u, double fu, bool known_u, double v, double fv,
                       bool known_v);
    void bisect_sign(double& u, double& v, double& fu, double& fv);
    void narrow_boundary(double& u, double& v, double& fu, double& fv);
    void classify_bracket(double u, double v, double fu, double fv, double lo, double hi);
    void classify_gaps();
    bool classify_at(double s, double lo, double hi, double& left, double& fleft, double& right,
                     double& fright);
    bool resolve(const piece& p, const double* values, double* coef, int n, double scale,
                 bool reciprocal, double& tail);
    piece_scale local_scale(const piece& p, int n, double x) const;
    bool check_point(const piece& p, const double* c, int n, double scale, bool reciprocal);
    void proxy_roots(const double* c, int n, double tlo, double thi, int depth, double scale);
    void colleague(const double* c, int n, double tlo, double thi);
    void root_candidate(double x0, const piece_scale& ps);
    void pole_candidate(double x0, const piece_scale& ps);
    bool falls_away(double s, double step, double f_near, double lo, double hi);
    void multiple_root(double c, double d2c, const piece_scale& ps);
    double newton(const law* g, const law* dg, double x, const piece_scale& ps, bool& converged,
                  double& gx, double& dgx);
    bool near_found(double x, double tol, double w) const;
    void add(double x, root_kind kind, int multiplicity, double x_end = nan_value);

    const law* f_;
    const law* f1_;
    const law* f2_;
    const law* f3_;
    double a_, b_, length_;
    int budget_;
    bool out_of_budget_ = false;

    piece stack_[stack_max];
    int stack_count_ = 0;

    // Samples of the current piece on the finest grid (index i is the node cos(i pi/128)).
    double values_[finest + 1];
    bool have_[finest + 1];
    double recip_[finest + 1];
    double coef_[finest + 1];
    double recip_coef_[finest + 1];
    double check_value_ = 0.0;
    bool have_check_ = false;

    // Interpolant halving: one sample and one coefficient buffer per depth.
    double split_values_[split_depth + 1][finest + 1];
    double split_coef_[split_depth + 1][finest + 1];

    // Colleague matrix and its eigenvalues.
    double matrix_[(eigen_max + 1) * (eigen_max + 1)];
    double wr_[eigen_max + 1];
    double wi_[eigen_max + 1];
    double candidates_[candidate_max];
    int candidate_count_ = 0;

    // The finite sides of the domain boundaries located so far.
    struct gap_end {
        double x, f;
        bool gap_on_right;
    };
    static constexpr int boundary_max = 64;
    gap_end boundaries_[boundary_max];
    int boundary_count_ = 0;

    classified_root* found_ = nullptr;
    int found_count_ = 0;
    int found_capacity_ = 0;
    int piece_first_found_ = 0;
};

double classified_search::value(const law* g, double x) {
    if (info.evaluations >= budget_) {
        out_of_budget_ = true;
        return nan_value;
    }
    ++info.evaluations;
    double v;
    try {
        v = g->eval(x);
    } catch (const vorx_exception&) {
        return nan_value;
    }
    return std::isfinite(v) ? v : nan_value;
}

void classified_search::add(double x, root_kind kind, int multiplicity, double x_end) {
    if (found_count_ == found_capacity_) {
        int cap = found_capacity_ ? 2 * found_capacity_ : 16;
        classified_root* grown = VORX_ALLOC_ARRAY(classified_root, cap);
        for (int i = 0; i < found_count_; ++i) grown[i] = found_[i];
        VORX_FREE(found_);
        found_ = grown;
        found_capacity_ = cap;
    }
    found_[found_count_++] = {x, std::isnan(x_end) ? x : x_end, kind, multiplicity};
}

// True when x is within tol of a point found on this piece, or, for a multiple root, within
// the spread 10 eps^(1/m) w of the interpolant's eigenvalues around it.
bool classified_search::near_found(double x, double tol, double w) const {
    for (int i = piece_first_found_; i < found_count_; ++i) {
        int m = found_[i].multiplicity;
        double radius = m > 1 ? std::max(tol, 10.0 * std::pow(eps, 1.0 / m) * w) : tol;
        if (std::fabs(found_[i].x - x) <= radius) return true;
    }
    return false;
}

void classified_search::push(const piece& p) {
    if (!(p.hi > p.lo)) return;
    if (stack_count_ == stack_max) {
        ++info.unresolved;
        return;
    }
    stack_[stack_count_++] = p;
}

void classified_search::run(const double* cuts, int ncuts) {
    // Cut at the reported singular points, just short of them where the law is finite;
    // the stretches between cuts are searched one after the other, left to right, so the
    // stack holds the pieces of one stretch only.
    double left = a_, fleft = nan_value;
    bool known_left = false;
    for (int k = 0; k < ncuts && !out_of_budget_; ++k) {
        double s = cuts[k];
        if (!(s > left && s < b_)) continue;
        double l, fl, r, fr;
        if (!classify_at(s, left, b_, l, fl, r, fr)) continue;
        piece p = make_piece(left, l);
        p.flo = fleft, p.known_lo = known_left;
        p.fhi = fl, p.known_hi = true;
        search_stretch(p);
        left = r, fleft = fr, known_left = true;
    }
    piece last = make_piece(left, b_);
    last.flo = fleft, last.known_lo = known_left;
    search_stretch(last);
    if (!out_of_budget_) classify_gaps();
}

void classified_search::search_stretch(const piece& stretch) {
    push(stretch);
    while (stack_count_ > 0) {
        // The widest piece first, so that a bound on evaluations is spent on the bulk of
        // the stretch before the slivers around a singular point.
        int widest = 0;
        for (int i = 1; i < stack_count_; ++i)
            if (stack_[i].hi - stack_[i].lo > stack_[widest].hi - stack_[widest].lo) widest = i;
        piece p = stack_[widest];
        stack_[widest] = stack_[--stack_count_];
        if (out_of_budget_) {
            ++info.unresolved;
            continue;
        }
        process(p);
    }
}

void classified_search::process(const piece& p) {
    for (int i = 0; i <= finest; ++i) have_[i] = false;
    // Node 0 is the right end, node `finest` the left end.
    if (p.known_hi) values_[0] = p.fhi, have_[0] = true;
    if (p.known_lo) values_[finest] = p.flo, have_[finest] = true;
    have_check_ = false;
    piece_first_found_ = found_count_;
    double prev_tail = -1.0, prev_recip_tail = -1.0;
    int n = first_level;
    bool failed = false;
    for (;; n *= 2) {
        int stride = finest / n;
        bool zero_seen = false, all_failed = true;
        double scale = 0.0;
        for (int j = 0; j <= n; ++j) {
            int i = j * stride;
            if (!have_[i]) {
                values_[i] = value(f_, node(p, i));
                have_[i] = true;
            }
            if (std::isnan(values_[i])) {
                failed = true;
                continue;
            }
            all_failed = false;
            if (values_[i] == 0.0) zero_seen = true;
            scale = std::max(scale, std::fabs(values_[i]));
        }
        if (out_of_budget_) {
            ++info.unresolved;
            return;
        }
        if (all_failed) return;  // a gap of the domain
        if (failed) break;
        if (scale == 0.0) {
            // Zero at every node: zero on the piece, unless the off-grid point says not.
            if (check_point(p, coef_, 0, 0.0, false)) {
                add(p.lo, root_everywhere, 0, p.hi);
                ++info.pieces;
                return;
            }
        } else {
            double tail, recip_tail = HUGE_VAL;
            if (resolve(p, values_, coef_, n, scale, false, tail)) return;
            double predicted = predicted_tail(tail, prev_tail, n, scale);
            double recip_predicted = HUGE_VAL;
            prev_tail = tail;
            if (!zero_seen && !crosses_near_zero(n, scale)) {
                // 1/f from the same samples: resolved when f has only poles on the piece.
                double rscale = 0.0;
                for (int j = 0; j <= n; ++j) {
                    int i = j * stride;
                    recip_[i] = 1.0 / values_[i];
                    rscale = std::max(rscale, std::fabs(recip_[i]));
                }
                if (resolve(p, recip_, recip_coef_, n, rscale, true, recip_tail)) return;
                recip_predicted = predicted_tail(recip_tail, prev_recip_tail, n, rscale);
                prev_recip_tail = recip_tail;
            }
            // Split early when neither f nor 1/f can reach the tolerance by degree 128.
            if (n >= 32 && predicted > 100.0 * resolve_tol && recip_predicted > 100.0 * resolve_tol)
                break;
        }
        if (n == finest) break;
    }
    split(p, n, failed);
}

// Interpolates `values` (of f, or of 1/f when `reciprocal`) at level n; when resolved, the
// roots of the interpolant are tried as roots (or as poles) of f and the piece is done.
bool classified_search::resolve(const piece& p, const double* values, double* coef, int n,
                                double scale, bool reciprocal, double& tail) {
    // The trailing coefficients first: most levels stop there.
    int tail_from = n - std::max(1, n / 8);
    chebyshev_coefficients(values, n, coef, tail_from);
    tail = tail_of(coef, n);
    if (tail > resolve_tol * scale) return false;
    chebyshev_coefficients(values, n, coef);
    if (!check_point(p, coef, n, scale, reciprocal)) return false;
    if (!reciprocal && p.hi - p.lo >= small_piece * length_) {
        // One half far below the other (EXP(10*X)*(X+2.5) on [-3, 3]): the interpolant's
        // error, relative to the larger half, would drown the roots of the smaller one.
        // Halve, so each half is resolved to its own scale.
        double right = max_abs(values, 0, finest / 2, finest / n);
        double left = max_abs(values, finest / 2, finest, finest / n);
        if (std::min(left, right) < negligible_half * scale) {
            double m = node(p, finest / 2);
            push_children(p, m, values[finest / 2], true, m, values[finest / 2], true);
            return true;
        }
    }
    ++info.pieces;
    candidate_count_ = 0;
    proxy_roots(coef, trimmed_degree(coef, n, scale), -1.0, 1.0, 0, scale);
    piece_scale whole{p.lo, p.hi, p.hi - p.lo, max_abs(values_, 0, finest, finest / n)};
    for (int k = 0; k < candidate_count_; ++k) {
        double x = 0.5 * (p.lo + p.hi) + 0.5 * (p.hi - p.lo) * candidates_[k];
        if (reciprocal)
            pole_candidate(x, whole);
        else
            root_candidate(x, local_scale(p, n, x));
    }
    return true;
}

// The scale a candidate's tests are measured against: the largest sample within an
// eighth of the piece on either side of x (a window wider than the widest gap between
// nodes), or of the whole piece when those are all zero; and a quarter of the piece as
// the width.  A law whose size varies by orders of magnitude over the piece is then
// judged by its size near x.
piece_scale classified_search::local_scale(const piece& p, int n, double x) const {
    int stride = finest / n;
    double w = p.hi - p.lo, scale = 0.0;
    for (int j = 0; j <= n; ++j)
        if (std::fabs(node(p, j * stride) - x) <= w / 8.0)
            scale = std::max(scale, std::fabs(values_[j * stride]));
    if (scale == 0.0) scale = max_abs(values_, 0, finest, stride);
    return {p.lo, p.hi, w / 4.0, scale};
}

bool classified_search::check_point(const piece& p, const double* c, int n, double scale,
                                    bool reciprocal) {
    if (!have_check_) {
        check_value_ = value(f_, 0.5 * (p.lo + p.hi) + 0.5 * (p.hi - p.lo) * check_t);
        have_check_ = true;
    }
    if (std::isnan(check_value_)) return false;
    double target =
        reciprocal ? (check_value_ == 0.0 ? HUGE_VAL : 1.0 / check_value_) : check_value_;
    double proxy = n > 0 ? clenshaw(c, n, check_t) : 0.0;
    return std::fabs(proxy - target) <= check_tol * scale;
}

// Children [p.lo, u] and [v, p.hi], each pushed when not empty, with the end values known.
void classified_search::push_children(const piece& p, double u, double fu, bool known_u, double v,
                                      double fv, bool known_v) {
    piece right = make_piece(v, p.hi), left = make_piece(p.lo, u);
    right.flo = fv, right.known_lo = known_v;
    right.fhi = values_[0], right.known_hi = true;
    left.fhi = fu, left.known_hi = known_u;
    left.flo = values_[finest], left.known_lo = true;
    push(right);
    push(left);
}

// True when neighbouring samples change sign with both below a tenth of the scale: a root
// is there, so 1/f has a pole and is not worth interpolating.
bool classified_search::crosses_near_zero(int n, double scale) const {
    int stride = finest / n;
    for (int j = 0; j < n; ++j) {
        double v0 = values_[j * stride], v1 = values_[(j + 1) * stride];
        if ((v0 < 0.0) != (v1 < 0.0) && std::max(std::fabs(v0), std::fabs(v1)) < 0.1 * scale)
            return true;
    }
    return false;
}

void classified_search::split(const piece& p, int n, bool failed_samples) {
    int stride = finest / n;
    double w = p.hi - p.lo;
    if (w < small_piece * length_) {
        sign_scan(p, n);
        ++info.unresolved;
        return;
    }
    // Nodes go from the right end (index 0) to the left end (index finest).
    int at = -1;
    double largest = 0.0, lowest = HUGE_VAL, highest = -HUGE_VAL;
    for (int j = 0; j <= n; ++j) {
        double v = values_[j * stride];
        if (std::isnan(v)) continue;
        lowest = std::min(lowest, v);
        highest = std::max(highest, v);
    }
    for (int j = 0; j < n; ++j) {
        double v0 = values_[j * stride], v1 = values_[(j + 1) * stride];
        if (failed_samples) {
            if (std::isnan(v0) != std::isnan(v1)) {
                at = j;
                break;
            }
        } else if (std::fabs(v0 - v1) > largest) {
            largest = std::fabs(v0 - v1);
            at = j;
        }
    }
    double cut = node(p, finest / 2);  // the middle, already sampled
    // The largest step between the end node and its neighbour (a pair 1/400 of the
    // piece wide at n = 32) points at a singular end.
    bool end_pair = !failed_samples && (at == 0 || at == n - 1);
    if (at >= 0 && (failed_samples || end_pair || largest >= 0.5 * (highest - lowest))) {
        int i1 = at * stride, i0 = (at + 1) * stride;  // left node i0, right node i1
        double u = node(p, i0), v = node(p, i1), fu = values_[i0], fv = values_[i1];
        if (failed_samples) {
            // Cut out the boundary of the domain.
            narrow_boundary(u, v, fu, fv);
            push_children(p, u, fu, true, v, fv, true);
            return;
        }
        // The largest step at an end, or narrowed down onto an end: a singular end
        // (SQRT, LN): grade the pieces towards it, a fraction at a time.
        bool at_end = end_pair;
        jump_search found = at_end ? jump_faded : narrow_jump(f_, u, v, fu, fv);
        if (found == jump_boundary) {
            push_children(p, u, fu, true, v, fv, true);
            return;
        }
        double s = 0.5 * (u + v);
        at_end = at_end || s - p.lo < w / 64.0 || p.hi - s < w / 64.0;
        if (found != jump_failed && at_end) {
            cut = s - p.lo < p.hi - s ? p.lo + w / grading : p.hi - w / grading;
            push_children(p, cut, nan_value, false, cut, nan_value, false);
            return;
        }
        if (found == jump_located) {
            classify_bracket(u, v, fu, fv, p.lo, p.hi);
            push_children(p, u, fu, true, v, fv, true);
            return;
        }
        if (found == jump_faded) {
            push_children(p, s, nan_value, false, s, nan_value, false);
            return;
        }
    }
    if (!failed_samples && split_at_kink(p, n)) return;
    push_children(p, cut, values_[finest / 2], true, cut, values_[finest / 2], true);
}

// A kink (MAX, MIN): the slope between neighbouring nodes changes at one place by at least
// half its whole range.  The jump of f' there is located on f' and the piece cut at it.
// When the slope changes most at an end, the piece is graded towards that end instead.
bool classified_search::split_at_kink(const piece& p, int n) {
    if (n < 4) return false;
    int stride = finest / n, at = -1;
    double lowest = HUGE_VAL, highest = -HUGE_VAL, largest = 0.0, previous = 0.0;
    for (int j = 0; j < n; ++j) {
        int i0 = j * stride, i1 = (j + 1) * stride;
        double slope = (values_[i0] - values_[i1]) / (node(p, i0) - node(p, i1));
        lowest = std::min(lowest, slope);
        highest = std::max(highest, slope);
        if (j > 0 && std::fabs(slope - previous) > largest) {
            largest = std::fabs(slope - previous);
            at = j;
        }
        previous = slope;
    }
    if (at == 1 || at == n - 1) {
        // The slope changes most at an end, where the nodes are closest: f' is singular
        // there (X*LN(X) at 0): grade towards it.
        double cut = at == 1 ? p.hi - (p.hi - p.lo) / grading : p.lo + (p.hi - p.lo) / grading;
        push_children(p, cut, nan_value, false, cut, nan_value, false);
        return true;
    }
    if (!f1_ || at < 0 || !(largest >= 0.5 * (highest - lowest))) return false;
    // The kink lies between the nodes on either side of node `at`.
    double u = node(p, (at + 1) * stride), v = node(p, (at - 1) * stride);
    double du = value(f1_, u), dv = value(f1_, v);
    if (std::isnan(du) || std::isnan(dv)) return false;
    jump_search found = narrow_jump(f1_, u, v, du, dv);
    if (found == jump_failed) return false;
    double s = 0.5 * (u + v);
    if (found == jump_faded) u = v = s;
    if (!(u > p.lo && v < p.hi)) return false;
    push_children(p, u, nan_value, false, v, nan_value, false);
    return true;
}

void classified_search::sign_scan(const piece& p, int n) {
    int stride = finest / n;
    for (int j = n; j >= 0; --j)
        if (values_[j * stride] == 0.0) add(node(p, j * stride), root_simple, 1);
    for (int j = n; j > 0; --j) {
        int i0 = j * stride, i1 = (j - 1) * stride;
        double fu = values_[i0], fv = values_[i1];
        if (std::isnan(fu) || std::isnan(fv) || (fu < 0.0) == (fv < 0.0)) continue;
        double u = node(p, i0), v = node(p, i1);
        bisect_sign(u, v, fu, fv);
        classify_bracket(u, v, fu, fv, p.lo, p.hi);
    }
}

// Halves [u, v] towards the larger difference of values: located when it reaches
// adjacent doubles (a jump or a pole is there), faded when the difference shrinks a
// thousandfold (steep but smooth), failed when the law fails or the bound is reached.
jump_search classified_search::narrow_jump(const law* g, double& u, double& v, double& fu,
                                           double& fv) {
    double first = std::fabs(fv - fu);
    for (int it = 0; it < bisect_steps; ++it) {
        double m = 0.5 * (u + v);
        if (!(m > u && m < v)) return jump_located;
        double fm = value(g, m);
        if (std::isnan(fm)) {
            if (out_of_budget_ || g != f_) return jump_failed;
            // The law fails inside: cut out the boundary of that gap.
            v = m, fv = fm;
            narrow_boundary(u, v, fu, fv);
            return jump_boundary;
        }
        if (std::fabs(fm - fu) >= std::fabs(fv - fm))
            v = m, fv = fm;
        else
            u = m, fu = fm;
        if (std::fabs(fv - fu) < 1e-3 * first) return jump_faded;
    }
    return jump_failed;
}

// Plain bisection keeping a sign change.
void classified_search::bisect_sign(double& u, double& v, double& fu, double& fv) {
    for (int it = 0; it < bisect_steps; ++it) {
        double m = 0.5 * (u + v);
        if (!(m > u && m < v)) return;
        double fm = value(f_, m);
        if (std::isnan(fm)) return;
        if ((fm < 0.0) == (fu < 0.0))
            u = m, fu = fm;
        else
            v = m, fv = fm;
    }
}

// Bisection between a sample where the law fails and one where it does not; the finite
// side is recorded, so that a sign change across a narrow gap can be classified.
void classified_search::narrow_boundary(double& u, double& v, double& fu, double& fv) {
    for (int it = 0; it < bisect_steps; ++it) {
        double m = 0.5 * (u + v);
        if (!(m > u && m < v) || out_of_budget_) break;
        double fm = value(f_, m);
        if (std::isnan(fm) == std::isnan(fu))
            u = m, fu = fm;
        else
            v = m, fv = fm;
    }
    if (boundary_count_ < boundary_max && std::isnan(fu) != std::isnan(fv))
        boundaries_[boundary_count_++] =
            std::isnan(fv) ? gap_end{u, fu, true} : gap_end{v, fv, false};
}

// A sign change across a gap of the domain narrower than small_piece of [a, b] (TAN or
// 1/X failing near its pole) is classified like one across a bracket.
void classified_search::classify_gaps() {
    std::sort(boundaries_, boundaries_ + boundary_count_,
              [](const gap_end& p, const gap_end& q) { return p.x < q.x; });
    for (int i = 0; i + 1 < boundary_count_; ++i) {
        const gap_end &l = boundaries_[i], &r = boundaries_[i + 1];
        if (l.gap_on_right && !r.gap_on_right && r.x - l.x < small_piece * length_)
            classify_bracket(l.x, r.x, l.f, r.f, a_, b_);
    }
}

// A sign change across the narrow bracket [u, v]: |f| growing on both sides towards it
// (against points 64 widths away) is a pole, shrinking a root, neither a jump.
void classified_search::classify_bracket(double u, double v, double fu, double fv, double lo,
                                         double hi) {
    if (std::isnan(fu) || std::isnan(fv) || (fu < 0.0) == (fv < 0.0)) return;
    double w = v - u, s = 0.5 * (u + v);
    double fl = value(f_, std::max(lo, u - 64.0 * w));
    double fr = value(f_, std::min(hi, v + 64.0 * w));
    if (std::isnan(fl) || std::isnan(fr)) return;
    if (std::fabs(fu) > 8.0 * std::fabs(fl) && std::fabs(fv) > 8.0 * std::fabs(fr))
        add(s, root_pole, 0);
    else if (8.0 * std::fabs(fu) < std::fabs(fl) && 8.0 * std::fabs(fv) < std::fabs(fr))
        add(std::fabs(fu) <= std::fabs(fv) ? u : v, root_simple, 1);
    else
        add(s, root_jump, 0);
}

// True when |f| 16 steps farther from s is under a quarter of |f| at s + step: f falls
// away from s as it does beside a pole (by 16 for a simple one), not beside a jump.
bool classified_search::falls_away(double s, double step, double f_near, double lo, double hi) {
    double x = std::min(hi, std::max(lo, s + 16.0 * step));
    if (x == s + step || x == s) return false;
    double far = value(f_, x);
    return !std::isnan(far) && 4.0 * std::fabs(far) < std::fabs(f_near);
}

// Finds the narrowest finite bracket [left, right] around s (half-widths from about
// 1e-12 of the scale, growing by 16), and classifies s: a root when f(s) is smaller than
// an eighth of both bracket values (simple when they differ in sign, else a touching
// point, reported as even), otherwise by classify_bracket.  False when the law fails on
// both sides up to 1e-4 of the scale.
bool classified_search::classify_at(double s, double lo, double hi, double& left, double& fleft,
                                    double& right, double& fright) {
    double d = 1e-12 * std::max(std::fabs(s), length_);
    for (int k = 0; k < 8 && !out_of_budget_; ++k, d *= 16.0) {
        left = std::max(lo, s - d);
        right = std::min(hi, s + d);
        fleft = value(f_, left);
        fright = value(f_, right);
        if (std::isnan(fleft) || std::isnan(fright)) continue;
        double fs = value(f_, s);
        if (!std::isnan(fs) &&
            8.0 * std::fabs(fs) <= std::min(std::fabs(fleft), std::fabs(fright))) {
            // A side where |f| falls away from s is a pole's flank, whatever the other side
            // does: TAN keeps a small value at its poles and tends to 0 just past them.
            if (falls_away(s, -d, fleft, lo, hi) || falls_away(s, d, fright, lo, hi))
                add(s, root_pole, 0);
            else
                add(s, (fleft < 0.0) != (fright < 0.0) ? root_simple : root_even_multiple,
                    (fleft < 0.0) != (fright < 0.0) ? 1 : 2);
        } else if ((fleft < 0.0) == (fright < 0.0) &&
                   (falls_away(s, -d, fleft, lo, hi) || falls_away(s, d, fright, lo, hi))) {
            add(s, root_pole, 0);  // no sign change, but |f| blows up towards s
        } else {
            classify_bracket(left, right, fleft, fright, lo, hi);
        }
        return true;
    }
    return false;
}

// Near-real roots, on [-1, 1] of the piece, of the interpolant whose restriction to
// [tlo, thi] has coefficients c (degree n): halved while the degree exceeds eigen_max.
void classified_search::proxy_roots(const double* c, int n, double tlo, double thi, int depth,
                                    double scale) {
    if (n <= 0) return;
    // No root when the constant term outweighs all the others.
    double rest = 0.0;
    for (int k = 1; k <= n; ++k) rest += std::fabs(c[k]);
    if (std::fabs(c[0]) > rest + resolve_tol * scale) return;
    if (n <= eigen_max || depth == split_depth) {
        colleague(c, std::min(n, eigen_max), tlo, thi);
        return;
    }
    const double* cs = cosines();
    int level = first_level;
    while (level < n) level *= 2;
    int stride = finest / level;
    double mid = 0.5 * (tlo + thi);
    double* vals = split_values_[depth];
    double* coef = split_coef_[depth];
    // Each half, [-1, 0] or [0, 1] of this series' own variable, re-interpolated from it.
    for (double centre : {-0.5, 0.5}) {
        for (int j = 0; j <= level; ++j)
            vals[j * stride] = clenshaw(c, n, centre + 0.5 * cs[j * stride]);
        chebyshev_coefficients(vals, level, coef);
        double lo = centre < 0.0 ? tlo : mid, hi = centre < 0.0 ? mid : thi;
        proxy_roots(coef, trimmed_degree(coef, level, scale), lo, hi, depth + 1, scale);
    }
}

// Eigenvalues of the colleague matrix of sum c_k T_k (degree n >= 1), mapped from [-1, 1]
// to [tlo, thi] and kept as candidates when near the real segment.
void classified_search::colleague(const double* c, int n, double tlo, double thi) {
    double half = 0.5 * (thi - tlo), mid = 0.5 * (thi + tlo);
    auto keep = [&](double re, double im) {
        if (std::fabs(re) > 1.0 + 1e-6 || std::fabs(im * half) > imag_tol) return;
        if (candidate_count_ < candidate_max) candidates_[candidate_count_++] = mid + half * re;
    };
    if (n == 1) {
        keep(-c[0] / c[1], 0.0);
        return;
    }
    // Transposed colleague matrix, upper Hessenberg: x T_0 = T_1,
    // x T_k = (T_(k-1) + T_(k+1)) / 2, and T_n replaced by -(sum_(k<n) c_k T_k) / c_n.
    const int s = n + 1;
    double* a = matrix_;
    for (int i = 0; i < s * s; ++i) a[i] = 0.0;
    a[2 * s + 1] = 1.0;
    for (int k = 2; k <= n - 1; ++k) {
        a[(k - 1) * s + k] = 0.5;
        a[(k + 1) * s + k] = 0.5;
    }
    a[(n - 1) * s + n] += 0.5;
    for (int k = 0; k < n; ++k) a[(k + 1) * s + n] -= c[k] / (2.0 * c[n]);
    balance(a, n);
    if (!hessenberg_eigenvalues(a, n, wr_, wi_)) {
        ++info.unresolved;
        return;
    }
    for (int i = 1; i <= n; ++i)
        if (wi_[i] >= 0.0) keep(wr_[i], wi_[i]);
}

// Newton steps on g with derivative dg from x, within a piece's width of the piece.
// Returns the last point where both were evaluated, with their values.
double classified_search::newton(const law* g, const law* dg, double x, const piece_scale& ps,
                                 bool& converged, double& gx, double& dgx) {
    converged = false;
    gx = dgx = nan_value;
    for (int it = 0; it < newton_steps; ++it) {
        double gv = value(g, x), dv = value(dg, x);
        if (std::isnan(gv) || std::isnan(dv)) break;
        gx = gv;
        dgx = dv;
        if (gv == 0.0) {
            converged = true;
            break;
        }
        if (dv == 0.0) break;
        double step = gv / dv, next = x - step;
        if (!(next > ps.lo - ps.w && next < ps.hi + ps.w)) break;
        if (std::fabs(step) <= 4.0 * eps * std::max(std::fabs(x), ps.w)) {
            converged = true;
            break;
        }
        x = next;
    }
    return x;
}

void classified_search::root_candidate(double x0, const piece_scale& ps) {
    double merge = 1e-9 * ps.w;
    if (near_found(x0, merge, ps.w)) return;
    double S = ps.scale, w = ps.w;
    if (!f1_) {
        // No derivative: a sign change across the candidate, or a touching value.
        double h = 1e-9 * w, fl = value(f_, x0 - h), fr = value(f_, x0 + h), fx = value(f_, x0);
        if (std::isnan(fx)) return;
        if (!std::isnan(fl) && !std::isnan(fr) && (fl < 0.0) != (fr < 0.0))
            add(x0, root_simple, 1);
        else if (std::fabs(fx) <= touch_tol * S)
            add(x0, root_even_multiple, 2);
        return;
    }
    bool converged;
    double fx, dx;
    double x = newton(f_, f1_, x0, ps, converged, fx, dx);
    if (std::isnan(fx)) return;
    bool small = std::fabs(fx) <= touch_tol * S;
    // Simple when the slope is clearly not zero, or not zero and Newton converged (it
    // only creeps towards a multiple root, by a factor 1 - 1/m per step).
    double slope = std::fabs(dx) * w;
    if (slope > steep_tol * S || (converged && slope > slope_tol * S)) {
        if ((converged || small) && !near_found(x, merge, ps.w)) add(x, root_simple, 1);
        return;
    }
    if (!f2_) {
        if (small && !near_found(x, merge, ps.w)) add(x, root_even_multiple, 2);
        return;
    }
    // Flat here: the critical point nearby decides.
    bool cconv;
    double d1c, d2c;
    double c = newton(f1_, f2_, x, ps, cconv, d1c, d2c);
    double fc = value(f_, c);
    if (std::isnan(fc) || std::isnan(d2c) || std::fabs(c - x) > 1e-3 * w) {
        if ((converged || small) && !near_found(x, merge, ps.w)) add(x, root_simple, 1);
        return;
    }
    if (std::fabs(fc) <= touch_tol * S) {
        if (!near_found(c, merge, ps.w)) multiple_root(c, d2c, ps);
        return;
    }
    // f dips through zero at the critical point: two close simple roots, where the
    // quadratic model f(c) + f''(c) t^2 / 2 puts them.
    if (d2c != 0.0 && (fc < 0.0) != (d2c < 0.0)) {
        double h = std::sqrt(-2.0 * fc / d2c);
        for (double start : {c - h, c + h}) {
            bool rconv;
            double fr, dr;
            double r = newton(f_, f1_, start, ps, rconv, fr, dr);
            if (!std::isnan(fr) && (rconv || std::fabs(fr) <= touch_tol * S) &&
                !near_found(r, 1e-3 * h, ps.w))
                add(r, root_simple, 1);
        }
    }
}

// A root at the critical point c.  Its parity comes from the signs of f on both sides,
// at a distance h below a third of the way to the next cluster of candidates (so another
// root does not interfere) and at most 1/100 of the piece; its multiplicity from the
// first derivative that does not vanish there, made to agree with the parity.  An odd one
// is placed at the root of f'' nearby, where f'' vanishes singly for multiplicity 3.
void classified_search::multiple_root(double c, double d2c, const piece_scale& ps) {
    double S = ps.scale, w = ps.w;
    double h = 1e-2 * w;
    for (int k = 0; k < candidate_count_; ++k) {
        double d = std::fabs(0.5 * (ps.lo + ps.hi) + 0.5 * (ps.hi - ps.lo) * candidates_[k] - c);
        if (d > 1e-4 * w) h = std::min(h, d / 3.0);
    }
    double fl = value(f_, c - h), fr = value(f_, c + h);
    int parity = std::isnan(fl) || std::isnan(fr) ? -1 : (fl < 0.0) != (fr < 0.0);
    bool second = std::fabs(d2c) * w * w / 2.0 > slope_tol * S;
    if (parity == 0 || (parity < 0 && second)) {
        add(c, root_even_multiple, second ? 2 : 4);
        return;
    }
    double r = c, d3 = nan_value;
    if (f3_) {
        bool conv;
        double d2;
        double c3 = newton(f2_, f3_, c, ps, conv, d2, d3);
        double f3v = value(f_, c3);
        if (!std::isnan(f3v) && std::fabs(f3v) <= touch_tol * S && std::fabs(c3 - c) <= 1e-3 * w)
            r = c3;
        else
            d3 = value(f3_, c);
    }
    bool third = !std::isnan(d3) && std::fabs(d3) * w * w * w / 6.0 > slope_tol * S;
    add(r, root_odd_multiple, third ? 3 : 4);
}

// A root of the interpolant of 1/f: Newton on 1/f (x + f/f') moves it onto the pole.
void classified_search::pole_candidate(double x0, const piece_scale& ps) {
    double x = x0;
    if (f1_) {
        for (int it = 0; it < newton_steps; ++it) {
            double fv = value(f_, x), dv = value(f1_, x);
            if (std::isnan(fv) || std::isnan(dv) || dv == 0.0) break;
            double step = fv / dv, next = x + step;
            if (!(next > ps.lo - ps.w && next < ps.hi + ps.w)) break;
            x = next;
            if (std::fabs(step) <= 4.0 * eps * std::max(std::fabs(x), ps.w)) break;
        }
    }
    if (near_found(x, 1e-9 * ps.w, ps.w)) return;
    double left, fleft, right, fright;
    classify_at(x, std::min(ps.lo, x), std::max(ps.hi, x), left, fleft, right, fright);
}

classified_root* classified_search::take_result(int& n) {
    classified_root* r = found_;
    int count = found_count_;
    // Inside [a, b] only (ends clamped), sorted, near duplicates merged.
    double tol = 1e-10 * length_;
    int kept = 0;
    for (int i = 0; i < count; ++i) {
        classified_root e = r[i];
        if (e.x < a_ - tol || e.x > b_ + tol) continue;
        e.x = std::min(std::max(e.x, a_), b_);
        e.x_end = std::min(std::max(e.x_end, e.x), b_);
        r[kept++] = e;
    }
    std::sort(r, r + kept,
              [](const classified_root& p, const classified_root& q) { return p.x < q.x; });
    auto rank = [](const classified_root& e) {
        if (e.kind == root_everywhere) return 100;
        if (e.kind == root_pole || e.kind == root_jump) return e.kind == root_pole ? 1 : 0;
        return 10 + e.multiplicity;
    };
    int out = 0;
    for (int i = 0; i < kept; ++i) {
        if (out > 0 && r[i].x <= r[out - 1].x_end + tol) {
            classified_root& last = r[out - 1];
            if (rank(r[i]) > rank(last)) {
                double start = std::min(last.x, r[i].x), end = std::max(last.x_end, r[i].x_end);
                last = r[i];
                last.x = start;
                if (last.kind == root_everywhere) last.x_end = end;
            } else if (last.kind == root_everywhere) {
                last.x_end = std::max(last.x_end, r[i].x_end);
            }
            continue;
        }
        r[out++] = r[i];
    }
    n = out;
    if (out == 0) return nullptr;
    classified_root* result = VORX_ALLOC_ARRAY(classified_root, out);
    for (int i = 0; i < out; ++i) result[i] = r[i];
    return result;
}

// The derivative of g, or null when g has none (LAW_DERIV).
law* derivative_or_null(const law* g) {
    if (!g) return nullptr;
    try {
        return g->derivative(0);
    } catch (const vorx_exception&) {
        return nullptr;
    }
}

// Deletes the search when it goes, also when an error passes.
struct search_holder {
    classified_search* s;
    ~search_holder() { delete s; }
};

}  // namespace

classified_root* Nroot_classified(law* f, double a, double b, int* n, root_search_info* info,
                                  int max_evaluations) {
    if (n) *n = 0;
    if (info) *info = root_search_info();
    if (!std::isfinite(a) || !std::isfinite(b)) sys_error(LAW_BAD_BOUNDS);
    if (!f) sys_error(LAW_EVAL);
    if (f->take_dim() > 1 || f->return_dim() != 1) sys_error(LAW_DIM);
    if (a > b) std::swap(a, b);
    // Only the part of [a, b] in the law's stated domain is searched.
    interval dom;
    if (f->term_domain(0, dom) && !dom.unknown()) {
        if (dom.empty()) return nullptr;
        if (dom.bounded_below()) a = std::max(a, dom.start_pt());
        if (dom.bounded_above()) b = std::min(b, dom.end_pt());
        if (a > b) return nullptr;
    }
    // Made before the search, so the search's evaluations allocate nothing.
    law_holder f1(derivative_or_null(f));
    law_holder f2(derivative_or_null(f1.get()));
    law_holder f3(derivative_or_null(f2.get()));

    // The singular points the law reports, as cut points.
    double* where = nullptr;
    int* kinds = nullptr;
    int cuts = 0;
    try {
        cuts = f->singularities(&where, &kinds, a, b);
    } catch (const vorx_exception&) {
        cuts = 0;
    }
    VORX_FREE(kinds);
    if (!where) cuts = 0;
    std::sort(where, where + cuts);

    search_holder hold{VORX_NEW classified_search(f, f1.get(), f2.get(), f3.get(), a, b,
                                                  std::max(1, max_evaluations))};
    classified_search& search = *hold.s;
    int count = 0;
    classified_root* result = nullptr;
    try {
        if (a == b) {
            // One point: a root when the law vanishes there.
            double v = 1.0;
            try {
                ++search.info.evaluations;
                v = f->eval(a);
            } catch (const vorx_exception&) {
            }
            if (v == 0.0) {
                result = VORX_ALLOC_ARRAY(classified_root, 1);
                result[0] = {a, a, root_everywhere, 0};
                count = 1;
            }
        } else {
            search.run(where, cuts);
            result = search.take_result(count);
        }
    } catch (...) {
        VORX_FREE(where);
        throw;
    }
    VORX_FREE(where);
    if (info) *info = search.info;
    if (n) *n = count;
    return result;
}
