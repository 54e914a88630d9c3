// The tensor-product spline surface.  Patch caches: the Bezier net of a patch comes from
// blossoming twice, first every u row of the patch's local control net to its Bezier
// points (sw_span_to_bezier), then every resulting row in v; the power form follows from
// the Bezier form by c_k = C(p,k) sum_i (-1)^(k-i) C(k,i) b_i in each direction.  Both are
// exact conversions, filled once for all patches on the first evaluation.
#include "lawutil/sw_surface.hpp"

#include <algorithm>
#include <cmath>

#include "base/errors.hpp"
#include "base/lists.hpp"
#include "lawutil/main_law_err.hpp"
#include "lawutil/sw_common.hpp"

using namespace vorx;

namespace lawutil {

namespace {

double binomial(int n, int k) {
    double r = 1.0;
    for (int i = 1; i <= k; ++i) r = r * (n - k + i) / i;
    return r;
}

// Bezier points b_0..b_p (3 doubles each, `stride` apart) to power coefficients in place.
void bezier_to_power(double* b, int p, int stride) {
    double c[(sw_max_degree + 1) * 3];
    for (int k = 0; k <= p; ++k)
        for (int d = 0; d < 3; ++d) {
            double sum = 0.0;
            for (int i = 0; i <= k; ++i)
                sum += ((k - i) % 2 ? -1.0 : 1.0) * binomial(k, i) * b[i * stride + d];
            c[3 * k + d] = binomial(p, k) * sum;
        }
    for (int k = 0; k <= p; ++k)
        for (int d = 0; d < 3; ++d) b[k * stride + d] = c[3 * k + d];
}

void check_knots(const double* U, int count, int p, int n) {
    if (!U) sys_error(LAW_BAD_DOMAN);
    for (int i = 0; i < count; ++i)
        if (!std::isfinite(U[i]) || (i > 0 && U[i] < U[i - 1])) sys_error(LAW_BAD_DOMAN);
    if (!(U[n] > U[p])) sys_error(LAW_BAD_DOMAN);
}

// The knot indices k (p <= k < n) that start a span of positive length.
int list_spans(const double* U, int p, int n, int* out) {
    int m = 0;
    for (int k = p; k < n; ++k)
        if (U[k + 1] > U[k]) out[m++] = k;
    return m;
}

}  // namespace

sw_surface::sw_surface(int nu, int nv, int pu, int pv, const double* knots_u, const double* knots_v,
                       const double* points)
    : nu_(nu), nv_(nv), pu_(pu), pv_(pv) {
    if (pu < 1 || pv < 1 || pu > sw_max_degree || pv > sw_max_degree || nu < pu + 1 || nv < pv + 1)
        sys_error(SW_BAD_ORDER);
    check_knots(knots_u, nu + pu + 1, pu, nu);
    check_knots(knots_v, nv + pv + 1, pv, nv);
    if (!points) sys_error(LAW_BAD_RANGE);
    for (int i = 0; i < 3 * nu * nv; ++i)
        if (!std::isfinite(points[i])) sys_error(LAW_BAD_RANGE);
    const int ku = nu + pu + 1, kv = nv + pv + 1;
    data_ = VORX_ALLOC_ARRAY(double, ku + kv + 3 * nu * nv);
    std::copy(knots_u, knots_u + ku, data_);
    std::copy(knots_v, knots_v + kv, data_ + ku);
    std::copy(points, points + 3 * nu * nv, data_ + ku + kv);
    span_u_ = VORX_ALLOC_ARRAY(int, nu + nv);
    span_v_ = span_u_ + nu;
    npu_ = list_spans(get_knots_u(), pu, nu, span_u_);
    npv_ = list_spans(get_knots_v(), pv, nv, span_v_);
}

sw_surface::~sw_surface() {
    VORX_FREE(data_);
    VORX_FREE(span_u_);
    if (bezier_) VORX_FREE(bezier_);
    if (power_) VORX_FREE(power_);
}

sw_surface* sw_surface::copy_surface() const {
    return VORX_NEW sw_surface(nu_, nv_, pu_, pv_, get_knots_u(), get_knots_v(),
                               get_control_points());
}

void sw_surface::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self) acc.addSize(this, sizeof(*this), __FILE__, __LINE__);
    int block = nu_ + pu_ + 1 + nv_ + pv_ + 1 + 3 * nu_ * nv_;
    acc.addSize(data_, (unsigned)(block * sizeof(double)), __FILE__, __LINE__);
    acc.addSize(span_u_, (unsigned)((nu_ + nv_) * sizeof(int)), __FILE__, __LINE__);
    unsigned cache = (unsigned)(3 * (pu_ + 1) * (pv_ + 1) * npu_ * npv_ * sizeof(double));
    if (bezier_) acc.addSize(bezier_, cache, __FILE__, __LINE__);
    if (power_) acc.addSize(power_, cache, __FILE__, __LINE__);
}

