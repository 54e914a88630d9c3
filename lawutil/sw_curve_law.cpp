#include "lawutil/sw_curve_law.hpp"

#include "base/lists.hpp"
#include "lawutil/law_unary_data.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(sw_curve_law_data)

sw_curve_law_data::sw_curve_law_data(const sw_curve& c, double start, double end)
    : base_curve_law_data(start, end), curve_(c.copy_curve()) {}

sw_curve_law_data::sw_curve_law_data() : base_curve_law_data(0.0, 0.0), curve_(nullptr) {}

sw_curve_law_data::~sw_curve_law_data() noexcept(false) {
    delete curve_;
}

law_data* sw_curve_law_data::deep_copy(pointer_map*) const {
    if (!curve_) sys_error(LAW_DATA_UNKNOWN);
    return VORX_NEW sw_curve_law_data(*curve_, start_, end_);
}

law_data* sw_curve_law_data::set_domain(interval* r) const {
    if (!r || !curve_) return deep_copy(nullptr);
    return VORX_NEW sw_curve_law_data(*curve_, r->start_pt(), r->end_pt());
}

void sw_curve_law_data::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self && !acc.addSize(this, sizeof(*this), __FILE__, __LINE__)) return;
    if (curve_) curve_->full_size(acc, 1);
}

vector sw_curve_law_data::eval(double t, int nderiv, int) const {
    if (nderiv < 0 || nderiv > 2) sys_error(LAW_DATA_CURVE);
    if (!curve_) sys_error(LAW_DATA_UNKNOWN);
    position P;
    vector D[2];
    curve_->eval(t, nderiv == 0 ? &P : nullptr, nderiv == 1 ? &D[0] : nullptr,
                 nderiv == 2 ? &D[1] : nullptr);
    return nderiv == 0 ? P - position() : D[nderiv - 1];
}

double sw_curve_law_data::curvature(double t) const {
    return curve_->eval_curvature(t).len();
}
double sw_curve_law_data::length_param(double base, double length) const {
    return curve_->length_param(base, length);
}
double sw_curve_law_data::length(double from, double to) const {
    return curve_->length(from, to);
}
double sw_curve_law_data::point_perp(const position& p, double guess) const {
    return curve_->point_perp(p, guess);
}
double sw_curve_law_data::point_perp(const position& p) const {
    return curve_->point_perp(p);
}

law* sw_curve_to_law(const sw_curve& c) {
    law_data_holder d(VORX_NEW sw_curve_law_data(c, c.get_min_t(), c.get_max_t()));
    return VORX_NEW curve_law(d.get());
}

// The parser reads "SWEDGEn" as the n-th data argument.
static law_data_prototype<sw_curve_law_data> sw_curve_law_data_prototype;

}  // namespace lawutil
