// Approximation of a law by a polynomial B-spline curve.
//
// Pieces.  The range is cut at the breaks (the law's singularities, the caller's
// breakpoints) into pieces, each approximated on its own by a clamped spline whose
// interior knots are simple; the pieces are then joined with knots of multiplicity p
// (continuous break) or p + 1 (jump).  At a jump the law is evaluated a hair inside the
// piece (1e-12 of the piece's length, plus a few ulps), so each side approximates its own
// one-sided limit.
//
// Fit.  With the knots of a piece fixed, the control points are a least-squares fit to
// p + 2 samples of the law in every span, the two end control points fixed to the law's
// values at the piece's ends (so joined pieces meet exactly).  p + 2 samples per span make
// the normal matrix symmetric positive definite and banded (half-width p): it is solved by
// banded Cholesky in O(n p^2).  A law that is itself a polynomial of degree <= p lies in
// every spline space and comes back exactly (to rounding) with one span.  The same routine
// refits a window of control points with the others held, which keeps the knot-removal
// trial local.
//
// Error model.  The error of a span is the maximum over the span of the distance d(t)
// between law and spline: d^2 is sampled at 2p + 5 evenly spaced points, ends included,
// and every sampled local maximum at least half the largest (in distance) is polished by
// Brent's maximisation on its two neighbouring sample steps.  Near a maximum d^2 is
// quadratic, so locating it to 1e-4 of a step gives the value to about 1e-8 relative.
// A span is accepted when its error is at most 0.999 of the tolerance: the margin covers
// the polishing's residue, so the bound holds at any parameter, not only at the samples.
// (The root library's Nmax would need the spline as a law with symbolic derivatives and a
// root search per span; the sampled maximiser costs about 30 evaluations per span.)
//
// Refinement.  Start each piece with one span; fit; measure every span; split every span
// whose error e exceeds the target into k = ceil((2e/target)^(1/(p+1))) equal spans (2 to
// 16), the count the h^(p+1) error law predicts for half the target; refit and repeat.
// A smooth law converges in a few passes; a corner that nobody reported is approached
// by repeated sixteenfold splits.  Splitting overshoots (whole pieces, the margin), so
// once every span passes, the knots are placed afresh by equidistribution: each span's
// constant c = e/h^(p+1) gives a density (c/(0.8·target))^(1/(p+1)) spans per unit
// parameter, its integral the count, and the knots split the integral evenly; that layout
// is fitted, refined where it falls short, and kept when it has fewer spans.
// Invariants: every span of a piece carries the measured error of the current fit on it;
// the end control points are the law's values at the piece's ends.
// Cap: when the spans would exceed max_spans, a span would become shorter than 64 ulps of
// the range, or 100 passes pass, the tolerance cannot be met: BS_ACCURACY.
//
// Knot removal.  One left-to-right sweep over the interior knots of each piece: remove the
// knot, refit the p + 1 control points it touched plus one on each side with the rest
// held, measure the spans those control points reach (the merged span first, for an early
// no), and keep the removal when all are within the target.  Spans outside the window are
// unchanged, so their errors stay valid: the invariants hold after every step.
#include "lawutil/sw_curve_approx.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

#include "base/errors.hpp"
#include "base/interval.hpp"
#include "base/memory.hpp"
#include "lawutil/law_base.hpp"
#include "lawutil/law_vector.hpp"
#include "lawutil/main_law_err.hpp"
#include "lawutil/root.hpp"
#include "lawutil/sw_common.hpp"
#include "lawutil/sw_curve.hpp"

