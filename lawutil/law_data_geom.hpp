// The geometric kinds of law_data: the interfaces through which a modeller hands its
// curves, surfaces, wires and patterns to the laws of law_unary_data.hpp, and the three
// kinds this library implements whole (a transform, a lattice of points, and, in
// sw_curve_law.hpp, its own spline curve).  Also the sample cache r3_law_cache.
//
// Design.  A law never holds geometry itself, only a counted law_data; the interface
// kinds declare the queries the laws call and leave the bodies to the client (see
// examples/geometry/ for small analytic kinds).  The queries are const: like a law, a
// data object never changes its meaning once handed to a law, with the one deliberate
// exception of the lattice, whose points a deformation tool moves between evaluations.
// A query asked for more than the kind answers raises (LAW_DATA_CURVE, LAW_DATA_WIRE,
// LAW_DATA_PCURVE); the derivative laws never ask past the second derivative.
#pragma once

#include "base/interval.hpp"
#include "base/transf.hpp"
#include "lawutil/law_data.hpp"

namespace lawutil {

// A parameter range [start, end] shared by the curve-like kinds.
class path_law_data : public law_data {
    LAWUTIL_TYPE_DECL(path_law_data, law_data)
    path_law_data(double start, double end);
    // Copying copies the range and nothing else (a copy starts with its own count of 1).
    path_law_data(const path_law_data& other);
    path_law_data& operator=(const path_law_data& other);

    double data_start() const { return start_; }
    double data_end() const { return end_; }

    // 1, 9, 10: nothing to do for an interface kind.
    void save(int&) const override {}
    void input(vorx::D3_istream&) override {}
    void print(vorx::D3_ostream&) const override {}
    // 11: the point (nderiv 0) or the nderiv-th derivative at t; `side` picks the
    // one-sided derivative at a break (1: from below, any other value: from above).
    virtual vorx::vector eval(double t, int nderiv = 0, int side = 0) const = 0;
    // 12
    virtual double curvature(double t) const = 0;
    // 13: the breaks of the path in [lo, hi], sorted by sort_singularities; the arrays
    // go to the caller.  A plain path has none.
    virtual int singularities(double** where, int** order, double lo, double hi) const;

  protected:
    double start_;
    double end_;
};

// A curve in space.
class base_curve_law_data : public path_law_data {
    LAWUTIL_TYPE_DECL(base_curve_law_data, path_law_data)
    base_curve_law_data(double start, double end) : path_law_data(start, end) {}
    base_curve_law_data(const base_curve_law_data& other) = default;
    base_curve_law_data& operator=(const base_curve_law_data& other) = default;

    // 14: the parameter at arc length `length` from parameter `base`.
    virtual double length_param(double base, double length) const = 0;
    // 15: the arc length from `from` to `to` (negative when to < from).
    virtual double length(double from, double to) const = 0;
    // 16, 17: the parameter of the foot of the perpendicular from `p`.
    virtual double point_perp(const vorx::position& p, double guess) const = 0;
    virtual double point_perp(const vorx::position& p) const = 0;
    // 18: the curve as a law of its parameter, or null when the kind has none.
    virtual law* law_form() const { return nullptr; }
};

// A curve in a surface's parameter plane: eval returns (u, v, 0).
class base_pcurve_law_data : public path_law_data {
    LAWUTIL_TYPE_DECL(base_pcurve_law_data, path_law_data)
    base_pcurve_law_data(double start, double end) : path_law_data(start, end) {}
    base_pcurve_law_data(const base_pcurve_law_data& other) = default;
    base_pcurve_law_data& operator=(const base_pcurve_law_data& other) = default;
};

// A chain of curves parametrised as one path; its joins are its singularities.
class base_wire_law_data : public path_law_data {
    LAWUTIL_TYPE_DECL(base_wire_law_data, path_law_data)
    base_wire_law_data(double start, double end) : path_law_data(start, end) {}
    base_wire_law_data(const base_wire_law_data& other) = default;
    base_wire_law_data& operator=(const base_wire_law_data& other) = default;
};

// A surface of two parameters (u, v).  Its normal is Su x Sv normalised; a normal
// curvature is II/I with II read along that normal, so it is positive where the surface
// bends towards the normal (a sphere whose normal points inwards has +1/r).
class base_surface_law_data : public law_data {
    LAWUTIL_TYPE_DECL(base_surface_law_data, law_data)
    base_surface_law_data() = default;

    void save(int&) const override {}
    void input(vorx::D3_istream&) override {}
    void print(vorx::D3_ostream&) const override {}
    // 11
    virtual vorx::position eval_position(const vorx::par_pos& uv) const = 0;
    // 12: the point, with `first` (when not null) receiving Su, Sv and `second` Suu,
    // Suv, Svv.
    virtual void eval(const vorx::par_pos& uv, vorx::position& P, vorx::vector* first,
                      vorx::vector* second) const = 0;
    // 13
    virtual vorx::unit_vector eval_normal(const vorx::par_pos& uv) const = 0;
    // 14-17
    virtual double gaussian_curvature(const vorx::par_pos& uv) const = 0;
    virtual double mean_curvature(const vorx::par_pos& uv) const = 0;
    virtual double max_curvature(const vorx::par_pos& uv) const = 0;
    virtual double min_curvature(const vorx::par_pos& uv) const = 0;
    // 18: the point of the kind's spline approximation (a kind without one answers with
    // the exact point).
    virtual vorx::position approx_position(const vorx::par_pos& uv) const = 0;
    // 19: the parameter ranges; false when the surface is unbounded.
    virtual bool param_range(vorx::interval& u, vorx::interval& v) const = 0;
};

// A pattern: a numbered set of placements.
class base_pattern_law_data : public law_data {
    LAWUTIL_TYPE_DECL(base_pattern_law_data, law_data)
    base_pattern_law_data() = default;

