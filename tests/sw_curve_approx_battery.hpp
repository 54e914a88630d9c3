// The battery of curves that the spline approximation's test and benchmark share: arcs,
// helices, a spiral, corners reported by the law and one it does not report, a jump,
// high curvature, scalar graphs and polynomials that must come back with one span.
#pragma once

struct approx_case {
    const char* name;
    const char* text;
    double lo, hi;
    // Polynomial cases: the coefficients of x, y, z in 1, t, t^2, t^3 (the spline must be
    // one span with these as its blossom); null otherwise.
    const double (*poly)[4];
};

namespace approx_detail {
constexpr double two_pi = 6.283185307179586;
constexpr double cubic[3][4] = {{0, 1, 0, 0}, {-1, 0, 1, 0}, {0, -1, 0, 0.5}};
constexpr double quadratic[3][4] = {{1, 2, 0, 0}, {3, -1, 0, 0}, {0, 0, 1, 0}};
constexpr double line_graph[3][4] = {{0, 1, 0, 0}, {1, 2, 0, 0}, {0, 0, 0, 0}};
constexpr double cubic_graph[3][4] = {{0, 1, 0, 0}, {0, -2, 0, 1}, {0, 0, 0, 0}};
}  // namespace approx_detail

inline const approx_case approx_battery[] = {
    {"arc", "VEC(COS(X),SIN(X),0)", 0, 3, nullptr},
    {"circle", "VEC(2*COS(X),2*SIN(X),0)", 0, approx_detail::two_pi, nullptr},
    {"helix4", "VEC(COS(X),SIN(X),0.2*X)", 0, 4 * approx_detail::two_pi, nullptr},
    {"spiral", "VEC(X*COS(X^2),X*SIN(X^2),0)", 0, 2.5, nullptr},
    {"kink", "VEC(X,ABS(X-0.3),0)", -1, 1, nullptr},
    {"tangent_jump", "VEC(X,STEP(X^2,0.5,0.5*X),X)", 0, 1, nullptr},
    {"value_jump", "VEC(X,STEP(X^2,0.5,X+1),0)", 0, 1, nullptr},
    {"hidden_kink", "VEC(X,ABS(SIN(3*X)),0)", 0.2, 2, nullptr},
    {"ellipse", "VEC(COS(X),0.02*SIN(X),0)", 0, approx_detail::two_pi, nullptr},
    {"bump", "VEC(X,1/(1+400*X^2),0)", -1, 1, nullptr},
    {"graph", "SIN(3*X)+X^2", 0, 2, nullptr},
    {"plane2", "VEC(EXP(X),EXP(-X))", 0, 1, nullptr},
    {"cubic", "VEC(X,X^2-1,0.5*X^3-X)", -1, 2, approx_detail::cubic},
    {"quadratic", "VEC(1+2*X,3-X,X^2)", 0, 3, approx_detail::quadratic},
    {"line_graph", "2*X+1", 0, 4, approx_detail::line_graph},
    {"cubic_graph", "X^3-2*X", -1.5, 1, approx_detail::cubic_graph},
};

inline const double approx_tolerances[] = {1e-3, 1e-4, 1e-5, 1e-6, 1e-7, 1e-8};
