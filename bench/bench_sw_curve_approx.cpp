// law_to_sw_curve over the battery of tests/sw_curve_approx_battery.hpp.
//
// Printed first: per case and tolerance (1e-3 .. 1e-8) the control points with knot
// removal and without, the measured error over the tolerance and the law evaluations; then
// the growth of the count with the tolerance for the smooth cases: the log-log slope
// between 1e-3 and 1e-8 (the method's rate is -1/4 for cubics) and the constant
// K = spans·tol^(1/4)/(parameter length).
//
// Timed: every case at 1e-6, and the 4-turn helix through the parser's law against the
// same helix as a law written natively (cos, sin, one multiply, inlined; everything else
// is the same algorithm), in the same run: the ratio is what the law tree costs on top of
// the approximation itself.  Counters: control points, law evaluations per call and per
// second.  The
// same for law_to_sw_surface over a sphere patch (0 <= u <= 1.5, -1 <= v <= 1) at 1e-6.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "../tests/sw_curve_approx_battery.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

constexpr int battery_size = sizeof approx_battery / sizeof approx_battery[0];

struct library {
    library() { initialize_law(); }
    ~library() { terminate_law(); }
};

// The helix (cos t, sin t, 0.2 t) as a performance-aware programmer writes it.
class native_helix : public law {
  public:
    void evaluate(const double* x, double* y) const override {
        y[0] = std::cos(*x);
        y[1] = std::sin(*x);
        y[2] = 0.2 * *x;
    }

  protected:
    int take_size() const override { return 1; }
    int return_size() const override { return 3; }
};

// The sphere (cos u cos v, sin u cos v, sin v), natively.
class native_sphere : public law {
  public:
    void evaluate(const double* x, double* y) const override {
        const double cv = std::cos(x[1]);
        y[0] = std::cos(x[0]) * cv;
        y[1] = std::sin(x[0]) * cv;
        y[2] = std::sin(x[1]);
    }

  protected:
    int take_size() const override { return 2; }
    int return_size() const override { return 3; }
};

void sphere_bench(benchmark::State& state, const law* L) {
    sw_surface_approx_report r;
    for (auto _ : state) delete law_to_sw_surface(const_cast<law*>(L), 0, 1.5, -1, 1, 1e-6, {}, &r);
    state.counters["points"] = r.control_points;
    state.counters["patches"] = r.patches_u * r.patches_v;
    state.counters["evals"] = (double)r.evaluations;
    state.counters["err/tol"] = r.max_error / 1e-6;
}

sw_curve_approx_report run(const law* L, const approx_case& c, double tol, sw_approx_strategy s) {
    sw_curve_approx_options o;
    o.strategy = s;
    sw_curve_approx_report r;
    delete law_to_sw_curve(const_cast<law*>(L), c.lo, c.hi, tol, o, &r);
    return r;
}

void print_summary() {
    std::printf("%-13s %6s %7s %7s %8s %8s\n", "case", "tol", "points", "refine", "err/tol",
                "evals");
    for (const approx_case& c : approx_battery) {
        law_holder L(str_to_law(c.text));
        double spans[2] = {0, 0};
        for (double tol : approx_tolerances) {
            sw_curve_approx_report r = run(L.get(), c, tol, sw_approx_refine_then_remove);
            sw_curve_approx_report k = run(L.get(), c, tol, sw_approx_refine_only);
            std::printf("%-13s %6.0e %7d %7d %8.3f %8ld\n", c.name, tol, r.control_points,
                        k.control_points, r.max_error / tol, r.evaluations);
            if (tol == approx_tolerances[0]) spans[0] = r.spans;
            spans[1] = r.spans;
        }
        const double t0 = approx_tolerances[0], t1 = approx_tolerances[5];
        std::printf("%-13s growth: slope %.3f  K = spans*tol^(1/4)/length = %.3f (at 1e-8)\n",
                    c.name, std::log(spans[1] / spans[0]) / std::log(t1 / t0),
                    spans[1] * std::pow(t1, 0.25) / (c.hi - c.lo));
    }
}

void approx_case_bench(benchmark::State& state, const law* L, const approx_case& c, double tol) {
    sw_curve_approx_report r;
    for (auto _ : state) r = run(L, c, tol, sw_approx_refine_then_remove);
    state.counters["points"] = r.control_points;
    state.counters["evals"] = (double)r.evaluations;
    state.counters["evals_per_s"] =
        benchmark::Counter((double)r.evaluations, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["err/tol"] = r.max_error / tol;
}

const bool registered = [] {
    static library lib;
    print_summary();
    static law_holder laws[battery_size];
    for (int i = 0; i < battery_size; ++i) {
        laws[i].reset(str_to_law(approx_battery[i].text));
        benchmark::RegisterBenchmark((std::string("1e-6/") + approx_battery[i].name).c_str(),
                                     [i](benchmark::State& s) {
                                         approx_case_bench(s, laws[i].get(), approx_battery[i],
                                                           1e-6);
                                     })
            ->Unit(benchmark::kMillisecond);
    }
    static law_holder native(VORX_NEW native_helix);
    static const approx_case& helix = approx_battery[2];
    benchmark::RegisterBenchmark("helix4_1e-6/law", [](benchmark::State& s) {
        approx_case_bench(s, laws[2].get(), helix, 1e-6);
    })->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("helix4_1e-6/native", [](benchmark::State& s) {
        approx_case_bench(s, native.get(), helix, 1e-6);
    })->Unit(benchmark::kMillisecond);
    static law_holder sphere(str_to_law("VEC(COS(X)*COS(Y),SIN(X)*COS(Y),SIN(Y))"));
    static law_holder native_s(VORX_NEW native_sphere);
    benchmark::RegisterBenchmark("sphere_1e-6/law", [](benchmark::State& s) {
        sphere_bench(s, sphere.get());
    })->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("sphere_1e-6/native", [](benchmark::State& s) {
        sphere_bench(s, native_s.get());
    })->Unit(benchmark::kMillisecond);
    return true;
}();

}  // namespace