    void save(int&) const override {}
    void input(vorx::D3_istream&) override {}
    void print(vorx::D3_ostream&) const override {}
    // 11: the number of placements.
    virtual int num_elements() const = 0;
    // 12: the placement of element i (0 <= i < num_elements()).
    virtual vorx::transf get_transf(int i) const = 0;
    // 13: the placement for a real index: x truncated to an element number and clamped
    // to the pattern.
    virtual vorx::transf transform_at(double x) const;
};

// A transform and its inverse ("TRANS").
class base_transform_law_data : public law_data {
    LAWUTIL_TYPE_DECL(base_transform_law_data, law_data)
    // A null transform leaves both null: every query then acts as the identity.
    explicit base_transform_law_data(const vorx::transf* T);

    void save(int&) const override {}
    const char* symbol(law_symbol_type) const override { return "TRANS"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const override;
    void input(vorx::D3_istream&) override {}
    void print(vorx::D3_ostream&) const override {}
    // 11
    virtual const vorx::transf* get_transf() const { return transform_; }

    vorx::position transform(const vorx::position& p) const;
    vorx::vector rotate(const vorx::vector& v) const;
    vorx::position transform_inverse(const vorx::position& p) const;
    vorx::vector rotate_inverse(const vorx::vector& v) const;

  protected:
    ~base_transform_law_data() noexcept(false) override;
    vorx::transf* transform_;
    vorx::transf* inverse_;
};

// The lattice of control points of a deformation of the unit box ("POSITIONS").
class base_position_array_law_data : public law_data {
    LAWUTIL_TYPE_DECL(base_position_array_law_data, law_data)
    // Copies `naxes` counts and their product in points.  No axes: no arrays, size 1.
    // A count below 1, negative axes, null points or counts, or a lattice too large to
    // address raise LAW_DIM.
    base_position_array_law_data(const vorx::position* pts, const int* counts, int naxes);

    void save(int&) const override {}
    const char* symbol(law_symbol_type) const override { return "POSITIONS"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const override;
    void input(vorx::D3_istream&) override {}
    void print(vorx::D3_ostream&) const override {}
    // 11: the product of the counts; 1 with no axes.
    virtual int get_data_size() const;

    int num_axes() const { return naxes_; }
    const int* counts() const { return counts_; }
    const vorx::position* points() const { return points_; }
    vorx::position point(int i) const { return points_ ? points_[i] : vorx::position(); }

    // Lattice indices of point i (three axes only; otherwise 0, 0, 0).
    void index_to_xyz(int i, int& x, int& y, int& z) const;
    // Point i back at its rest place in the unit box (three axes only).
    void reset_point(int i);
    // Moves the chosen points by `move`; a positive falloff drags the rest along.
    void update_point(const int* which, int nwhich, const vorx::vector& move, double falloff);
    // One ratio per point (get_data_size() entries): how much of the move it takes.
    void calc_movement_ratios(const int* which, int nwhich, double falloff, double* ratios) const;

  protected:
    ~base_position_array_law_data() noexcept(false) override;
    double Distance(int i, int j) const;
    vorx::position* points_;
    int* counts_;
    int naxes_;
    int size_;
};

// Samples of a law of one parameter with three outputs at chosen parameters: the value
// and first three derivatives, per unit of the cached range.
class r3_law_cache {
  public:
    r3_law_cache() = default;
    ~r3_law_cache();
    r3_law_cache(const r3_law_cache&) = delete;
    r3_law_cache& operator=(const r3_law_cache&) = delete;

    // Replaces the cache by samples of L at the n parameters (duplicates dropped).  A
    // null law, or one neither of three outputs nor of one input, leaves it unchanged.
    void setup(law* L, int n, const double* params, const vorx::interval& range);
    // The cached sample at t, else a fresh evaluation that is not stored.
    void evaluate(double t, vorx::vector& P = vorx::null_out_ref<vorx::vector>(),
                  vorx::vector& D1 = vorx::null_out_ref<vorx::vector>(),
                  vorx::vector& D2 = vorx::null_out_ref<vorx::vector>(),
                  vorx::vector& D3 = vorx::null_out_ref<vorx::vector>()) const;

    int size() const { return count_; }
    const derivs_data* samples() const { return samples_; }
    double scale() const { return scale_; }
    const vorx::interval& range() const { return range_; }

  private:
    void clear();
    law* law_ = nullptr;
    int count_ = 0;
    derivs_data* samples_ = nullptr;
    double scale_ = 1.0;
    vorx::interval range_;
};

}  // namespace lawutil
