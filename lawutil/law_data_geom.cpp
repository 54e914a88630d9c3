// Bodies of the geometric law_data kinds and of r3_law_cache.
//
// Lattice drag.  update_point moves the chosen points of a three-axis lattice and, with
// a positive falloff, the others by a share of the move that falls off with their
// distance from the chosen ones along the lattice's edges (measured on the points as
// they stand, so a bent lattice drags along its bends).  The distances come from a
// label-correcting pass over the lattice graph (calc_movement_ratios): simple, exact,
// and cheap for the lattices of a deformation tool (a few thousand points).
//
// Sample cache.  r3_law_cache keeps the samples ascending, so a lookup can stop at the
// first sample beyond t.  Its ordering pass is a selection pass that overwrites a
// duplicate with the current last value and does not compare that value with the
// position again: a triple of near-equal values can survive as two.  It is kept exactly
// so; callers pass distinct parameters.
#include "lawutil/law_data_geom.hpp"

#include <cmath>
#include <new>

#include "lawutil/law_base.hpp"
#include "lawutil/root.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(path_law_data)
LAWUTIL_TYPE_DEF(base_curve_law_data)
LAWUTIL_TYPE_DEF(base_pcurve_law_data)
LAWUTIL_TYPE_DEF(base_wire_law_data)
LAWUTIL_TYPE_DEF(base_surface_law_data)
LAWUTIL_TYPE_DEF(base_pattern_law_data)
LAWUTIL_TYPE_DEF(base_transform_law_data)
LAWUTIL_TYPE_DEF(base_position_array_law_data)

// ================================================================ path_law_data

path_law_data::path_law_data(double start, double end) : start_(start), end_(end) {}

path_law_data::path_law_data(const path_law_data& other)
    : law_data(), start_(other.start_), end_(other.end_) {}

path_law_data& path_law_data::operator=(const path_law_data& other) {
    start_ = other.start_;
    end_ = other.end_;
    return *this;
}

int path_law_data::singularities(double** where, int** order, double lo, double hi) const {
    *where = nullptr;
    *order = nullptr;
    return sort_singularities(where, order, 0, lo, hi);
}

// ================================================================ base_pattern_law_data

transf base_pattern_law_data::transform_at(double x) const {
    int n = num_elements();
    if (n <= 0) return transf();
    double k = std::trunc(x);
    int i = !(k > 0.0) ? 0 : (k >= n - 1 ? n - 1 : (int)k);
    return get_transf(i);
}

// ================================================================ base_transform_law_data

base_transform_law_data::base_transform_law_data(const transf* T)
    : transform_(nullptr), inverse_(nullptr) {
    if (!T) return;
    transform_ = VORX_NEW transf(*T);
    inverse_ = VORX_NEW transf(T->inverse());
}

base_transform_law_data::~base_transform_law_data() noexcept(false) {
    delete transform_;
    delete inverse_;
}

law_data* base_transform_law_data::deep_copy(pointer_map*) const {
    return VORX_NEW base_transform_law_data(transform_);
}

void base_transform_law_data::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self && !acc.addSize(this, sizeof(*this), __FILE__, __LINE__)) return;
    if (transform_) acc.addSize(transform_, sizeof(transf), __FILE__, __LINE__);
    if (inverse_) acc.addSize(inverse_, sizeof(transf), __FILE__, __LINE__);
}

position base_transform_law_data::transform(const position& p) const {
    return transform_ ? p * *transform_ : p;
}
vector base_transform_law_data::rotate(const vector& v) const {
    return transform_ ? v * *transform_ : v;
}
position base_transform_law_data::transform_inverse(const position& p) const {
    return inverse_ ? p * *inverse_ : p;
}
vector base_transform_law_data::rotate_inverse(const vector& v) const {
    return inverse_ ? v * *inverse_ : v;
}

// The parser reads "TRANSn" as the n-th data argument (the transform laws take it).
static law_data_prototype<base_transform_law_data> base_transform_law_data_prototype(
    static_cast<const transf*>(nullptr));

