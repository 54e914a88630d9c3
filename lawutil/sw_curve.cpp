// The spline curve: packed storage, lazy Bezier caches and the evaluator.
//
// Storage.  One tracked allocation, `data_`, holds the entity-126 block; `knots_`,
// `weights_`, `points_` and `normal_` point into it, and the range lives both in the block
// (after the points) and in `min_t_`/`max_t_`, which are written back together.  Every
// constructor validates its input before it allocates, so a bad curve raises without
// having taken any memory; the public constructors delegate to one that sets only counts
// and flags, so the destructor owns whatever they adopted if a later check raises.
// Assignment copies the new block before it drops the old one.
//
// Caches.  Evaluation works on Bezier forms of the spans, not on the B-spline directly:
// a span of a polynomial curve keeps its p + 1 Bezier points and the Bezier points of its
// first and second derivative forms (p and p - 1 of them, already multiplied by p and
// p - 1), so a point or a derivative is one Bernstein sum.  A rational span keeps its
// p + 1 weighted points (w·x, w·y, w·z, w); its derivatives come from differences of those
// taken during the sum and the quotient rule.  Invariants:
//   - caches_valid_ == 1 exactly when the cache arrays hold the spans of the present block;
//   - anything that changes the block (set_control_point, assignment) drops the caches, and
//     a copy starts without them; the next eval fills them (check_caches);
//   - the arrays are sized from n and p alone, so filling never depends on the values;
//     the point cache is allocated last, so a non-null point cache means a complete set;
//   - `scratch_` (binomial rows and the conversion's working room) lives with the caches,
//     so neither filling nor evaluating allocates anything else.
// Each span is converted by blossoming: the Bezier point m of span [a, b] is the blossom of
// the span's p + 1 control points at (a × (p - m), b × m), computed with de Boor's
// recurrence over the span's 2p neighbouring knots.  The recurrence only divides by knot
// differences that contain the span itself, so a span of positive length never divides
// by zero; spans of zero length are never evaluated and are left zero.
//
// Span search.  The rule is a forward walk: from the span found last time (or from span 0
// when t lies below that span's start), take the first span whose start - 1e-10 is at most
// t, whose end + 1e-10 is at least t and whose length exceeds 1e-10.  Knots never
// decrease, so "end + 1e-10 >= t" holds on a tail of the spans and "start - 1e-10 <= t" on
// a head; the walk's answer is therefore the first span of positive length from the first
// span of that tail (no earlier than the start span) while the head condition holds.
// find_span tries the start span and the next one, and otherwise bisects the rest for that
// first tail span, which gives the walk's answer in O(log spans) probes.  Samples at rising
// parameters hit the remembered span itself, checked inline before any search, or cross a
// knot into the next span, which the second probe finds: no search over the spans.  An evaluation
// allocates nothing once the caches are filled (tests/test_sw_curve.cpp counts the allocations).
#include "lawutil/sw_curve.hpp"

#include <climits>
#include <cmath>

#include "base/errors.hpp"
#include "base/lists.hpp"
#include "base/output.hpp"
#include "lawutil/main_law_err.hpp"
#include "lawutil/sw_curve_util.hpp"

using namespace vorx;