namespace {

using dvec = std::vector<double, vorx_std_allocator<double>>;
// A span is accepted at this fraction of the tolerance (see the error model).
constexpr double accept_fraction = 0.999;

// The law as a point in space: three outputs as they are, two as (x, y, 0), one as the
// graph (t, f(t), 0).
class law_points {
  public:
    explicit law_points(const law* L) : L_(L), out_(L->return_dim()) {}
    void at(double t, double* xyz) {
        double y[3] = {0.0, 0.0, 0.0};
        ++evaluations;
        L_->evaluate(&t, y);
        if (out_ == 1) {
            xyz[0] = t, xyz[1] = y[0], xyz[2] = 0.0;
        } else {
            xyz[0] = y[0], xyz[1] = y[1], xyz[2] = y[2];
        }
        if (!std::isfinite(xyz[0]) || !std::isfinite(xyz[1]) || !std::isfinite(xyz[2]))
            sys_error(LAW_BAD_RANGE);
    }
    int outputs() const { return out_; }
    long evaluations = 0;

  private:
    const law* L_;
    int out_;
};

void check_law(const law* L) {
    if (!L || L->take_dim() != 1 || L->return_dim() < 1 || L->return_dim() > 3) sys_error(LAW_DIM);
}

// The largest distance between the law and a curve over [lo, hi]; both are evaluated at
// t clamped into [flo, fhi] (the ends nudged inward at a jump).  `curve(t, xyz)` writes the
// curve's point.
template <class Curve>
double span_deviation(law_points& f, Curve curve, double lo, double hi, double flo, double fhi,
                      int p) {
    auto d2 = [&](double t) {
        t = std::min(std::max(t, flo), fhi);
        double a[3], c[3];
        f.at(t, a);
        curve(t, c);
        return (a[0] - c[0]) * (a[0] - c[0]) + (a[1] - c[1]) * (a[1] - c[1]) +
               (a[2] - c[2]) * (a[2] - c[2]);
    };
    const int q = 2 * p + 4;  // sample steps
    double g[2 * sw_max_degree + 5];
    double best = 0.0;
    for (int j = 0; j <= q; ++j) {
        g[j] = d2(j == q ? hi : lo + (hi - lo) * j / q);
        best = std::max(best, g[j]);
    }
    const double step = (hi - lo) / q;
    double polished = best;
    for (int j = 0; j <= q; ++j) {
        const bool peak = (j == 0 || g[j] >= g[j - 1]) && (j == q || g[j] >= g[j + 1]);
        // Half the largest distance is a quarter of the largest square.
        if (!peak || g[j] < 0.25 * best || g[j] == 0.0) continue;
        const double t = j == q ? hi : lo + step * j;
        polished = std::max(
            polished, sw_brent_max(d2, std::max(lo, t - step), std::min(hi, t + step), t, g[j]));
    }
    return std::sqrt(polished);
}

struct break_point {
    double x;
    int kind;  // law_singular_jump or law_singular_break
};
using break_list = std::vector<break_point, vorx_std_allocator<break_point>>;

// Frees a singularity list however the scope is left.
struct singularity_arrays {
    double* where = nullptr;
    int* kind = nullptr;
    ~singularity_arrays() {
        if (where) VORX_FREE(where);
        if (kind) VORX_FREE(kind);
    }
};

void add_singularities(const law* l, double lo, double hi, break_list& out) {
    singularity_arrays s;
    const int n = l->singularities(&s.where, &s.kind, lo, hi);
    for (int i = 0; i < n; ++i) {
        if (s.where[i] < lo || s.where[i] > hi) continue;
        if (s.kind[i] == law_singular_pole) sys_error(BAD_SINGULARITIES);
        out.push_back(
            {s.where[i], s.kind[i] == law_singular_jump ? law_singular_jump : law_singular_break});
    }
}

// The breaks strictly inside (lo, hi), sorted; points closer than 1e-9 of the range
// merge, a jump winning over a break.
break_list collect_breaks(const law* L, double lo, double hi, const sw_curve_approx_options& opt) {
    break_list raw;
    if (opt.use_singularities) {
        if (L->isa(vector_law::id())) {
            const multiple_law* v = static_cast<const multiple_law*>(L);
            for (int i = 0; i < v->fsub_num(); ++i) add_singularities(v->fsub()[i], lo, hi, raw);
        } else {
            add_singularities(L, lo, hi, raw);
        }
    }
    for (int i = 0; i < opt.num_breakpoints && opt.breakpoints; ++i)
        if (std::isfinite(opt.breakpoints[i]))
            raw.push_back({opt.breakpoints[i], law_singular_break});
    std::sort(raw.begin(), raw.end(),
              [](const break_point& a, const break_point& b) { return a.x < b.x; });
    const double sep = 1e-9 * (hi - lo);
    break_list out;
    for (const break_point& b : raw) {
        if (b.x <= lo + sep || b.x >= hi - sep) continue;
        if (!out.empty() && b.x - out.back().x <= sep)
            out.back().kind = std::min(out.back().kind, b.kind);
        else
            out.push_back(b);
    }
    return out;
}

// One piece between breaks: a clamped spline of degree p.
struct piece {
    int p;
    double a, b;    // ends
    double ea, eb;  // where the law is evaluated for the ends
    double pa[3], pb[3];
    dvec knots;  // a (p + 1 times), interior knots, b (p + 1 times)
    dvec ctrl;   // x, y, z per control point
    dvec err;    // measured error per span

