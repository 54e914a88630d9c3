// The extreme point of a surface along a direction, and laws over several curves.
//
// SURFVEC is what a sweep asks of a profile surface when it needs the point that bounds
// the swept body in a given direction: along the v iso-parameter line at u = x0, the
// point of the surface farthest along the direction law D.  The search over v is the
// library's exact one-variable maximiser, Nmax, of D(x) . S(x0, v), run on each of 8
// equal pieces of the surface's v range and the best kept (the earlier at a tie): the
// root search under Nmax can miss every critical point of a whole period.  v* is as
// exact as that search: D . S_v is below 1e-7 there, so the point is good to ~1e-8.
// v* jumps where two maxima trade places, so there is no closed form for its
// derivative: SURFVEC differentiates numerically (a derivative_law).
//
// MULTICUR and MULTICURVEPERP treat curves C1..Cn as one path run in sequence: curve i
// has range [s_i, e_i] and length of range L_i = e_i - s_i; it starts at the offset
// o_i = L_1 + ... + L_(i-1), so the path's parameter runs over [0, L_1 + ... + L_n].
// The curves need not meet end to end (the law then jumps at a join).
//
// Text form: "SURFVEC(TORUS2,VEC(0,1,0))", "MULTICUR(HELIX1,SWEDGE6)",
// "MULTICUR(HELIX1,SWEDGE6,1)" (a derivative order as a trailing law) and
// "MULTICURVEPERP(HELIX1,SWEDGE6,VEC(X,Y,Z))"; the parser reads them back when handed
// the same data array.
//
// Errors.  When a law is built: data of the wrong count or kinds raise
// LAW_DATA_UNKNOWN, a direction or point law that is not a 3-vector LAW_DIM, a surface
// without a bounded parameter range LAW_BAD_DOMAN, a curve whose range is empty or not
// finite LAW_MULTI_CURVE_DOM.  When evaluated: a zero or non-finite direction raises
// LAW_BAD_UNIT_VECTOR, a MULTICUR parameter outside [0, total] (beyond 1e-10)
// LAW_MULTI_CURVE_DOM.
#pragma once

#include "lawutil/law_unary_data.hpp"

namespace lawutil {

// SURFVEC(S, D) = S(x0, v*),  v* = argmax over v in [v0, v1] of D(x) . S(x0, v).
class surfvec_law : public multiple_data_law {
    LAWUTIL_TYPE_DECL(surfvec_law, multiple_data_law)
    LAWUTIL_MULTIPLE_DATA_MEMBERS(surfvec_law)
    // The parameter v* at x (the value is S(x0, v*)).
    double best_v(const double* x) const;
};

// MULTICUR(C1..Cn[, k]) = C_i^(k)(s_i + x - o_i) for o_i <= x < o_i + L_i (the last
// curve takes its end point too); k, the derivative order, is 0 when omitted.
class multiple_curve_law : public multiple_data_law {
    LAWUTIL_TYPE_DECL(multiple_curve_law, multiple_data_law)
    LAWUTIL_MULTIPLE_DATA_MEMBERS(multiple_curve_law)
    int curves() const { return curves_; }
    int order() const { return order_; }
    // [0, L_1 + ... + L_n].
    int term_domain(int which, vorx::interval& dom) const override;

  private:
    int curves_ = 0;
    int order_ = 0;
};

// MULTICURVEPERP(C1..Cn, p) = o_i + t_i - s_i for the curve i whose foot t_i from p(x)
// is nearest (the first at a tie): the parameter of MULTICUR(C1..Cn) at the foot of the
// perpendicular to the nearest curve, so MULTICUR(MULTICURVEPERP(p)) is that foot.
class multiple_curveperp_law : public multiple_data_law {
    LAWUTIL_TYPE_DECL(multiple_curveperp_law, multiple_data_law)
    LAWUTIL_MULTIPLE_DATA_MEMBERS(multiple_curveperp_law)
};

}  // namespace lawutil
