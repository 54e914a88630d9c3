// Laws over geometric data: the point and derivatives of a curve, a parameter-space
// curve, a wire and a surface, curvatures, arc length, pattern placements, a law mapped
// onto a path's range, and the feet of perpendiculars that invert curve and surface laws.
//
// Every class reads its geometry through a law_data of law_data_geom.hpp.  Those over
// one datum derive from unary_data_law, those over several from multiple_data_law; an
// integer or real parameter (a derivative order) travels as a law_law_data over a law
// and is read once, at construction, by evaluating that law at 1 and truncating.  A law
// given no data or data of the wrong kind raises LAW_DATA_UNKNOWN when it is built (the
// registered prototypes alone hold none).
//
// Text form: the keyword and the data in parentheses, "CUR(HELIX1)", "DCUR(SWEDGE1,2)";
// the parser reads it back when handed the same data array.
#pragma once

#include "lawutil/internal_law.hpp"
#include "lawutil/law_data_geom.hpp"

namespace lawutil {

// Members every law of this file declares: its prototype and checked constructors, its
// keyword ("no_maple" in other spellings), make_one, evaluation and dimensions.
#define LAWUTIL_UNARY_DATA_MEMBERS(cls)                                                 \
    cls();                                                                              \
    explicit cls(::lawutil::law_data* data);                                            \
    const char* symbol(::lawutil::law_symbol_type type = ::lawutil::law_symbol_default) \
        const override;                                                                 \
    ::lawutil::unary_data_law* make_one(::lawutil::law_data* data) const override;      \
    void evaluate(const double* x, double* y) const override;                           \
                                                                                        \
  protected:                                                                            \
    ::lawutil::law* deriv(int which) const override;                                    \
    int take_size() const override;                                                     \
    int return_size() const override;                                                   \
                                                                                        \
  public:

#define LAWUTIL_MULTIPLE_DATA_MEMBERS(cls)                                                        \
    cls();                                                                                        \
    cls(::lawutil::law_data** data, int count);                                                   \
    const char* symbol(::lawutil::law_symbol_type type = ::lawutil::law_symbol_default)           \
        const override;                                                                           \
    ::lawutil::multiple_data_law* make_one(::lawutil::law_data** data, int count) const override; \
    void evaluate(const double* x, double* y) const override;                                     \
                                                                                                  \
  protected:                                                                                      \
    ::lawutil::law* deriv(int which) const override;                                              \
    int take_size() const override;                                                               \
    int return_size() const override;                                                             \
                                                                                                  \
  public:

// D(F, which, 1) over F, whose reference it adopts: the derivative of a data law that has
// no closed form (a fresh law of the same kind, never the law itself: see the .cpp).
law* numerical_data_derivative(law* fresh, int which);

// ---- curves ----

// CUR(C): C(x).
class curve_law : public unary_data_law {
    LAWUTIL_TYPE_DECL(curve_law, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(curve_law)
    // The path's own breaks (a wire's joins).
    LAWUTIL_SINGULARITIES_DECL
    const base_curve_law_data* curve() const { return (const base_curve_law_data*)data_; }
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    int term_domain(int which, vorx::interval& dom) const override;
    law* set_domain(vorx::interval* dom, int flag = 0) const override;
    // n positions evenly spaced over the data's range, from start to end (the caller
    // frees the array with VORX_FREE); null for n < 1.
    vorx::position* get_points_on_curve(int n) const;
    // Whether sampled points of the curve lie in one plane (within resabs), with a point
    // of it and its normal; a line is planar, with some normal perpendicular to it.
    int is_planar(vorx::position& root, vorx::unit_vector& normal) const;
    // Whether they lie on one line, with a point and its direction.
    int is_linear(vorx::position& root, vorx::unit_vector& dir) const;

  protected:
    // The foot of the perpendicular: CURVEPERP(C, VEC(X,Y,Z)).
    law* sub_inverse() const override;
};

// PCUR(C): the (u, v) of a parameter-space curve.
class pcurve_law : public unary_data_law {
    LAWUTIL_TYPE_DECL(pcurve_law, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(pcurve_law)
};

// WIRE(W): W(x).
class wire_law : public unary_data_law {
    LAWUTIL_TYPE_DECL(wire_law, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(wire_law)
    // The path's own breaks (a wire's joins).
    LAWUTIL_SINGULARITIES_DECL
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    int term_domain(int which, vorx::interval& dom) const override;
};

// The members of a law of one derivative order over a path.
#define LAWUTIL_ORDER_MEMBERS(cls)                                                       \
    LAWUTIL_TYPE_DECL(cls, ::lawutil::multiple_data_law)                                 \
    LAWUTIL_MULTIPLE_DATA_MEMBERS(cls)                                                   \
    cls(::lawutil::law_data* path, int order);                                           \
    int order() const {                                                                  \
        return order_;                                                                   \
    }                                                                                    \
    void evaluate_with_side(const double* x, double* y, const int* side) const override; \
                                                                                         \
  private:                                                                               \
    int order_ = 0;                                                                      \
                                                                                         \
  public:

// DCUR(C, n): the n-th derivative of C (DPCUR, DWIRE alike).  The data answer up to the
// second; past it the derivative is numerical.  With a side, the data's one-sided
// derivative.
class dcurve_law : public multiple_data_law {
    LAWUTIL_ORDER_MEMBERS(dcurve_law)
    int term_domain(int which, vorx::interval& dom) const override;
    law* set_domain(vorx::interval* dom, int flag = 0) const override;
};

class dpcurve_law : public multiple_data_law {
    LAWUTIL_ORDER_MEMBERS(dpcurve_law)
};

class dwire_law : public multiple_data_law {
    LAWUTIL_ORDER_MEMBERS(dwire_law)
};

// CURC(P): the curvature of a path.
class curvature_law : public unary_data_law {
    LAWUTIL_TYPE_DECL(curvature_law, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(curvature_law)
};

// CURI(C): |C(x0) - C(x1)|^2 / (x0 - x1)^2, 1e10 where x0 and x1 meet.
class intersect_lawi : public unary_data_law {
    LAWUTIL_TYPE_DECL(intersect_lawi, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(intersect_lawi)
};

// CURD(C): |C(x0) - C(x1)|.
class distance_lawi : public unary_data_law {
    LAWUTIL_TYPE_DECL(distance_lawi, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(distance_lawi)
};

// LENGTH(C, a, b): the arc length of C from a(x) to b(x).
class length_law : public multiple_data_law {
    LAWUTIL_TYPE_DECL(length_law, multiple_data_law)
    LAWUTIL_MULTIPLE_DATA_MEMBERS(length_law)
    int date() const override;
};

// LENGTH_PARAM(C, a, s): the parameter at arc length s(x) from a(x).
class length_param_law : public multiple_data_law {
    LAWUTIL_TYPE_DECL(length_param_law, multiple_data_law)
    LAWUTIL_MULTIPLE_DATA_MEMBERS(length_param_law)
    int term_domain(int which, vorx::interval& dom) const override;
};

// MAP(f, P): f(start + (end - start) x) over P's range.
class map_law : public multiple_data_law {
    LAWUTIL_TYPE_DECL(map_law, multiple_data_law)
    LAWUTIL_MULTIPLE_DATA_MEMBERS(map_law)
};

// CURVEPERP(C, p): the parameter of the foot of the perpendicular from the point p(x)
// to C (the inverse of CUR(C) on C).
class curveperp_law : public multiple_data_law {
    LAWUTIL_TYPE_DECL(curveperp_law, multiple_data_law)
    LAWUTIL_MULTIPLE_DATA_MEMBERS(curveperp_law)
};

// ---- surfaces ----

// SURF(S): S(x0, x1).
class surface_law : public unary_data_law {
    LAWUTIL_TYPE_DECL(surface_law, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(surface_law)
    const base_surface_law_data* surface() const { return (const base_surface_law_data*)data_; }
    // The surface's u range (which 0) or v range (which 1).
    int term_domain(int which, vorx::interval& dom) const override;

  protected:
    // The foot of the perpendicular: SURFPERP(S, VEC(X,Y,Z)).
    law* sub_inverse() const override;
};

// BS(S): the surface's spline approximation.
class bs3_surface_law : public unary_data_law {
    LAWUTIL_TYPE_DECL(bs3_surface_law, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(bs3_surface_law)
    int date() const override { return 60000; }
};

// DSURF(S, nu, nv): a partial derivative of total order at most 2.
class dsurface_law : public multiple_data_law {
    LAWUTIL_TYPE_DECL(dsurface_law, multiple_data_law)
    LAWUTIL_MULTIPLE_DATA_MEMBERS(dsurface_law)
    dsurface_law(law_data* surface, int nu, int nv);
    int order_u() const { return nu_; }
    int order_v() const { return nv_; }