namespace lawutil {

namespace {

// Parameters closer than this are the same parameter.
constexpr double knot_tol = 1e-10;

bool finite_all(const double* v, long count) {
    for (long i = 0; i < count; ++i)
        if (!std::isfinite(v[i])) return false;
    return true;
}

// n, once the counts are known to describe a curve (the other counts derive from it).
int checked_count(int n, int p) {
    if (p < 0 || n < p + 1) sys_error(SW_BAD_ORDER);
    // The block length must fit the int that get_data_size returns.
    if ((long long)n * 5 + p + 6 > INT_MAX) sys_error(SW_BAD_ORDER);
    return n;
}

void check_parts(int n, int p, int polynomial, const double* knots, const double* weights,
                 const double* points) {
    if (!knots) sys_error(LAW_BAD_DOMAN);
    if (!points) sys_error(LAW_BAD_RANGE);
    int nk = n + p + 1;
    if (!finite_all(knots, nk)) sys_error(LAW_BAD_BOUNDS);
    for (int i = 1; i < nk; ++i)
        if (knots[i] < knots[i - 1]) sys_error(LAW_BAD_DOMAN);
    // The spans between knot p and knot n must have some length to evaluate on.
    if (!(knots[n] > knots[p])) sys_error(LAW_BAD_DOMAN);
    if (polynomial != 1 && weights)
        for (int i = 0; i < n; ++i)
            if (!(std::isfinite(weights[i]) && weights[i] > 0.0)) sys_error(SW_BAD_WEIGHTS);
    if (!finite_all(points, 3L * n)) sys_error(LAW_BAD_RANGE);
}

double* new_doubles(long count) {
    return count > 0 ? VORX_ALLOC_ARRAY(double, count) : nullptr;
}

// sum_{i=0}^{d} C(d,i) s^i (1-s)^(d-i) c_i over Dim-wide coefficients c_i, where c_i is
// the Order-th forward difference of the points `b` (Order 0: the points themselves).
// Horner-like in (1 - s): acc <- acc·(1 - s) + C(d,i)·s^i·c_i, stable on [0, 1] and O(d).
template <int Dim, int Order>
inline void bernstein(const double* b, int d, const double* binom, double s, double* out) {
    auto coef = [b](int i, int j) {
        const double* q = b + i * Dim + j;
        if (Order == 0) return q[0];
        if (Order == 1) return q[Dim] - q[0];
        return q[2 * Dim] - 2.0 * q[Dim] + q[0];
    };
    double acc[Dim];
    for (int j = 0; j < Dim; ++j) acc[j] = coef(0, j);
    double u = 1.0 - s, sp = 1.0;
    for (int i = 1; i <= d; ++i) {
        sp *= s;
        double c = binom[i] * sp;
        for (int j = 0; j < Dim; ++j) acc[j] = acc[j] * u + c * coef(i, j);
    }
    for (int j = 0; j < Dim; ++j) out[j] = acc[j];
}

// The blossom of the control points cp[0..p] (Dim-wide) of the span starting at knot j at
// the arguments (a × (p - m), b × m), by de Boor's recurrence; `work` holds p + 1 points.
template <int Dim>
void blossom(const double* k, int j, int p, int m, double a, double b, const double* cp,
             double* work, double* out) {
    for (int l = 0; l < (p + 1) * Dim; ++l) work[l] = cp[l];
    for (int r = 1; r <= p; ++r) {
        double u = r <= p - m ? a : b;
        // Level r keeps control points l = j - p + r .. j; work slot l - (j - p).
        for (int l = j; l >= j - p + r; --l) {
            double lo = k[l], hi = k[l + p + 1 - r];
            double alpha = (u - lo) / (hi - lo);
            double* w = work + (l - (j - p)) * Dim;
            for (int c = 0; c < Dim; ++c) w[c] = (1.0 - alpha) * w[c - Dim] + alpha * w[c];
        }
    }
    for (int c = 0; c < Dim; ++c) out[c] = work[p * Dim + c];
}

}  // namespace

// ---------------------------------------------------------------- construction

// The counts and flags alone; the public constructors go on from here, so once this has
// run the destructor frees whatever they adopted, also when they raise.
sw_curve::sw_curve(counts_tag, int n, int p, int planar, int closed, int polynomial, int periodic)
    : num_ctrlpts_(checked_count(n, p)),
      degree_(p),
      num_spans_(n - p),
      num_knots_(n + p + 1),
      planar_(planar),
      closed_(closed),
      polynomial_(polynomial),
      periodic_(periodic) {}

sw_curve::sw_curve(int n, int p, int planar, int closed, int polynomial, int periodic,
                   const double* block)
    : sw_curve(counts_tag{}, n, p, planar, closed, polynomial, periodic) {
    if (!block) sys_error(LAW_BAD_DOMAN);
    check_parts(n, p, polynomial, block, block + num_knots_, block + num_knots_ + n);
    adopt_block(new_doubles(get_data_size()));
    for (int i = 0; i < get_data_size(); ++i) data_[i] = block[i];
    min_t_ = normal_[-2];
    max_t_ = normal_[-1];
    clamp_and_check_range();
}

sw_curve::sw_curve(int n, int p, int planar, int closed, int polynomial, int periodic,
                   const double* knots, const double* weights, const double* points, double min_t,
                   double max_t, const double* normal)
    : sw_curve(counts_tag{}, n, p, planar, closed, polynomial, periodic) {
    check_parts(n, p, polynomial, knots, weights, points);
    adopt_block(new_doubles(get_data_size()));
    for (int i = 0; i < num_knots_; ++i) knots_[i] = knots[i];
    for (int i = 0; i < n; ++i) weights_[i] = weights ? weights[i] : 1.0;
    for (int i = 0; i < 3 * n; ++i) points_[i] = points[i];
    for (int i = 0; i < 3; ++i) normal_[i] = normal ? normal[i] : 0.0;
    min_t_ = min_t;
    max_t_ = max_t;
    clamp_and_check_range();
}

void sw_curve::adopt_block(double* block) {
    data_ = block;
    knots_ = block;
    weights_ = knots_ + num_knots_;
    points_ = weights_ + num_ctrlpts_;
    normal_ = points_ + 3 * num_ctrlpts_ + 2;
}

void sw_curve::clamp_and_check_range() {
    if (knots_[degree_] > min_t_) min_t_ = knots_[degree_];
    if (knots_[num_ctrlpts_] < max_t_) max_t_ = knots_[num_ctrlpts_];
    if (!(std::isfinite(min_t_) && std::isfinite(max_t_) && min_t_ <= max_t_))
        sys_error(LAW_BAD_BOUNDS);
    normal_[-2] = min_t_;
    normal_[-1] = max_t_;
}

sw_curve::sw_curve(const sw_curve& other)
    : sw_curve(counts_tag{}, other.num_ctrlpts_, other.degree_, other.planar_, other.closed_,
               other.polynomial_, other.periodic_) {
    adopt_block(other.duplicate_block());
    min_t_ = other.min_t_;
    max_t_ = other.max_t_;
}

sw_curve& sw_curve::operator=(const sw_curve& other) {
    if (this == &other) return *this;
    double* block = other.duplicate_block();  // the only step that can fail: nothing changed
    delete_caches();
    VORX_FREE(data_);
    num_ctrlpts_ = other.num_ctrlpts_;
    degree_ = other.degree_;
    num_spans_ = other.num_spans_;
    num_knots_ = other.num_knots_;
    planar_ = other.planar_;
    closed_ = other.closed_;
    polynomial_ = other.polynomial_;
    periodic_ = other.periodic_;
    adopt_block(block);
    min_t_ = other.min_t_;
    max_t_ = other.max_t_;
    last_span_ = 0;
    return *this;
}

double* sw_curve::duplicate_block() const {
    double* block = new_doubles(get_data_size());
    for (int i = 0; i < get_data_size(); ++i) block[i] = data_[i];
    return block;
}

sw_curve::~sw_curve() {
    delete_caches();
    VORX_FREE(data_);
}

sw_curve* sw_curve::copy_curve() const {
    return VORX_NEW sw_curve(*this);
}

void sw_curve::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self) acc.addSize(this, sizeof(*this), __FILE__, __LINE__);
    acc.addSize(data_, (unsigned)(get_data_size() * sizeof(double)), __FILE__, __LINE__);
}

