// The library's polynomial tensor-product B-spline surface.
//
// S(u, v) = sum_i sum_j N_i(u) M_j(v) P[i][j] with degree pu over the u knots (nu + pu + 1
// of them) and pv over the v knots (nv + pv + 1); the nu·nv control points are stored row
// by row (P[i][j] at index i·nv + j), x, y, z each, in one block after the knots:
//
//   u knots  nu + pu + 1,  v knots  nv + pv + 1,  points  3·nu·nv.
//
// The surface is defined over [u knot pu, u knot nu] x [v knot pv, v knot nv].  Each patch
// (a pair of u and v spans of positive length) is available in Bezier form (its (pu + 1)
// x (pv + 1) points, by blossoming) and in power form (the coefficients c[a][b] of
// s^a t^b in the patch's local parameters s, t in [0, 1]); evaluation runs on the power
// form by Horner's rule.  Both caches fill on the first evaluation.
#pragma once

#include "base/memory.hpp"
#include "base/position.hpp"

namespace vorx {
class SizeAccumulator;
}  // namespace vorx

namespace lawutil {

class sw_surface : public vorx::VORX_OBJECT {
  public:
    // Bad input raises SW_BAD_ORDER (a degree outside 1..7, or fewer control points than
    // degree + 1 in a direction), LAW_BAD_DOMAN (null or decreasing knots, no parameter
    // length in a direction), LAW_BAD_RANGE (null or non-finite control points).
    sw_surface(int nu, int nv, int pu, int pv, const double* knots_u, const double* knots_v,
               const double* points);
    sw_surface(const sw_surface&) = delete;
    sw_surface& operator=(const sw_surface&) = delete;
    ~sw_surface();

    // A new surface over the same knots and points (the caller owns it).
    sw_surface* copy_surface() const;
    // The object, its block and the patch caches once filled.
    void full_size(vorx::SizeAccumulator& acc, int count_self) const;

    int get_num_control_points_u() const { return nu_; }
    int get_num_control_points_v() const { return nv_; }
    int get_degree_u() const { return pu_; }
    int get_degree_v() const { return pv_; }
    const double* get_knots_u() const { return data_; }
    const double* get_knots_v() const { return data_ + nu_ + pu_ + 1; }
    const double* get_control_points() const { return data_ + nu_ + pu_ + 1 + nv_ + pv_ + 1; }
    double get_min_u() const { return get_knots_u()[pu_]; }
    double get_max_u() const { return get_knots_u()[nu_]; }
    double get_min_v() const { return get_knots_v()[pv_]; }
    double get_max_v() const { return get_knots_v()[nv_]; }
    // Patches: spans of positive length in each direction.
    int get_num_patches_u() const { return npu_; }
    int get_num_patches_v() const { return npv_; }

    // The Bezier points of patch (a, b): (pu + 1)·(pv + 1) points, row by row in u, x, y, z
    // each.  `out` has 3·(pu + 1)·(pv + 1) doubles.
    void get_bezier_patch(int a, int b, double* out) const;
    // The power form of patch (a, b): c[r][s] (r <= pu, s <= pv) at out[3·(r·(pv+1) + s)],
    // the coefficient of s_local^r t_local^s.
    void get_power_patch(int a, int b, double* out) const;

    // Point and first and second partials at (u, v); any output may be null.  A parameter
    // within 1e-10 of the range is clamped to it; further outside raises SW_SURFACE_EVAL.
    void eval(double u, double v, vorx::position* P, vorx::vector* Su = nullptr,
              vorx::vector* Sv = nullptr, vorx::vector* Suu = nullptr, vorx::vector* Suv = nullptr,
              vorx::vector* Svv = nullptr) const;

  private:
    void fill_caches() const;
    int find_patch(const int* starts, int count, const double* knots, double t) const;

    int nu_, nv_, pu_, pv_;
    double* data_ = nullptr;
    int npu_ = 0, npv_ = 0;
    int* span_u_ = nullptr;  // knot index of each patch row's start, then each column's
    int* span_v_ = nullptr;
    // Per patch (row a, column b at a·npv + b): the Bezier points, then the power
    // coefficients; filled on first use.
    mutable double* bezier_ = nullptr;
    mutable double* power_ = nullptr;
};

}  // namespace lawutil
