#include "lawutil/root.hpp"

#include <algorithm>
#include <cmath>

#include "base/tolerance.hpp"
#include "lawutil/law_base.hpp"
#include "lawutil/main_law.hpp"

void set_root_tol_default() {
    auto& r = law_context().root;
    r.root_x_tol = 1e-14;
    r.root_f_tol = 1e-7;
    r.root_quad_tol = 1e-7;
    r.root_hole_fraction = 0.05;
    r.root_ratio = 0.1;
    r.root_far_ratio = 0.1;
    r.root_newton_iterations = 10;
    r.root_bisect_iterations = 40;
    r.root_count_a = 7;
    r.root_max_evaluations = 10000;
    r.root_search_tol = 1e-4;
}

// ================================================================ singularity lists

namespace {

struct singular_record {
    double where;
    int kind;
};

}  // namespace

int sort_singularities(double** where, int** kind, int n, double lo, double hi) {
    if (n <= 0 || !where || !*where || !kind || !*kind) {
        if (where && n <= 0 && *where) {
            VORX_FREE(*where);
            *where = nullptr;
        }
        if (kind && n <= 0 && *kind) {
            VORX_FREE(*kind);
            *kind = nullptr;
        }
        return 0;
    }
    singular_record* rec = VORX_ALLOC_ARRAY(singular_record, n);
    for (int i = 0; i < n; ++i) rec[i] = {(*where)[i], (*kind)[i]};
    std::sort(rec, rec + n,
              [](const singular_record& p, const singular_record& q) { return p.where < q.where; });
    // Keep: inside [lo, hi] within resabs, and not within resabs of the one kept before.
    int kept = 0;
    for (int i = 0; i < n; ++i) {
        double x = rec[i].where;
        if (x + resabs < lo || x - resabs > hi || std::isnan(x)) continue;
        if (kept > 0 && std::fabs(x - rec[kept - 1].where) < resabs) continue;
        rec[kept++] = rec[i];
    }
    if (kept < n) {
        VORX_FREE(*where);
        VORX_FREE(*kind);
        *where = kept ? VORX_ALLOC_ARRAY(double, kept) : nullptr;
        *kind = kept ? VORX_ALLOC_ARRAY(int, kept) : nullptr;
    }
    for (int i = 0; i < kept; ++i) {
        (*where)[i] = rec[i].where;
        (*kind)[i] = rec[i].kind;
    }
    VORX_FREE(rec);
    return kept;
}

bool linear_coefficients(const law* g, double& c, double& s) {
    if (!g || g->take_dim() > 1 || !g->returns_scalar()) return false;
    try {
        if (g->take_dim() == 0) {
            c = g->eval(0.0);
            s = 0.0;
            return std::isfinite(c);
        }
        if (!g->linear()) return false;
        law_holder d(g->derivative(0));
        c = g->eval(0.0);
        s = d->eval(0.0);
    } catch (const vorx_exception&) {
        return false;
    }
    return std::isfinite(c) && std::isfinite(s);
}

singularity_list::singularity_list(double lo, double hi) : lo_(lo), hi_(hi) {
    if (lo_ > hi_) std::swap(lo_, hi_);
}

singularity_list::~singularity_list() {
    VORX_FREE(where_);
    VORX_FREE(kind_);
}

void singularity_list::add(double x, int kind) {
    if (!std::isfinite(x) || x + resabs < lo_ || x - resabs > hi_) return;
    if (n_ == cap_) {
        int cap = cap_ ? 2 * cap_ : 8;
        double* w = VORX_ALLOC_ARRAY(double, cap);
        int* k = VORX_ALLOC_ARRAY(int, cap);
        for (int i = 0; i < n_; ++i) {
            w[i] = where_[i];
            k[i] = kind_[i];
        }
        VORX_FREE(where_);
        VORX_FREE(kind_);
        where_ = w;
        kind_ = k;
        cap_ = cap;
    }
    where_[n_] = x;
    kind_[n_] = kind;
    ++n_;
}

void singularity_list::note_period(double p) {
    if (period_ == 0.0)
        period_ = p;
    else if (std::fabs(period_ - p) > resnor * p)
        period_ = -1.0;
}

void singularity_list::add_lattice(double x0, double period, int kind) {
    if (!std::isfinite(x0) || !(period > 0.0) || !std::isfinite(period)) return;
    // Whole steps from x0 to the ends, in doubles: an infinite range gives infinite counts.
    double k_lo = std::ceil((lo_ - resabs - x0) / period);
    double k_hi = std::floor((hi_ + resabs - x0) / period);
    if (!(k_hi - k_lo + 1.0 <= max_listed)) {
        double centre = lo_ * 0.5 + hi_ * 0.5;
        k_lo = std::ceil((centre - 0.5 * period - x0) / period);
        k_hi = k_lo;
        note_period(period);
    }
    for (double k = k_lo; k <= k_hi; k += 1.0) add(x0 + k * period, kind);
}

void singularity_list::add_linear_lattice(const law* g, double v0, double step, int kind) {
    double c, s;
    if (!linear_coefficients(g, c, s) || s == 0.0) return;
    // c + s*x = v0 + k*step  <=>  x = (v0 - c)/s + k*step/s
    add_lattice((v0 - c) / s, std::fabs(step / s), kind);
}

void singularity_list::add_linear_zero(const law* g, int kind) {
    double c, s;
    if (linear_coefficients(g, c, s) && s != 0.0) add(-c / s, kind);
}

void singularity_list::add_law(const law* l) {
    if (!l) return;
    double* w = nullptr;
    int* k = nullptr;
    double* p = nullptr;
    int m = l->singularities(&w, &k, lo_, hi_, &p);
    for (int i = 0; i < m; ++i) add(w[i], k[i]);
    if (p) note_period(p[0]);
    VORX_FREE(w);
    VORX_FREE(k);
    VORX_FREE(p);
}

int singularity_list::finish(double** where, int** kind, double** period) {
    int n = sort_singularities(&where_, &kind_, n_, lo_, hi_);
    if (where)
        *where = where_;
    else
        VORX_FREE(where_);
    if (kind)
        *kind = kind_;
    else
        VORX_FREE(kind_);
    where_ = nullptr;
    kind_ = nullptr;
    n_ = cap_ = 0;
    if (period) {
        *period = nullptr;
        if (period_ > 0.0) {
            *period = VORX_ALLOC_ARRAY(double, 1);
            **period = period_;
        }
    }
    return n;
}

int operand_singularities(const law* self, const law* a, const law* b, double** where, int** kind,
                          double lo, double hi, double** period) {
    singularity_list s(lo, hi);
    if (self->take_dim() <= 1) {
        s.add_law(a);
        s.add_law(b);
    }
    return s.finish(where, kind, period);
}