// ---------------------------------------------------------------- control points

void sw_curve::set_control_point(int i, const double* xyz) {
    if (i < 0 || i >= num_ctrlpts_ || !xyz || !finite_all(xyz, 3)) sys_error(LAW_BAD_RANGE);
    for (int c = 0; c < 3; ++c) points_[3 * i + c] = xyz[c];
    delete_caches();
}

void sw_curve::get_control_point(int i, double* xyz) const {
    if (i < 0 || i >= num_ctrlpts_ || !xyz) sys_error(LAW_BAD_RANGE);
    for (int c = 0; c < 3; ++c) xyz[c] = points_[3 * i + c];
}

// ---------------------------------------------------------------- caches

void sw_curve::init_caches() const {
    if (point_cache_) return;
    // A fill that failed part way leaves pieces: start clean.
    delete_caches();
    const long p = degree_, spans = num_spans_;
    // Binomial rows (3p + 1 at most), then room for one span's control points and de Boor's
    // rows during conversion (2 × (p + 1) points of four doubles).
    scratch_ = new_doubles(3 * p + 1 + 8 * (p + 1));
    first_cache_ = new_doubles(polynomial_ == 1 ? spans * p * 3 : 0);
    second_cache_ = new_doubles(polynomial_ == 1 && p >= 2 ? spans * (p - 1) * 3 : 0);
    // Last: a non-null point cache means the whole set is there.
    point_cache_ = new_doubles(spans * (p + 1) * (polynomial_ == 1 ? 3 : 4));
    // Rows of Pascal's triangle for degrees p, p - 1, p - 2.
    double* row = scratch_;
    for (long d = p; d >= 0 && d >= p - 2; --d) {
        row[0] = 1.0;
        for (long i = 1; i <= d; ++i) row[i] = row[i - 1] * (double)(d - i + 1) / (double)i;
        row += d + 1;
    }
}