// ================================================================ base_position_array_law_data

namespace {

// The number of points of a lattice, checked: LAW_DIM for a count below 1 or a product
// beyond what an int index reaches.
int lattice_size(const int* counts, int naxes) {
    if (naxes < 0 || (naxes > 0 && !counts)) sys_error(LAW_DIM);
    long long size = 1;
    for (int a = 0; a < naxes; ++a) {
        if (counts[a] < 1) sys_error(LAW_DIM);
        size *= counts[a];
        if (size > (1 << 26)) sys_error(LAW_DIM);
    }
    return (int)size;
}

}  // namespace

base_position_array_law_data::base_position_array_law_data(const position* pts, const int* counts,
                                                           int naxes)
    : points_(nullptr), counts_(nullptr), naxes_(naxes), size_(lattice_size(counts, naxes)) {
    if (naxes_ == 0) return;
    if (!pts) sys_error(LAW_DIM);
    counts_ = VORX_ALLOC_ARRAY(int, naxes_);
    for (int a = 0; a < naxes_; ++a) counts_[a] = counts[a];
    points_ = VORX_ALLOC_ARRAY(position, size_);
    for (int i = 0; i < size_; ++i) new (&points_[i]) position(pts[i]);
}

base_position_array_law_data::~base_position_array_law_data() noexcept(false) {
    VORX_FREE(points_);
    VORX_FREE(counts_);
}

law_data* base_position_array_law_data::deep_copy(pointer_map*) const {
    return VORX_NEW base_position_array_law_data(points_, counts_, naxes_);
}

void base_position_array_law_data::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self && !acc.addSize(this, sizeof(*this), __FILE__, __LINE__)) return;
    if (points_) acc.addSize(points_, (unsigned)(sizeof(position) * size_), __FILE__, __LINE__);
    if (counts_) acc.addSize(counts_, (unsigned)(sizeof(int) * naxes_), __FILE__, __LINE__);
}

int base_position_array_law_data::get_data_size() const {
    return size_;
}

void base_position_array_law_data::index_to_xyz(int i, int& x, int& y, int& z) const {
    x = y = z = 0;
    if (naxes_ != 3) return;
    int plane = counts_[0] * counts_[1];
    z = i / plane;
    y = (i % plane) / counts_[0];
    x = i % counts_[0];
}

double base_position_array_law_data::Distance(int i, int j) const {
    return (points_[i] - points_[j]).len();
}

void base_position_array_law_data::reset_point(int i) {
    if (naxes_ != 3 || i < 0 || i >= size_) return;
    int xyz[3];
    index_to_xyz(i, xyz[0], xyz[1], xyz[2]);
    double c[3];
    // x/(n-1) along each axis; a single layer sits at 1.0.
    for (int a = 0; a < 3; ++a) c[a] = counts_[a] == 1 ? 1.0 : (double)xyz[a] / (counts_[a] - 1);
    points_[i] = position(c);
}

void base_position_array_law_data::update_point(const int* which, int nwhich, const vector& move,
                                                double falloff) {
    if (falloff > 1.0) falloff = 1.0;
    if (falloff > 0.0 && nwhich < size_ && naxes_ == 3) {
        double* ratios = VORX_ALLOC_ARRAY(double, size_);
        try {
            calc_movement_ratios(which, nwhich, falloff, ratios);
        } catch (...) {
            VORX_FREE(ratios);
            throw;
        }
        for (int i = 0; i < size_; ++i) points_[i] = points_[i] + ratios[i] * move;
        VORX_FREE(ratios);
        return;
    }
    for (int k = 0; k < nwhich; ++k)
        if (which[k] >= 0 && which[k] < size_) points_[which[k]] = points_[which[k]] + move;
}