void sw_surface::fill_caches() const {
    const int w = (pu_ + 1) * (pv_ + 1) * 3, patches = npu_ * npv_;
    bezier_ = VORX_ALLOC_ARRAY(double, (size_t)w* patches);
    power_ = VORX_ALLOC_ARRAY(double, (size_t)w* patches);
    const double* P = get_control_points();
    double rows[(sw_max_degree + 1) * (sw_max_degree + 1) * 3];
    double bu[(sw_max_degree + 1) * 3];
    for (int a = 0; a < npu_; ++a)
        for (int b = 0; b < npv_; ++b) {
            const int ku = span_u_[a], kv = span_v_[b];
            // Column j of the local net to Bezier form in u: rows[r][j].
            for (int j = 0; j <= pv_; ++j) {
                sw_span_to_bezier(get_knots_u(), pu_, ku, P + 3 * ((ku - pu_) * nv_ + kv - pv_ + j),
                                  3 * nv_, 3, bu);
                for (int r = 0; r <= pu_; ++r)
                    std::copy(bu + 3 * r, bu + 3 * r + 3, rows + 3 * (r * (pv_ + 1) + j));
            }
            double* B = bezier_ + (size_t)w * (a * npv_ + b);
            for (int r = 0; r <= pu_; ++r)
                sw_span_to_bezier(get_knots_v(), pv_, kv, rows + 3 * r * (pv_ + 1), 3, 3,
                                  B + 3 * r * (pv_ + 1));
            double* C = power_ + (size_t)w * (a * npv_ + b);
            std::copy(B, B + w, C);
            for (int r = 0; r <= pu_; ++r) bezier_to_power(C + 3 * r * (pv_ + 1), pv_, 3);
            for (int s = 0; s <= pv_; ++s) bezier_to_power(C + 3 * s, pu_, 3 * (pv_ + 1));
        }
}

void sw_surface::get_bezier_patch(int a, int b, double* out) const {
    if (a < 0 || b < 0 || a >= npu_ || b >= npv_) sys_error(SW_SURFACE_EVAL);
    if (!bezier_) fill_caches();
    const int w = (pu_ + 1) * (pv_ + 1) * 3;
    std::copy(bezier_ + (size_t)w * (a * npv_ + b), bezier_ + (size_t)w * (a * npv_ + b + 1), out);
}

void sw_surface::get_power_patch(int a, int b, double* out) const {
    if (a < 0 || b < 0 || a >= npu_ || b >= npv_) sys_error(SW_SURFACE_EVAL);
    if (!power_) fill_caches();
    const int w = (pu_ + 1) * (pv_ + 1) * 3;
    std::copy(power_ + (size_t)w * (a * npv_ + b), power_ + (size_t)w * (a * npv_ + b + 1), out);
}

int sw_surface::find_patch(const int* starts, int count, const double* knots, double t) const {
    // The last patch whose start is at most t.
    int lo = 0, hi = count - 1;
    while (lo < hi) {
        const int mid = (lo + hi + 1) / 2;
        if (knots[starts[mid]] <= t)
            lo = mid;
        else
            hi = mid - 1;
    }
    return lo;
}

void sw_surface::eval(double u, double v, position* P, vector* Su, vector* Sv, vector* Suu,
                      vector* Suv, vector* Svv) const {
    const double eps = 1e-10;
    if (!(u >= get_min_u() - eps && u <= get_max_u() + eps && v >= get_min_v() - eps &&
          v <= get_max_v() + eps))
        sys_error(SW_SURFACE_EVAL);
    u = std::min(std::max(u, get_min_u()), get_max_u());
    v = std::min(std::max(v, get_min_v()), get_max_v());
    if (!power_) fill_caches();
    const double *U = get_knots_u(), *V = get_knots_v();
    const int a = find_patch(span_u_, npu_, U, u), b = find_patch(span_v_, npv_, V, v);
    const int ku = span_u_[a], kv = span_v_[b];
    const double hu = U[ku + 1] - U[ku], hv = V[kv + 1] - V[kv];
    const double s = (u - U[ku]) / hu, t = (v - V[kv]) / hv;
    // Powers of s and t with their first and second derivatives.
    double ps[3][sw_max_degree + 1], pt[3][sw_max_degree + 1];
    for (int k = 0; k <= sw_max_degree; ++k) {
        ps[0][k] = k == 0 ? 1.0 : ps[0][k - 1] * s;
        pt[0][k] = k == 0 ? 1.0 : pt[0][k - 1] * t;
        ps[1][k] = k == 0 ? 0.0 : k * ps[0][k - 1];
        pt[1][k] = k == 0 ? 0.0 : k * pt[0][k - 1];
        ps[2][k] = k < 2 ? 0.0 : k * (k - 1) * ps[0][k - 2];
        pt[2][k] = k < 2 ? 0.0 : k * (k - 1) * pt[0][k - 2];
    }
    const double* C = power_ + (size_t)(pu_ + 1) * (pv_ + 1) * 3 * (a * npv_ + b);
    // out[i] = sum c[r][q] s^(r)(du) t^(q)(dv) for the orders (du, dv) of output i.
    const int orders[6][2] = {{0, 0}, {1, 0}, {0, 1}, {2, 0}, {1, 1}, {0, 2}};
    const double scale[6] = {1, 1 / hu, 1 / hv, 1 / (hu * hu), 1 / (hu * hv), 1 / (hv * hv)};
    double out[6][3] = {};
    const bool want[6] = {P != nullptr,   Su != nullptr,  Sv != nullptr,
                          Suu != nullptr, Suv != nullptr, Svv != nullptr};
    for (int o = 0; o < 6; ++o) {
        if (!want[o]) continue;
        for (int r = 0; r <= pu_; ++r)
            for (int q = 0; q <= pv_; ++q) {
                const double f = ps[orders[o][0]][r] * pt[orders[o][1]][q] * scale[o];
                for (int d = 0; d < 3; ++d) out[o][d] += f * C[3 * (r * (pv_ + 1) + q) + d];
            }
    }
    if (P) *P = position(out[0][0], out[0][1], out[0][2]);
    vector* vs[6] = {nullptr, Su, Sv, Suu, Suv, Svv};
    for (int o = 1; o < 6; ++o)
        if (vs[o]) *vs[o] = vector(out[o][0], out[o][1], out[o][2]);
}

}  // namespace lawutil