void sw_curve::set_caches() const {
    init_caches();
    const int p = degree_, dim = polynomial_ == 1 ? 3 : 4;
    double* cp = scratch_ + 3 * p + 1;  // the span's control points, then de Boor's rows
    double* rows = cp + (p + 1) * 4;
    for (int i = 0; i < num_spans_; ++i) {
        const int j = p + i;
        const double a = knots_[j], b = knots_[j + 1];
        double* bez = point_cache_ + (long)i * (p + 1) * dim;
        if (!(b > a)) {
            for (int l = 0; l < (p + 1) * dim; ++l) bez[l] = 0.0;
            continue;
        }
        for (int l = 0; l <= p; ++l) {
            const double* q = points_ + 3L * (i + l);
            double w = dim == 4 ? weights_[i + l] : 1.0;
            for (int c = 0; c < 3; ++c) cp[l * dim + c] = w * q[c];
            if (dim == 4) cp[l * dim + 3] = w;
        }
        for (int m = 0; m <= p; ++m) {
            if (dim == 3)
                blossom<3>(knots_, j, p, m, a, b, cp, rows, bez + m * 3);
            else
                blossom<4>(knots_, j, p, m, a, b, cp, rows, bez + m * 4);
        }
    }
    if (polynomial_ == 1) {
        // Q' = p·(Q[m+1] - Q[m]),  Q'' = (p - 1)·(R[m+1] - R[m]) over R = Q'.
        for (int i = 0; i < num_spans_; ++i) {
            const double* q = point_cache_ + (long)i * (p + 1) * 3;
            double* r = first_cache_ + (long)i * p * 3;
            for (int m = 0; m < p * 3; ++m) r[m] = p * (q[m + 3] - q[m]);
            if (p < 2) continue;
            double* r2 = second_cache_ + (long)i * (p - 1) * 3;
            for (int m = 0; m < (p - 1) * 3; ++m) r2[m] = (p - 1) * (r[m + 3] - r[m]);
        }
    }
    caches_valid_ = 1;
}

void sw_curve::delete_caches() const {
    VORX_FREE(point_cache_);
    VORX_FREE(first_cache_);
    VORX_FREE(second_cache_);
    VORX_FREE(scratch_);
    point_cache_ = first_cache_ = second_cache_ = scratch_ = nullptr;
    caches_valid_ = 0;
}

// ---------------------------------------------------------------- evaluation

int sw_curve::find_span(double t) const {
    const double* k = knots_ + degree_;  // span i runs from k[i] to k[i + 1]
    int start = last_span_;
    if (t < k[start] - knot_tol) start = 0;
    // The first span at or after `start` whose end + tol reaches t: the start span or the
    // next one (rising samples), else a branch-free bisection over the rest.
    int lo;
    if (k[start + 1] + knot_tol >= t)
        lo = start;
    else if (start + 1 < num_spans_ && k[start + 2] + knot_tol >= t)
        lo = start + 1;
    else if (start + 2 >= num_spans_)
        return -1;
    else {
        const double* end = k + start + 3;  // ends of spans start + 2 ...
        int len = num_spans_ - (start + 2);
        while (len > 1) {
            const int half = len / 2;
            end = end[half] + knot_tol < t ? end + half : end;
            len -= half;
        }
        end += *end + knot_tol < t;
        lo = (int)(end - (k + 1));
    }
    // Skip spans of no length while their start still admits t.
    for (int i = lo; i < num_spans_ && k[i] - knot_tol <= t; ++i)
        if (k[i + 1] - k[i] > knot_tol) return i;
    return -1;
}

void sw_curve::eval(double t, position* P, vector* D1, vector* D2) const {
    check_caches();
    double end;
    if (t < min_t_ - knot_tol)
        end = min_t_;
    else if (t > max_t_ + knot_tol)
        end = max_t_;
    else {
        if (t <= min_t_ + knot_tol)
            t = min_t_;
        else if (t >= max_t_ - knot_tol)
            t = max_t_;
        eval_in_range(t, P, D1, D2);
        return;
    }
    // P = P(end) + (t - end)·D1(end),  D1 = D1(end),  D2 = 0.
    position pe;
    vector de;
    eval_in_range(end, &pe, &de, nullptr);
    if (P) *P = pe + (t - end) * de;
    if (D1) *D1 = de;
    if (D2) *D2 = vector();
}

