#include "lawutil/root.hpp"

#include "lawutil/main_law.hpp"

void set_root_tol_default() {
    auto& r = law_context().root;
    r.root_x_tol = 1e-14;
    r.root_f_tol = 1e-7;
    r.root_quad_tol = 1e-7;
    r.root_hole_fraction = 0.05;
    r.root_ratio = 0.1;
    r.root_far_ratio = 0.1;
    r.root_newton_iterations = 10;
    r.root_bisect_iterations = 40;
    r.root_count_a = 7;
    r.root_max_evaluations = 10000;
    r.root_search_tol = 1e-4;
}
