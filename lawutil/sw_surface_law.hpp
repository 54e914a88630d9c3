// The library's own spline surface as surface data of a law ("SWSURF"), so that an
// approximation made by law_to_sw_surface can be compared with its law through SURF,
// DSURF and the curvature laws.
//
// The point and the partials up to second order come from the surface's patch forms.  The
// curvatures come from the fundamental forms at the point: with n = Su x Sv normalised,
// E = Su.Su, F = Su.Sv, G = Sv.Sv, L = Suu.n, M = Suv.n, N = Svv.n,
//
//   K = (LN - M^2) / (EG - F^2),   H = (EN - 2FM + GL) / (2 (EG - F^2)),
//   k_max, k_min = H +- sqrt(H^2 - K),
//
// signed like base_surface_law_data asks (positive where the surface bends towards n).
// Where Su x Sv vanishes (a collapsed edge, parallel partials) the normal and every
// curvature are undefined and raise LAW_BAD_UNIT_VECTOR.
#pragma once

#include "lawutil/law_data_geom.hpp"
#include "lawutil/sw_surface.hpp"

namespace lawutil {

class sw_surface_law_data : public base_surface_law_data {
    LAWUTIL_TYPE_DECL(sw_surface_law_data, base_surface_law_data)
    // Keeps a copy of `s`.
    explicit sw_surface_law_data(const sw_surface& s);

    // The registered prototype only: no surface, nothing to evaluate.
    sw_surface_law_data();

    const sw_surface* surface() const { return surface_; }

    const char* symbol(law_symbol_type) const override { return "SWSURF"; }
    int date() const override { return 60100; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const override;

    vorx::position eval_position(const vorx::par_pos& uv) const override;
    void eval(const vorx::par_pos& uv, vorx::position& P, vorx::vector* first,
              vorx::vector* second) const override;
    vorx::unit_vector eval_normal(const vorx::par_pos& uv) const override;
    double gaussian_curvature(const vorx::par_pos& uv) const override;
    double mean_curvature(const vorx::par_pos& uv) const override;
    double max_curvature(const vorx::par_pos& uv) const override;
    double min_curvature(const vorx::par_pos& uv) const override;
    // The surface is its own spline approximation: the exact point.
    vorx::position approx_position(const vorx::par_pos& uv) const override;
    bool param_range(vorx::interval& u, vorx::interval& v) const override;

  protected:
    ~sw_surface_law_data() noexcept(false) override;

  private:
    const sw_surface& checked() const;
    // Gaussian and mean curvature at uv.
    void curvatures(const vorx::par_pos& uv, double& K, double& H) const;
    sw_surface* surface_;
};

// The surface as a law SURF over a copy of it: two inputs (u, v), three outputs.  The
// caller owns the returned law.
law* sw_surface_to_law(const sw_surface& s);

}  // namespace lawutil