void sw_curve::eval_in_range(double t, position* P, vector* D1, vector* D2) const {
    const double* k = knots_ + degree_;
    int i = last_span_;
    if (!(k[i] - knot_tol <= t && k[i + 1] + knot_tol >= t && k[i + 1] - k[i] > knot_tol)) {
        i = find_span(t);
        if (i < 0) return;
        last_span_ = i;
    }
    const double h = k[i + 1] - k[i];
    double s;
    sw_ratio(k[i], t, k[i + 1], 0.0, s, 1.0);
    const int p = degree_;
    const double* binom_p = scratch_;
    const double* binom_p1 = binom_p + p + 1;
    const double* binom_p2 = binom_p1 + p;
    double v[4];
    if (polynomial_ == 1) {
        if (P) {
            bernstein<3, 0>(point_cache_ + (long)i * (p + 1) * 3, p, binom_p, s, v);
            *P = position(v);
        }
        if (D1) {
            if (p >= 1) {
                bernstein<3, 0>(first_cache_ + (long)i * p * 3, p - 1, binom_p1, s, v);
                *D1 = vector(v) / h;
            } else
                *D1 = vector();
        }
        if (D2) {
            if (p >= 2) {
                bernstein<3, 0>(second_cache_ + (long)i * (p - 1) * 3, p - 2, binom_p2, s, v);
                *D2 = vector(v) / (h * h);
            } else
                *D2 = vector();
        }
        return;
    }
    // Rational: A = sum of weighted points, w its last coordinate, C = A/w;
    // C' = (A' - w'·C)/w,  C'' = (A'' - 2w'·C' - w''·C)/w.
    const double* span = point_cache_ + (long)i * (p + 1) * 4;
    bernstein<4, 0>(span, p, binom_p, s, v);
    const double inv_w = 1.0 / v[3];
    const vector c(v[0] * inv_w, v[1] * inv_w, v[2] * inv_w);
    if (P) *P = position(c.x(), c.y(), c.z());
    if (!D1 && !D2) return;
    vector c1;
    double a1[4] = {0.0, 0.0, 0.0, 0.0};
    if (p >= 1) {
        bernstein<4, 1>(span, p - 1, binom_p1, s, a1);
        for (double& x : a1) x *= p;
        c1 = (vector(a1) - a1[3] * c) * inv_w;
    }
    if (D1) *D1 = c1 / h;
    if (!D2) return;
    vector c2;
    if (p >= 2) {
        double a2[4];
        bernstein<4, 2>(span, p - 2, binom_p2, s, a2);
        for (double& x : a2) x *= p * (p - 1);
        c2 = (vector(a2) - 2.0 * a1[3] * c1 - a2[3] * c) * inv_w;
    } else if (p == 1) {
        // A'' = 0 for a rational line segment; w'' = 0 as well.
        c2 = (-2.0 * a1[3] * c1) * inv_w;
    }
    *D2 = c2 / (h * h);
}

// ---------------------------------------------------------------- unimplemented queries

vector sw_curve::eval_curvature(double) const {
    sys_error(NO_SW_EVAL_CURVATURE);
}

double sw_curve::length(double, double) const {
    sys_error(NO_SW_LENGTH);
}

double sw_curve::length_param(double, double) const {
    sys_error(NO_SW_LENGTH_PARAM);
}

double sw_curve::point_perp(const position&, double) const {
    sys_error(NO_SW_POINT_PERP);
}

double sw_curve::point_perp(const position&) const {
    sys_error(NO_SW_POINT_PERP);
}

// ---------------------------------------------------------------- debug print

void sw_curve::debug() const {
    FILE* f = debug_file_ptr;
    const bool rational = polynomial_ != 1;
    vorx_fprintf(f, "#sw_curve info:\n");
    vorx_fprintf(f, "#degree: %i\n", degree_);
    vorx_fprintf(f, "#control points: %i\n", num_ctrlpts_);
    vorx_fprintf(f, "#knots: %i\n", num_knots_);
    vorx_fprintf(f, "#spans: %i\n", num_spans_);
    vorx_fprintf(f, rational ? "Rational\n" : "Polynomial\n");
    // The p + 1 knots more than there are control points are split into a leading run of
    // (p + 1)/2 and a trailing run of the rest; knot `lead + i` sits beside point i.
    const int lead = (degree_ + 1) / 2;
    for (int k = 0; k < num_knots_; ++k) {
        const int i = k - lead;
        const double knot = knots_[k];
        if (i < 0 || i >= num_ctrlpts_) {
            if (rational)
                vorx_fprintf(f,
                             "#       (                  ,                   ,                "
                             "   ),                   , %18.13lf\n",
                             knot);
            else
                vorx_fprintf(f,
                             "#       (                  ,                   ,                "
                             "   ), %18.13lf\n",
                             knot);
            continue;
        }
        const double* q = points_ + 3 * i;
        if (rational)
            vorx_fprintf(f, "#       (%18.13lf, %18.13lf, %18.13lf), %18.13lf, %18.13lf\n", q[0],
                         q[1], q[2], weights_[i], knot);
        else
            vorx_fprintf(f, "#       (%18.13lf, %18.13lf, %18.13lf), %18.13lf\n", q[0], q[1], q[2],
                         knot);
    }
}

}  // namespace lawutil