    int spans() const { return (int)knots.size() - 2 * p - 1; }
    int points() const { return (int)knots.size() - p - 1; }
    void point(int s, double t, double* xyz) const {
        double N[sw_max_degree + 1];
        sw_basis(knots.data(), p, p + s, t, N);
        const double* c = ctrl.data() + 3 * s;
        xyz[0] = xyz[1] = xyz[2] = 0.0;
        for (int r = 0; r <= p; ++r)
            for (int d = 0; d < 3; ++d) xyz[d] += N[r] * c[3 * r + d];
    }
    double span_lo(int s) const { return knots[p + s]; }
    double span_hi(int s) const { return knots[p + s + 1]; }
    double measure(law_points& f, int s) const {
        return span_deviation(
            f, [&](double t, double* xyz) { point(s, t, xyz); }, span_lo(s), span_hi(s),
            std::max(ea, span_lo(s)), std::min(eb, span_hi(s)), p);
    }
    // Sets the end control points (the rest is left to the fit).
    void size_points() {
        ctrl.assign(3 * points(), 0.0);
        std::copy(pa, pa + 3, ctrl.begin());
        std::copy(pb, pb + 3, ctrl.end() - 3);
    }
};

// Least squares for control points i0..i1 of the piece with the others held: p + 2
// samples in each span those points reach; banded Cholesky on the normal equations.
void fit(piece& pc, int i0, int i1, law_points& f) {
    const int p = pc.p, w = p + 1, F = i1 - i0 + 1;
    if (F <= 0) return;
    dvec A((size_t)F * w, 0.0), R((size_t)F * 3, 0.0);
    const int m = p + 2;
    const int s_first = std::max(0, i0 - p), s_last = std::min(pc.spans() - 1, i1);
    double N[sw_max_degree + 1], y[3];
    for (int s = s_first; s <= s_last; ++s) {
        const double lo = pc.span_lo(s), h = pc.span_hi(s) - lo;
        for (int j = 0; j < m; ++j) {
            const double t = lo + h * (j + 0.5) / m;
            f.at(std::min(std::max(t, pc.ea), pc.eb), y);
            sw_basis(pc.knots.data(), p, p + s, t, N);
            // The target less the held control points' share.
            for (int r = 0; r <= p; ++r) {
                const int g = s + r;
                if (g >= i0 && g <= i1) continue;
                for (int d = 0; d < 3; ++d) y[d] -= N[r] * pc.ctrl[3 * g + d];
            }
            for (int r1 = 0; r1 <= p; ++r1) {
                const int g1 = s + r1 - i0;
                if (g1 < 0 || g1 >= F) continue;
                for (int d = 0; d < 3; ++d) R[3 * g1 + d] += N[r1] * y[d];
                for (int r2 = 0; r2 <= r1; ++r2) {
                    const int g2 = s + r2 - i0;
                    if (g2 >= 0) A[(size_t)g1 * w + (g1 - g2)] += N[r1] * N[r2];
                }
            }
        }
    }
    // Positive definite by construction; a collapse means spans too short to tell apart
    // in doubles.
    if (!sw_band_solve(A.data(), F, p, R.data(), 3)) sys_error(BS_ACCURACY);
    for (int i = 0; i < F; ++i)
        for (int d = 0; d < 3; ++d) pc.ctrl[3 * (i0 + i) + d] = R[3 * i + d];
}

void fit_all(piece& pc, law_points& f) {
    pc.size_points();
    fit(pc, 1, pc.points() - 2, f);
}

struct approx_state {
    law_points& f;
    double target;
    double min_span;
    int max_spans;
    int total_spans = 0;
    int passes = 0;
    int removed = 0;
};

// Splits the failing spans until every span is within the target.
void refine_loop(piece& pc, approx_state& st) {
    const int p = pc.p;
    for (int pass = 0;; ++pass) {
        if (pass >= 100) sys_error(BS_ACCURACY);
        fit_all(pc, st.f);
        ++st.passes;
        const int ns = pc.spans();
        pc.err.assign(ns, 0.0);
        bool all_good = true;
        for (int s = 0; s < ns; ++s) {
            pc.err[s] = pc.measure(st.f, s);
            all_good = all_good && pc.err[s] <= st.target;
        }
        if (all_good) return;
        dvec knots(pc.knots.begin(), pc.knots.begin() + p + 1);
        int added = 0;
        for (int s = 0; s < ns; ++s) {
            const double lo = pc.span_lo(s), h = pc.span_hi(s) - lo;
            if (pc.err[s] > st.target) {
                // The h^(p+1) error law: k pieces bring e down to e/k^(p+1) <= target/2.
                int k = (int)std::ceil(std::pow(2 * pc.err[s] / st.target, 1.0 / (p + 1)));
                k = std::min(16, std::max(2, k));
                if (h / k < st.min_span) sys_error(BS_ACCURACY);
                for (int j = 1; j < k; ++j) knots.push_back(lo + h * j / k);
                added += k - 1;
            }
            knots.push_back(pc.span_hi(s));
        }
        for (int r = 0; r < p; ++r) knots.push_back(pc.b);
        st.total_spans += added;
        if (st.total_spans > st.max_spans) sys_error(BS_ACCURACY);
        pc.knots.swap(knots);
    }
}

// Re-places the knots of a refined piece so that every span would carry the same error,
// redistribute_fraction of the target, under the h^(p+1) law with each span's own
// constant; false when that would not save a span.
constexpr double redistribute_fraction = 0.8;
bool redistribute(piece& pc, double target) {
    const int p = pc.p, ns = pc.spans();
    dvec cum(ns + 1, 0.0);
    for (int s = 0; s < ns; ++s)
        cum[s + 1] = cum[s] + std::pow(pc.err[s] / (redistribute_fraction * target), 1.0 / (p + 1));
    const int n = std::max(1, (int)std::ceil(cum[ns]));
    if (n >= ns) return false;
    dvec knots(pc.knots.begin(), pc.knots.begin() + p + 1);
    int s = 0;
    for (int j = 1; j < n; ++j) {
        const double v = cum[ns] * j / n;
        while (cum[s + 1] < v) ++s;
        const double lo = pc.span_lo(s), hi = pc.span_hi(s);
        knots.push_back(lo + (hi - lo) * (v - cum[s]) / (cum[s + 1] - cum[s]));
    }
    knots.insert(knots.end(), p + 1, pc.b);
    pc.knots.swap(knots);
    return true;
}

// Refines, then tries the equidistributed knots (refined again where they fall short) and
// keeps whichever has fewer spans.
void refine(piece& pc, approx_state& st) {
    refine_loop(pc, st);
    piece trial = pc;
    if (!redistribute(trial, st.target)) return;
    st.total_spans += trial.spans() - pc.spans();
    refine_loop(trial, st);
    if (trial.spans() < pc.spans())
        std::swap(pc, trial);
    else
        st.total_spans -= trial.spans() - pc.spans();
}

// One sweep of knot removal (see the design note).
void remove_knots(piece& pc, approx_state& st) {
    const int p = pc.p;
    piece trial = pc;
    for (int r = p + 1; r < pc.points();) {
        const int n = pc.points() - 1;  // control points after the removal
        trial.knots.assign(pc.knots.begin(), pc.knots.end());
        trial.knots.erase(trial.knots.begin() + r);
        // Control points below r - p - 1 keep their index, those from r on move down one.
        trial.ctrl.resize(3 * (size_t)n);
        for (int i = 0; i < n; ++i) {
            const int old = i < r - p - 1 ? i : (i >= r ? i + 1 : -1);
            if (old >= 0) std::copy(&pc.ctrl[3 * old], &pc.ctrl[3 * old] + 3, &trial.ctrl[3 * i]);
        }
        std::copy(pc.pa, pc.pa + 3, trial.ctrl.begin());
        std::copy(pc.pb, pc.pb + 3, trial.ctrl.end() - 3);
        const int i0 = std::max(1, r - p - 2), i1 = std::min(n - 2, r);
        fit(trial, i0, i1, st.f);
        const int merged = r - p - 1, ns = trial.spans();
        const int s0 = std::max(0, i0 - p), s1 = std::min(ns - 1, i1);
        trial.err.resize(ns);
        for (int s = 0; s < ns; ++s)
            if (s < s0 || s > s1) trial.err[s] = pc.err[s < merged ? s : s + 1];
        bool ok = (trial.err[merged] = trial.measure(st.f, merged)) <= st.target;
        for (int s = s0; ok && s <= s1; ++s)
            if (s != merged) ok = (trial.err[s] = trial.measure(st.f, s)) <= st.target;
        if (ok) {
            std::swap(pc.knots, trial.knots);
            std::swap(pc.ctrl, trial.ctrl);
            std::swap(pc.err, trial.err);
            ++st.removed;
            --st.total_spans;
        } else {
            ++r;
        }
    }
}

}  // namespace

