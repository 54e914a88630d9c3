// The library's own spline curve as curve data of a law ("SWEDGE").  It answers the
// point and the first two derivatives; the curvature, length and perpendicular queries
// forward to the curve, which implements none of them and raises its NO_SW_* error.
#pragma once

#include "lawutil/law_data_geom.hpp"
#include "lawutil/sw_curve.hpp"

namespace lawutil {

class sw_curve_law_data : public base_curve_law_data {
    LAWUTIL_TYPE_DECL(sw_curve_law_data, base_curve_law_data)
    // Keeps a copy of `c`.
    sw_curve_law_data(const sw_curve& c, double start, double end);

    // The registered prototype only: no curve, nothing to evaluate.
    sw_curve_law_data();

    const sw_curve* curve() const { return curve_; }

    const char* symbol(law_symbol_type) const override { return "SWEDGE"; }
    int date() const override { return 60100; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    // A new sw_curve_law_data over a copy of the curve with r's ends; this one is
    // untouched.
    law_data* set_domain(vorx::interval* r) const override;
    void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const override;

    // nderiv 0, 1 or 2; more raise LAW_DATA_CURVE.  The side is not used.
    vorx::vector eval(double t, int nderiv = 0, int side = 0) const override;
    double curvature(double t) const override;
    double length_param(double base, double length) const override;
    double length(double from, double to) const override;
    double point_perp(const vorx::position& p, double guess) const override;
    double point_perp(const vorx::position& p) const override;

  protected:
    ~sw_curve_law_data() noexcept(false) override;

  private:
    sw_curve* curve_;
};

// The curve over its whole range as a law CUR over a copy of it: one input, three
// outputs.  The caller owns the returned law.
law* sw_curve_to_law(const sw_curve& c);

}  // namespace lawutil