void base_position_array_law_data::calc_movement_ratios(const int* which, int nwhich,
                                                        double falloff, double* ratios) const {
    // ratios doubles as the distance table; two flag arrays mark the active points.
    double* dist = ratios;
    char* active = VORX_ALLOC_ARRAY(char, 2 * (size_t)size_);
    char* next = active + size_;
    for (int i = 0; i < size_; ++i) {
        dist[i] = -1.0;
        active[i] = 0;
    }
    for (int k = 0; k < nwhich; ++k)
        if (which[k] >= 0 && which[k] < size_) {
            dist[which[k]] = 0.0;
            active[which[k]] = 1;
        }
    const int nx = counts_[0], ny = counts_[1], nz = counts_[2];
    const int step[3] = {1, nx, nx * ny};
    const int count[3] = {nx, ny, nz};
    for (bool changed = true; changed;) {
        changed = false;
        for (int i = 0; i < size_; ++i) next[i] = 0;
        for (int i = 0; i < size_; ++i) {
            if (!active[i]) continue;
            int at[3];
            index_to_xyz(i, at[0], at[1], at[2]);
            for (int a = 0; a < 3; ++a)
                for (int dir = -1; dir <= 1; dir += 2) {
                    int c = at[a] + dir;
                    if (c < 0 || c >= count[a]) continue;
                    int j = i + dir * step[a];
                    double d = dist[i] + Distance(i, j);
                    if (dist[j] < 0.0 || d < dist[j]) {
                        dist[j] = d;
                        next[j] = 1;
                        changed = true;
                    }
                }
        }
        for (int i = 0; i < size_; ++i) active[i] = next[i];
    }
    VORX_FREE(active);
    double D = 0.0;
    for (int i = 0; i < size_; ++i)
        if (dist[i] > D) D = dist[i];
    for (int i = 0; i < size_; ++i) {
        if (std::fabs(D) > 1e-6) {
            // ratio = 1 - d / D / falloff, at least 0
            double r = 1.0 - dist[i] / D / falloff;
            ratios[i] = r < 0.0 ? 0.0 : r;
        } else {
            ratios[i] = 1.0;
        }
    }
}

// ================================================================ r3_law_cache

r3_law_cache::~r3_law_cache() {
    clear();
}

void r3_law_cache::clear() {
    VORX_FREE(samples_);
    samples_ = nullptr;
    count_ = 0;
    law_remove(law_);
    law_ = nullptr;
}

void r3_law_cache::setup(law* L, int n, const double* params, const interval& range) {
    if (!L) return;
    if (L->return_dim() != 3 && L->take_dim() != 1) return;
    law_holder keep = law_holder::share(L);
    clear();
    law_ = keep.release();
    range_ = range;
    scale_ = range.length();
    if (n <= 0 || !params) return;
    double* p = VORX_ALLOC_ARRAY(double, n);
    for (int i = 0; i < n; ++i) p[i] = params[i];
    // Selection pass: smaller values are swapped in; a duplicate of position i is
    // overwritten by the last value, which is not compared with position i again.
    for (int i = 0; i < n; ++i)
        for (int j = i + 1; j < n; ++j) {
            if (p[i] - p[j] > resabs) {
                double t = p[i];
                p[i] = p[j];
                p[j] = t;
            } else if (std::fabs(p[i] - p[j]) <= resabs) {
                p[j] = p[n - 1];
                --n;
            }
        }
    samples_ = VORX_ALLOC_ARRAY(derivs_data, n > 0 ? n : 1);
    for (int i = 0; i < n; ++i) new (&samples_[i]) derivs_data();
    try {
        for (int i = 0; i < n; ++i) {
            samples_[i].set(law_, p[i], scale_);
            count_ = i + 1;
        }
    } catch (...) {
        VORX_FREE(p);
        throw;
    }
    VORX_FREE(p);
}

void r3_law_cache::evaluate(double t, vector& P, vector& D1, vector& D2, vector& D3) const {
    for (int i = 0; i < count_; ++i) {
        int g = samples_[i].get(t, P, D1, D2, D3);
        if (g == -1) break;
        if (g == 1) return;
    }
    if (!law_) return;
    derivs_data fresh;
    fresh.eval(law_, t, scale_, P, D1, D2, D3);
}

}  // namespace lawutil