sw_curve* law_to_sw_curve(law* L, double start, double end, double tolerance,
                          const sw_curve_approx_options& opt, sw_curve_approx_report* report) {
    check_law(L);
    const int p = opt.degree;
    if (p < 1 || p > sw_max_degree || opt.max_spans < 1) sys_error(SW_BAD_ORDER);
    if (!std::isfinite(start) || !std::isfinite(end)) sys_error(LAW_BAD_BOUNDS);
    if (!(end > start)) sys_error(LAW_BAD_DOMAN);
    if (!(tolerance > 0.0) || !std::isfinite(tolerance)) sys_error(BS_ACCURACY);

    law_points f(L);
    const break_list breaks = collect_breaks(L, start, end, opt);
    const int np = (int)breaks.size() + 1;
    std::vector<piece, vorx_std_allocator<piece>> pieces(np);
    double size = 0.0;
    for (int i = 0; i < np; ++i) {
        piece& pc = pieces[i];
        pc.p = p;
        pc.a = i == 0 ? start : breaks[i - 1].x;
        pc.b = i == np - 1 ? end : breaks[i].x;
        // A hair inside the piece at a jump, so each side sees its own limit.
        const double nudge =
            1e-12 * (pc.b - pc.a) + 4 * DBL_EPSILON * std::max(std::fabs(pc.a), std::fabs(pc.b));
        pc.ea = i > 0 && breaks[i - 1].kind == law_singular_jump ? pc.a + nudge : pc.a;
        pc.eb = i < np - 1 && breaks[i].kind == law_singular_jump ? pc.b - nudge : pc.b;
        f.at(pc.ea, pc.pa);
        f.at(pc.eb, pc.pb);
        pc.knots.assign(p + 1, pc.a);
        pc.knots.insert(pc.knots.end(), p + 1, pc.b);
        for (int d = 0; d < 3; ++d)
            size = std::max({size, std::fabs(pc.pa[d]), std::fabs(pc.pb[d])});
    }
    // Below this the fit's own rounding is as large as the tolerance.
    if (tolerance < 1024 * DBL_EPSILON * size) sys_error(BS_ACCURACY);

    approx_state st{f, accept_fraction * tolerance,
                    64 * DBL_EPSILON * std::max({std::fabs(start), std::fabs(end), end - start}),
                    opt.max_spans};
    st.total_spans = np;
    if (st.total_spans > st.max_spans) sys_error(BS_ACCURACY);
    for (piece& pc : pieces) refine(pc, st);
    if (opt.strategy == sw_approx_refine_then_remove)
        for (piece& pc : pieces) remove_knots(pc, st);

    // Join the pieces: multiplicity p at a continuous break (the shared control point
    // once), p + 1 at a jump.
    dvec knots, pts;
    double max_error = 0.0;
    for (int i = 0; i < np; ++i) {
        const piece& pc = pieces[i];
        const bool joined = i > 0 && breaks[i - 1].kind != law_singular_jump;
        // A piece gives up its last knot unless it is the last; a following piece gives up
        // its first p + 1 (joined) or p (jump) knots.
        knots.insert(knots.end(),
                     pc.knots.begin() + (i == 0   ? 0
                                         : joined ? p + 1
                                                  : p),
                     pc.knots.end() - (i == np - 1 ? 0 : 1));
        pts.insert(pts.end(), pc.ctrl.begin() + (joined ? 3 : 0), pc.ctrl.end());
        for (double e : pc.err) max_error = std::max(max_error, e);
    }
    const int n = (int)pts.size() / 3;
    const double normal[3] = {0.0, 0.0, 1.0};
    const bool planar = f.outputs() < 3;
    sw_curve* C = VORX_NEW sw_curve(n, p, planar ? 1 : 0, 0, 1, 0, knots.data(), nullptr,
                                    pts.data(), start, end, planar ? normal : nullptr);
    if (report) {
        report->max_error = max_error;
        report->spans = st.total_spans;
        report->control_points = n;
        report->breaks = np - 1;
        report->refine_passes = st.passes;
        report->knots_removed = st.removed;
        report->evaluations = f.evaluations;
    }
    return C;
}

