// Example geometry: how a modeller hands its curves, surfaces, wires and patterns to the
// law library.  Each kind derives from one of the interfaces of lawutil/law_data_geom.hpp,
// answers its queries in closed form, and registers a prototype so the parser reads its
// keyword followed by a data number ("CUR(HELIX1)" with the helix as data argument 1).
//
//   helix_curve_data   "HELIX"    (r cos t, r sin t, c t); c = 0 is a circle
//   pcircle_data       "PCIRCLE"  (u0 + a cos t, v0 + a sin t) in a parameter plane
//   arc_wire_data      "ARCWIRE"  the segment (t, 0, 0), t in [0, 1], then the quarter
//                                 circle of radius 1 tangent to it, t in [1, 1 + pi/2]
//   torus_surface_data "TORUS"    ((R + r cos u) cos v, (R + r cos u) sin v, r sin u)
//   ring_pattern_data  "RING"     n placements, element i turned by i * angle about z
//
// Like the library's own kinds they answer the point and two derivatives and raise the
// kind's LAW_DATA_* error beyond.
#pragma once

#include "lawutil/global_names.hpp"
#include "lawutil/law_data_geom.hpp"

class helix_curve_data : public base_curve_law_data {
    LAWUTIL_TYPE_DECL(helix_curve_data, base_curve_law_data)
    helix_curve_data(double radius = 1.0, double pitch = 0.0, double start = 0.0,
                     double end = 6.283185307179586);
    const char* symbol(law_symbol_type) const override { return "HELIX"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    law_data* set_domain(interval* r) const override;
    vector eval(double t, int nderiv = 0, int side = 0) const override;
    double curvature(double t) const override;
    double length_param(double base, double length) const override;
    double length(double from, double to) const override;
    double point_perp(const position& p, double guess) const override;
    double point_perp(const position& p) const override;
    law* law_form() const override;

  private:
    double r_, c_;
};

class pcircle_data : public base_pcurve_law_data {
    LAWUTIL_TYPE_DECL(pcircle_data, base_pcurve_law_data)
    pcircle_data(double u0 = 0.0, double v0 = 0.0, double radius = 1.0);
    const char* symbol(law_symbol_type) const override { return "PCIRCLE"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    vector eval(double t, int nderiv = 0, int side = 0) const override;
    double curvature(double t) const override;

  private:
    double u0_, v0_, a_;
};

class arc_wire_data : public base_wire_law_data {
    LAWUTIL_TYPE_DECL(arc_wire_data, base_wire_law_data)
    arc_wire_data();
    const char* symbol(law_symbol_type) const override { return "ARCWIRE"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    // At the join t = 1, side 1 reads the segment, any other side the arc.
    vector eval(double t, int nderiv = 0, int side = 0) const override;
    double curvature(double t) const override;
    // The join at t = 1, where the curvature jumps from 0 to 1.
    int singularities(double** where, int** order, double lo, double hi) const override;
};

class torus_surface_data : public base_surface_law_data {
    LAWUTIL_TYPE_DECL(torus_surface_data, base_surface_law_data)
    torus_surface_data(double major = 2.0, double minor = 1.0);
    const char* symbol(law_symbol_type) const override { return "TORUS"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    position eval_position(const par_pos& uv) const override;
    void eval(const par_pos& uv, position& P, vector* first, vector* second) const override;
    unit_vector eval_normal(const par_pos& uv) const override;
    // Su x Sv points into the tube: the curvatures are 1/r across it and
    // cos u / (R + r cos u) around the axis.
    double gaussian_curvature(const par_pos& uv) const override;
    double mean_curvature(const par_pos& uv) const override;
    double max_curvature(const par_pos& uv) const override;
    double min_curvature(const par_pos& uv) const override;
    position approx_position(const par_pos& uv) const override;
    bool param_range(interval& u, interval& v) const override;

  private:
    double R_, r_;
};

class ring_pattern_data : public base_pattern_law_data {
    LAWUTIL_TYPE_DECL(ring_pattern_data, base_pattern_law_data)
    ring_pattern_data(int count = 4, double angle = 1.5707963267948966);
    const char* symbol(law_symbol_type) const override { return "RING"; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    int num_elements() const override { return n_; }
    transf get_transf(int i) const override;

  private:
    int n_;
    double angle_;
};
