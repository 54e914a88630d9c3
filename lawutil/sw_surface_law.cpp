#include "lawutil/sw_surface_law.hpp"

#include <algorithm>
#include <cmath>

#include "base/lists.hpp"
#include "lawutil/law_unary_data.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(sw_surface_law_data)

sw_surface_law_data::sw_surface_law_data(const sw_surface& s) : surface_(s.copy_surface()) {}

sw_surface_law_data::sw_surface_law_data() : surface_(nullptr) {}

sw_surface_law_data::~sw_surface_law_data() noexcept(false) {
    delete surface_;
}

const sw_surface& sw_surface_law_data::checked() const {
    if (!surface_) sys_error(LAW_DATA_UNKNOWN);
    return *surface_;
}

law_data* sw_surface_law_data::deep_copy(pointer_map*) const {
    return VORX_NEW sw_surface_law_data(checked());
}

void sw_surface_law_data::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self && !acc.addSize(this, sizeof(*this), __FILE__, __LINE__)) return;
    if (surface_) surface_->full_size(acc, 1);
}

position sw_surface_law_data::eval_position(const par_pos& uv) const {
    position P;
    checked().eval(uv.u(), uv.v(), &P);
    return P;
}

void sw_surface_law_data::eval(const par_pos& uv, position& P, vector* first,
                               vector* second) const {
    checked().eval(uv.u(), uv.v(), &P, first ? &first[0] : nullptr, first ? &first[1] : nullptr,
                   second ? &second[0] : nullptr, second ? &second[1] : nullptr,
                   second ? &second[2] : nullptr);
}

// n = Su x Sv / |Su x Sv|; undefined when |Su x Sv| is lost against |Su| |Sv|.
static vector checked_normal(const vector& Su, const vector& Sv) {
    vector n = Su * Sv;
    double w = n.len();
    if (!(w > 1e-12 * Su.len() * Sv.len()) || !(w > 0.0)) sys_error(LAW_BAD_UNIT_VECTOR);
    return n / w;
}

unit_vector sw_surface_law_data::eval_normal(const par_pos& uv) const {
    position P;
    vector d[2];
    eval(uv, P, d, nullptr);
    vector n = checked_normal(d[0], d[1]);
    return unit_vector(n.x(), n.y(), n.z());
}

// K = (LN - M^2) / W^2, H = (EN - 2FM + GL) / (2 W^2) with W^2 = EG - F^2 = |Su x Sv|^2
void sw_surface_law_data::curvatures(const par_pos& uv, double& K, double& H) const {
    position P;
    vector d[2], dd[3];
    eval(uv, P, d, dd);
    vector n = checked_normal(d[0], d[1]);
    double E = d[0] % d[0], F = d[0] % d[1], G = d[1] % d[1];
    double L = dd[0] % n, M = dd[1] % n, N = dd[2] % n;
    double W2 = (d[0] * d[1]) % (d[0] * d[1]);
    K = (L * N - M * M) / W2;
    H = (E * N - 2 * F * M + G * L) / (2 * W2);
}

double sw_surface_law_data::gaussian_curvature(const par_pos& uv) const {
    double K, H;
    curvatures(uv, K, H);
    return K;
}
double sw_surface_law_data::mean_curvature(const par_pos& uv) const {
    double K, H;
    curvatures(uv, K, H);
    return H;
}
// k = H +- sqrt(H^2 - K); rounding can make H^2 - K slightly negative at an umbilic
double sw_surface_law_data::max_curvature(const par_pos& uv) const {
    double K, H;
    curvatures(uv, K, H);
    return H + std::sqrt(std::max(0.0, H * H - K));
}
double sw_surface_law_data::min_curvature(const par_pos& uv) const {
    double K, H;
    curvatures(uv, K, H);
    return H - std::sqrt(std::max(0.0, H * H - K));
}

position sw_surface_law_data::approx_position(const par_pos& uv) const {
    return eval_position(uv);
}

bool sw_surface_law_data::param_range(interval& u, interval& v) const {
    const sw_surface& s = checked();
    u = interval(s.get_min_u(), s.get_max_u());
    v = interval(s.get_min_v(), s.get_max_v());
    return true;
}

law* sw_surface_to_law(const sw_surface& s) {
    law_data_holder d(VORX_NEW sw_surface_law_data(s));
    return VORX_NEW surface_law(d.get());
}

// The parser reads "SWSURFn" as the n-th data argument.
static law_data_prototype<sw_surface_law_data> sw_surface_law_data_prototype;

}  // namespace lawutil