sw_curve* law_to_sw_curve(law* L, const interval& range, double tolerance,
                          const sw_curve_approx_options& opt, sw_curve_approx_report* report) {
    if (!range.finite()) sys_error(LAW_BAD_BOUNDS);
    return law_to_sw_curve(L, range.start_pt(), range.end_pt(), tolerance, opt, report);
}

double sw_curve_max_deviation(law* L, const sw_curve* C) {
    check_law(L);
    if (!C) sys_error(LAW_DIM);
    law_points f(L);
    const int p = C->get_degree(), nk = C->get_num_knots();
    const double* U = C->get_knots();
    auto multiplicity = [&](int k) {
        int m = 0;
        for (int j = 0; j < nk; ++j) m += U[j] == U[k];
        return m;
    };
    double worst = 0.0;
    for (int k = p; k < C->get_num_control_points(); ++k) {
        const double lo = std::max(U[k], C->get_min_t()), hi = std::min(U[k + 1], C->get_max_t());
        if (!(hi - lo > 1e-10)) continue;
        // At an interior knot of full multiplicity the curve jumps: look just inside, past
        // the 1e-10 within which sw_curve::eval still answers from the span before.
        const double nudge = 2e-10 + 4 * DBL_EPSILON * std::max(std::fabs(lo), std::fabs(hi));
        const double flo = k > p && multiplicity(k) > p ? lo + nudge : lo;
        const double fhi =
            k + 1 < C->get_num_control_points() && multiplicity(k + 1) > p ? hi - nudge : hi;
        auto curve = [&](double t, double* xyz) {
            position P;
            C->eval(t, &P);
            xyz[0] = P.x(), xyz[1] = P.y(), xyz[2] = P.z();
        };
        worst = std::max(worst, span_deviation(f, curve, lo, hi, flo, fhi, p));
    }
    return worst;
}
