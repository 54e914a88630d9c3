// The battery of definite integrals with closed-form values that the integration test and
// benchmark share: smooth, oscillatory, kinks, jumps, integrable end singularities and
// piecewise laws, each with the same function written in C++ for the benchmark's native
// side.  And the baseline the adaptive routine is measured against: 21-point
// Gauss-Kronrod with bisection, no split points, no tanh-sinh.
#pragma once

#include <cmath>

#include "lawutil/global_names.hpp"
#include "lawutil/integrate.hpp"

struct battery_case {
    const char* text;
    double (*native)(double);
    double a, b, exact;
};

namespace battery_detail {
constexpr double pi = 3.14159265358979323846;
}

inline const battery_case integrate_battery[] = {
    {"EXP(X)", [](double x) { return std::exp(x); }, 0, 1, std::exp(1.0) - 1},
    {"X^5-2*X^2+1", [](double x) { return ((x * x * x - 2) * x) * x + 1; }, -1, 2, 7.5},
    {"1/(1+X^2)", [](double x) { return 1 / (1 + x * x); }, 0, 1, battery_detail::pi / 4},
    {"1/(1+25*X^2)", [](double x) { return 1 / (1 + 25 * x * x); }, -1, 1, 0.4 * std::atan(5.0)},
    {"EXP(-(X^2))", [](double x) { return std::exp(-x * x); }, 0, 2,
     std::sqrt(battery_detail::pi) / 2 * std::erf(2.0)},
    {"COS(50*X)", [](double x) { return std::cos(50 * x); }, 0, 1, std::sin(50.0) / 50},
    {"X*SIN(30*X)", [](double x) { return x * std::sin(30 * x); }, 0, 2 * battery_detail::pi,
     -2 * battery_detail::pi / 30},
    {"X*EXP(-X)", [](double x) { return x * std::exp(-x); }, 0, 10, 1 - 11 * std::exp(-10.0)},
    {"TAN(X)", [](double x) { return std::tan(x); }, 0, 1.5, -std::log(std::cos(1.5))},
    {"ABS(X-0.3)", [](double x) { return std::fabs(x - 0.3); }, 0, 1, 0.29},
    {"MAX(X,1-X)", [](double x) { return x > 1 - x ? x : 1 - x; }, 0, 1, 0.75},
    {"ABS(SIN(5*X))", [](double x) { return std::fabs(std::sin(5 * x)); }, 0, 2,
     1.2 + (1 - std::cos(5 * (2 - 3 * battery_detail::pi / 5))) / 5},
    {"PIECEWISE(X<0.5,X*X,SIN(X))", [](double x) { return x < 0.5 ? x * x : std::sin(x); }, 0, 1,
     0.125 / 3 + std::cos(0.5) - std::cos(1.0)},
    {"STEP(X,0.5,X*X,0.7,1-X)", [](double x) { return x < 0.5   ? x
                                                      : x < 0.7 ? x * x
                                                                : 1 - x; }, 0,
     1, 0.125 + 0.218 / 3 + 0.045},
    {"FLOOR(3*X)", [](double x) { return std::floor(3 * x); }, 0, 1.5, 2.0 + 4.0 / 6},
    {"1/SQRT(X)", [](double x) { return 1 / std::sqrt(x); }, 0, 1, 2.0},
    {"LN(X)", [](double x) { return std::log(x); }, 0, 1, -1.0},
    {"SQRT(X)", [](double x) { return std::sqrt(x); }, 0, 1, 2.0 / 3},
    {"1/SQRT(1-X^2)", [](double x) { return 1 / std::sqrt(1 - x * x); }, -1, 1, battery_detail::pi},
    {"SQRT(1-X^2)", [](double x) { return std::sqrt(1 - x * x); }, -1, 1, battery_detail::pi / 2},
    {"1/SQRT(ABS(X-0.3))", [](double x) { return 1 / std::sqrt(std::fabs(x - 0.3)); }, 0, 1,
     2 * std::sqrt(0.3) + 2 * std::sqrt(0.7)},
    {"X^-0.9", [](double x) { return std::pow(x, -0.9); }, 0, 1, 10.0},
};

inline integrate_options gk21_baseline() {
    integrate_options o;
    o.kronrod_points = 21;
    o.use_breaks = 0;
    o.use_tanh_sinh = 0;
    return o;
}