  private:
    int nu_ = 0;
    int nv_ = 0;
};

class gaussian_curvature_law : public unary_data_law {
    LAWUTIL_TYPE_DECL(gaussian_curvature_law, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(gaussian_curvature_law)
};

class mean_curvature_law : public unary_data_law {
    LAWUTIL_TYPE_DECL(mean_curvature_law, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(mean_curvature_law)
};

class max_curvature_law : public unary_data_law {
    LAWUTIL_TYPE_DECL(max_curvature_law, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(max_curvature_law)
};

class min_curvature_law : public unary_data_law {
    LAWUTIL_TYPE_DECL(min_curvature_law, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(min_curvature_law)
};

// SURFPERP(S, p): the (u, v) of the foot of the perpendicular from p(x) to S.
class surfperp_law : public multiple_data_law {
    LAWUTIL_TYPE_DECL(surfperp_law, multiple_data_law)
    LAWUTIL_MULTIPLE_DATA_MEMBERS(surfperp_law)
};

// ---- patterns ----

// PATTRANS(P): the placement for x as 13 values: the affine part by rows, the
// translation, the scaling.  It has no symbolic derivative.
class patterntrans_law : public unary_data_law {
    LAWUTIL_TYPE_DECL(patterntrans_law, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(patterntrans_law)
    int date() const override { return 70000; }
    // [0, number of elements - 1].
    int term_domain(int which, vorx::interval& dom) const override;
};

// ---- feet of perpendiculars ----
//
// The nearest point is searched from the best of a grid of samples (33 along a curve,
// 17 x 17 over a bounded surface) by Newton steps on the derivative of the squared
// distance, kept inside the range; a step that does not bring the point closer is
// halved.  It finds the foot nearest to the best sample, which is the global one unless
// two feet lie within one sample spacing of each other at nearly equal distance.

// The parameter of the foot from p on the curve-like path c.
double curve_foot(const path_law_data* c, const vorx::position& p);
// The (u, v) of the foot from p on the surface s.
vorx::par_pos surface_foot(const base_surface_law_data* s, const vorx::position& p);

}  // namespace lawutil
