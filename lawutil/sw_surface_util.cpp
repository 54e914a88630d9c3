#include "lawutil/sw_surface_util.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <memory>
#include <vector>

#include "base/errors.hpp"
#include "base/memory.hpp"
#include "lawutil/main_law_err.hpp"
#include "lawutil/sw_common.hpp"
#include "lawutil/sw_surface.hpp"

using namespace vorx;

namespace lawutil {

namespace {

using dvec = std::vector<double, vorx_std_allocator<double>>;
constexpr double accept_fraction = 0.999;

void check_surface_law(const law* L) {
    if (!L || L->take_dim() != 2 || L->return_dim() != 3) sys_error(LAW_DIM);
}

struct law_surface_points {
    const law* L;
    long evaluations = 0;
    void at(double u, double v, double* xyz) {
        const double x[2] = {u, v};
        ++evaluations;
        L->evaluate(x, xyz);
        if (!std::isfinite(xyz[0]) || !std::isfinite(xyz[1]) || !std::isfinite(xyz[2]))
            sys_error(LAW_BAD_RANGE);
    }
};

// One parameter direction: its knots and the fit's samples, p + 2 in each span of
// positive length.
struct axis {
    int p;
    dvec knots;
    dvec t;                                           // sample parameters
    std::vector<int, vorx_std_allocator<int>> first;  // index of the first control point
    dvec N;                                           // p + 1 basis values per sample
    int points() const { return (int)knots.size() - p - 1; }
    void sample() {
        t.clear(), first.clear(), N.clear();
        const int m = p + 2;
        double b[sw_max_degree + 1];
        for (int k = p; k < points(); ++k) {
            const double lo = knots[k], h = knots[k + 1] - lo;
            for (int j = 0; h > 0 && j < m; ++j) {
                t.push_back(lo + h * (j + 0.5) / m);
                first.push_back(k - p);
                sw_basis(knots.data(), p, k, t.back(), b);
                N.insert(N.end(), b, b + p + 1);
            }
        }
    }
    // Least squares along this axis for `cols` values per sample: Y has a row of `cols`
    // per sample; the result has a row per control point.
    dvec solve(const dvec& Y, int cols) const {
        const int n = points(), w = p + 1;
        dvec A((size_t)n * w, 0.0), R((size_t)n * cols, 0.0);
        for (size_t i = 0; i < t.size(); ++i) {
            const double* b = &N[i * w];
            for (int r1 = 0; r1 <= p; ++r1) {
                const int g1 = first[i] + r1;
                for (int c = 0; c < cols; ++c) R[(size_t)g1 * cols + c] += b[r1] * Y[i * cols + c];
                for (int r2 = 0; r2 <= r1; ++r2) A[(size_t)g1 * w + (r1 - r2)] += b[r1] * b[r2];
            }
        }
        if (!sw_band_solve(A.data(), n, p, R.data(), cols)) sys_error(BS_ACCURACY);
        return R;
    }
};

void start_axis(axis& ax, int p, double lo, double hi, const double* breaks, int nb) {
    ax.p = p;
    ax.knots.assign(p + 1, lo);
    dvec b;
    for (int i = 0; i < nb && breaks; ++i)
        if (breaks[i] > lo && breaks[i] < hi) b.push_back(breaks[i]);
    std::sort(b.begin(), b.end());
    b.erase(std::unique(b.begin(), b.end()), b.end());
    for (double x : b) ax.knots.insert(ax.knots.end(), p, x);
    ax.knots.insert(ax.knots.end(), p + 1, hi);
}

sw_surface* fit_surface(law_surface_points& f, axis& U, axis& V) {
    U.sample(), V.sample();
    const int mu = (int)U.t.size(), mv = (int)V.t.size(), nu = U.points(), nv = V.points();
    dvec F((size_t)mu * mv * 3);
    for (int i = 0; i < mu; ++i)
        for (int q = 0; q < mv; ++q) f.at(U.t[i], V.t[q], &F[3 * ((size_t)i * mv + q)]);
    // Along u for every v sample, then along v for every u control point.
    const dvec G = U.solve(F, 3 * mv);
    dvec Gt((size_t)mv * nu * 3);
    for (int i = 0; i < nu; ++i)
        for (int q = 0; q < mv; ++q)
            for (int c = 0; c < 3; ++c)
                Gt[((size_t)q * nu + i) * 3 + c] = G[((size_t)i * mv + q) * 3 + c];
    const dvec H = V.solve(Gt, 3 * nu);
    dvec P((size_t)nu * nv * 3);
    for (int i = 0; i < nu; ++i)
        for (int j = 0; j < nv; ++j)
            for (int c = 0; c < 3; ++c)
                P[((size_t)i * nv + j) * 3 + c] = H[((size_t)j * nu + i) * 3 + c];
    return VORX_NEW sw_surface(nu, nv, U.p, V.p, U.knots.data(), V.knots.data(), P.data());
}

// The largest distance over one patch (see the header's error model).
double patch_deviation(law_surface_points& f, const sw_surface& S, double u0, double u1, double v0,
                       double v1) {
    auto d2 = [&](double u, double v) {
        double a[3];
        f.at(u, v, a);
        position p;
        S.eval(u, v, &p);
        return (p - position(a[0], a[1], a[2])).len_sq();
    };
    const int qu = 2 * S.get_degree_u() + 4, qv = 2 * S.get_degree_v() + 4;
    double best = -1.0, bu = u0, bv = v0;
    for (int i = 0; i <= qu; ++i)
        for (int j = 0; j <= qv; ++j) {
            const double u = i == qu ? u1 : u0 + (u1 - u0) * i / qu;
            const double v = j == qv ? v1 : v0 + (v1 - v0) * j / qv;
            const double g = d2(u, v);
            if (g > best) best = g, bu = u, bv = v;
        }
    if (best == 0.0) return 0.0;
    const double su = (u1 - u0) / qu, sv = (v1 - v0) / qv;
    // Brent along one coordinate through the best point, the other held.
    auto polish = [&](double& x, double lo, double hi, double step, bool along_u) {
        double at = x;
        auto g = [&](double t) {
            const double r = along_u ? d2(t, bv) : d2(bu, t);
            if (r > best) best = r, at = t;
            return r;
        };
        sw_brent_max(g, std::max(lo, x - step), std::min(hi, x + step), x, best);
        x = at;
    };
    polish(bu, u0, u1, su, true);
    polish(bv, v0, v1, sv, false);
    polish(bu, u0, u1, su, true);
    return std::sqrt(best);
}

// Patch errors, row by row in u; `bu`, `bv` get the patch boundaries.
dvec measure(law_surface_points& f, const sw_surface& S, dvec& bu, dvec& bv) {
    for (int dir = 0; dir < 2; ++dir) {
        double* b = nullptr;
        const int n = patch_breakpoint_list(&S, dir, &b);
        (dir == 0 ? bu : bv).assign(b, b + n);
        VORX_FREE(b);
    }
    const int npu = (int)bu.size() - 1, npv = (int)bv.size() - 1;
    dvec err((size_t)npu * npv);
    for (int a = 0; a < npu; ++a)
        for (int b = 0; b < npv; ++b)
            err[(size_t)a * npv + b] = patch_deviation(f, S, bu[a], bu[a + 1], bv[b], bv[b + 1]);
    return err;
}

// The (p+1)-th difference of the law across a patch along u (dir 0) or v through its
// centre: the part a degree-p fit in that direction cannot follow, which tells the
// direction that needs the split.
double roughness(law_surface_points& f, double u0, double u1, double v0, double v1, int p,
                 int dir) {
    double sum[3] = {0.0, 0.0, 0.0}, weight = 1.0;  // weight: (-1)^(p+1-k) C(p+1, k)
    for (int k = 0; k <= p + 1; ++k) {
        const double t = (double)k / (p + 1);
        double y[3];
        if (dir == 0)
            f.at(u0 + (u1 - u0) * t, 0.5 * (v0 + v1), y);
        else
            f.at(0.5 * (u0 + u1), v0 + (v1 - v0) * t, y);
        const double w = (p + 1 - k) % 2 ? -weight : weight;
        for (int d = 0; d < 3; ++d) sum[d] += w * y[d];
        weight = weight * (p + 1 - k) / (k + 1);
    }
    return std::sqrt(sum[0] * sum[0] + sum[1] * sum[1] + sum[2] * sum[2]);
}

// Splits the positive spans of the axis whose error (worst over the other direction)
// exceeds the target; k from the h^(p+1) law.
void split_axis(axis& ax, const dvec& worst, double target, double min_span) {
    dvec knots(ax.knots.begin(), ax.knots.begin() + ax.p + 1);
    int s = 0;
    for (int k = ax.p; k < ax.points(); ++k) {
        const double lo = ax.knots[k], h = ax.knots[k + 1] - lo;
        if (h > 0) {
            const double e = worst[s++];
            if (e > target) {
                int n = (int)std::ceil(std::pow(2 * e / target, 1.0 / (ax.p + 1)));
                n = std::min(16, std::max(2, n));
                if (h / n < min_span) sys_error(BS_ACCURACY);
                for (int j = 1; j < n; ++j) knots.push_back(lo + h * j / n);
            }
        }
        knots.push_back(ax.knots[k + 1]);
    }
    knots.insert(knots.end(), ax.knots.end() - ax.p, ax.knots.end());
    ax.knots.swap(knots);
}

}  // namespace

sw_surface* law_to_sw_surface(law* L, double u0, double u1, double v0, double v1, double tolerance,
                              const sw_surface_approx_options& opt,
                              sw_surface_approx_report* report) {
    check_surface_law(L);
    if (opt.degree_u < 1 || opt.degree_u > sw_max_degree || opt.degree_v < 1 ||
        opt.degree_v > sw_max_degree || opt.max_patches < 1)
        sys_error(SW_BAD_ORDER);
    if (!std::isfinite(u0) || !std::isfinite(u1) || !std::isfinite(v0) || !std::isfinite(v1))
        sys_error(LAW_BAD_BOUNDS);
    if (!(u1 > u0) || !(v1 > v0)) sys_error(LAW_BAD_DOMAN);
    if (!(tolerance > 0.0) || !std::isfinite(tolerance)) sys_error(BS_ACCURACY);
    law_surface_points f{L};
    double size = 0.0;
    for (double u : {u0, u1})
        for (double v : {v0, v1}) {
            double a[3];
            f.at(u, v, a);
            size = std::max({size, std::fabs(a[0]), std::fabs(a[1]), std::fabs(a[2])});
        }
    if (tolerance < 1024 * DBL_EPSILON * size) sys_error(BS_ACCURACY);
    const double target = accept_fraction * tolerance;
    const double min_u = 64 * DBL_EPSILON * std::max({std::fabs(u0), std::fabs(u1), u1 - u0});
    const double min_v = 64 * DBL_EPSILON * std::max({std::fabs(v0), std::fabs(v1), v1 - v0});
    axis U, V;
    start_axis(U, opt.degree_u, u0, u1, opt.breakpoints_u, opt.num_breakpoints_u);
    start_axis(V, opt.degree_v, v0, v1, opt.breakpoints_v, opt.num_breakpoints_v);
    for (int pass = 1;; ++pass) {
        if (pass > 60) sys_error(BS_ACCURACY);
        std::unique_ptr<sw_surface> S(fit_surface(f, U, V));
        dvec bu, bv;
        const dvec err = measure(f, *S, bu, bv);
        const int npu = (int)bu.size() - 1, npv = (int)bv.size() - 1;
        // A failing patch asks for a split in the directions whose roughness is at least a
        // tenth of the other's (both when neither shows any).
        dvec worst_u(npu, 0.0), worst_v(npv, 0.0);
        for (int a = 0; a < npu; ++a)
            for (int b = 0; b < npv; ++b) {
                const double e = err[(size_t)a * npv + b];
                if (e <= target) continue;
                const double ru = roughness(f, bu[a], bu[a + 1], bv[b], bv[b + 1], U.p, 0);
                const double rv = roughness(f, bu[a], bu[a + 1], bv[b], bv[b + 1], V.p, 1);
                const double m = std::max(ru, rv);
                if (m == 0.0 || ru >= 0.1 * m) worst_u[a] = std::max(worst_u[a], e);
                if (m == 0.0 || rv >= 0.1 * m) worst_v[b] = std::max(worst_v[b], e);
            }
        const double worst = *std::max_element(err.begin(), err.end());
        if (worst <= target) {
            if (report) {
                report->max_error = worst;
                report->patches_u = npu;
                report->patches_v = npv;
                report->control_points = U.points() * V.points();
                report->passes = pass;
                report->evaluations = f.evaluations;
            }
            return S.release();
        }
        split_axis(U, worst_u, target, min_u);
        split_axis(V, worst_v, target, min_v);
        if ((long)(U.points() - U.p) * (V.points() - V.p) > opt.max_patches) sys_error(BS_ACCURACY);
    }
}

double sw_surface_max_deviation(law* L, const sw_surface* S) {
    check_surface_law(L);
    if (!S) sys_error(LAW_DIM);
    law_surface_points f{L};
    dvec bu, bv;
    const dvec err = measure(f, *S, bu, bv);
    return *std::max_element(err.begin(), err.end());
}

int patch_breakpoint_list(const sw_surface* S, int dir, double** out) {
    if (!S || !out || (dir != 0 && dir != 1)) sys_error(LAW_DIM);
    const double* K = dir == 0 ? S->get_knots_u() : S->get_knots_v();
    const int p = dir == 0 ? S->get_degree_u() : S->get_degree_v();
    const int n = dir == 0 ? S->get_num_control_points_u() : S->get_num_control_points_v();
    double* r = VORX_ALLOC_ARRAY(double, n - p + 1);
    int m = 0;
    r[m++] = K[p];
    for (int k = p + 1; k <= n; ++k)
        if (K[k] > r[m - 1]) r[m++] = K[k];
    *out = r;
    return m;
}

surface_evaluator::surface_evaluator(law* L) {
    check_surface_law(L);
    law_ = law_holder::share(L);
    du_.reset(L->derivative(0));
    dv_.reset(L->derivative(1));
}

surface_evaluator::surface_evaluator(const sw_surface* S) : surface_(S) {
    if (!S) sys_error(LAW_DIM);
}

void surface_evaluator::eval(double u, double v, position* P, vector* Su, vector* Sv) const {
    if (surface_) {
        surface_->eval(u, v, P, Su, Sv);
        return;
    }
    const double x[2] = {u, v};
    double y[3];
    if (P) {
        law_->evaluate(x, y);
        *P = position(y[0], y[1], y[2]);
    }
    if (Su) {
        du_->evaluate(x, y);
        *Su = vector(y[0], y[1], y[2]);
    }
    if (Sv) {
        dv_->evaluate(x, y);
        *Sv = vector(y[0], y[1], y[2]);
    }
}

}  // namespace lawutil
