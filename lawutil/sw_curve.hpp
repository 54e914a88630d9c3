// The library's own rational or polynomial B-spline curve in three dimensions.
//
// All numbers of a curve live in one packed block of doubles laid out as the parameter
// data of the IGES Rational B-Spline Curve entity (type 126), so a curve is built from,
// copied as and handed over as a single array:
//
//   knots      n + p + 1
//   weights    n               (all 1.0 and ignored when the curve is polynomial)
//   points     3n              x, y, z of each control point
//   range      2               minimum and maximum parameter
//   normal     3               plane normal (meaningful when the planar flag is 1)
//
// n is the number of control points, p the degree; the block holds
// get_data_size() = (n + p + 1) + 4n + 5 doubles.  The curve is only ever evaluated:
// curvature, length and perpendicular queries raise their NO_SW_* errors.
#pragma once

#include "base/memory.hpp"
#include "base/position.hpp"

namespace vorx {
class SizeAccumulator;
}  // namespace vorx

namespace lawutil {

class sw_curve : public vorx::VORX_OBJECT {
  public:
    // Takes a packed block whole (get_data_size() doubles are copied).
    sw_curve(int n, int p, int planar, int closed, int polynomial, int periodic,
             const double* block);
    // Builds the block from its parts.  A null `weights` gives every weight 1.0, a null
    // `normal` the zero vector.
    sw_curve(int n, int p, int planar, int closed, int polynomial, int periodic,
             const double* knots, const double* weights, const double* points, double min_t,
             double max_t, const double* normal);
    // Both constructors then clamp the range to the knots: the minimum is raised to knot p,
    // the maximum lowered to knot n.  Bad input raises: SW_BAD_ORDER (p < 0 or n < p + 1),
    // LAW_BAD_DOMAN (null block or knots, decreasing knots, no parameter length between
    // knot p and knot n), LAW_BAD_BOUNDS (a knot or the clamped range not finite, or the
    // range reversed), SW_BAD_WEIGHTS (a rational curve with a weight that is not a finite
    // positive number), LAW_BAD_RANGE (null or non-finite control points).

    sw_curve(const sw_curve& other);
    sw_curve& operator=(const sw_curve& other);
    ~sw_curve();

    // A new copy (the caller owns it: delete it).
    sw_curve* copy_curve() const;
    // Adds the object (when `count_self` is set) and its block.
    void full_size(vorx::SizeAccumulator& acc, int count_self) const;

    int get_num_control_points() const { return num_ctrlpts_; }
    int get_degree() const { return degree_; }
    int get_num_spans() const { return num_spans_; }
    int get_num_knots() const { return num_knots_; }
    int get_planar() const { return planar_; }
    int get_closed() const { return closed_; }
    // 1: polynomial (weights ignored); any other value: rational.
    int get_polynomial() const { return polynomial_; }
    int get_periodic() const { return periodic_; }
    // The entity's K: the upper index of the control points.
    int get_K() const { return num_ctrlpts_ - 1; }
    int get_data_size() const { return num_knots_ + 4 * num_ctrlpts_ + 5; }
    const double* get_data() const { return data_; }
    const double* get_knots() const { return knots_; }
    const double* get_weights() const { return weights_; }
    const double* get_control_points() const { return points_; }
    const double* get_normal() const { return normal_; }
    double get_min_t() const { return min_t_; }
    double get_max_t() const { return max_t_; }

    // Writes control point i (LAW_BAD_RANGE for an index out of range or a coordinate
    // that is not finite) and drops the evaluation caches.
    void set_control_point(int i, const double* xyz);
    void get_control_point(int i, double* xyz) const;

    // Point and first and second derivative at t; any output may be null.  A parameter
    // within 1e-10 of an end is that end; further outside the range the curve is
    // extended linearly along its end tangent (D2 = 0).  In a knot gap the outputs are
    // left as they were.
    void eval(double t, vorx::position* P, vorx::vector* D1 = nullptr,
              vorx::vector* D2 = nullptr) const;

    // Not implemented: each raises its NO_SW_* error.
    vorx::vector eval_curvature(double t) const;
    double length(double from, double to) const;
    double length_param(double base, double length) const;
    double point_perp(const vorx::position& p, double guess) const;
    double point_perp(const vorx::position& p) const;

    // Prints degree, counts, kind and the knot and control point table to the debug
    // stream.
    void debug() const;

    // The per-span Bezier caches, filled lazily by eval.
    void init_caches() const;
    void set_caches() const;
    void check_caches() const {
        if (!caches_valid_) set_caches();
    }
    void delete_caches() const;

  private:
    struct counts_tag {};
    sw_curve(counts_tag, int n, int p, int planar, int closed, int polynomial, int periodic);
    double* duplicate_block() const;
    void adopt_block(double* block);
    void clamp_and_check_range();
    int find_span(double t) const;
    void eval_in_range(double t, vorx::position* P, vorx::vector* D1, vorx::vector* D2) const;

    int num_ctrlpts_;
    int degree_;
    int num_spans_;
    int num_knots_;
    int planar_;
    int closed_;
    int polynomial_;
    int periodic_;
    double* data_ = nullptr;
    double* knots_ = nullptr;
    double* weights_ = nullptr;
    double* points_ = nullptr;
    double min_t_ = 0.0;
    double max_t_ = 0.0;
    double* normal_ = nullptr;

    // Evaluation state: it never changes what the curve is, so it fills through const
    // operations.
    mutable int last_span_ = 0;
    mutable int caches_valid_ = 0;
    // Polynomial: Bezier points of each span (p + 1 per span), of its first derivative
    // form (p per span) and of its second (p - 1 per span), x, y, z each.  Rational:
    // `point_cache_` alone, p + 1 weighted points (w·x, w·y, w·z, w) per span.
    mutable double* point_cache_ = nullptr;
    mutable double* first_cache_ = nullptr;
    mutable double* second_cache_ = nullptr;
    // Binomial coefficients of degrees p, p - 1 and p - 2, one row after the other, then
    // the working room of the span conversion.
    mutable double* scratch_ = nullptr;
};

}  // namespace lawutil
