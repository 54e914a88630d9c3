// The cost of the law layer over geometry: CUR, DCUR(.,1) and DCUR(.,2) over a cubic
// spline curve of 100 spans against the curve's own evaluator called directly for the
// same output, in the same run, parameters in rising order.  Reported: ns per evaluation
// of each side and their ratio.  Also the foot of the perpendicular (CURVEPERP): ns per
// call and evaluations of the curve data per call.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <vector>

#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

constexpr int spans = 100;
constexpr int points = 100000;

sw_curve make_cubic() {
    const int p = 3, n = spans + p;
    std::vector<double> knots(n + p + 1), pts(3 * n);
    for (int i = 0; i < n + p + 1; ++i) knots[i] = std::clamp(i - p, 0, spans);
    for (int i = 0; i < n; ++i) {
        pts[3 * i] = i;
        pts[3 * i + 1] = (i % 3) - 1.0;
        pts[3 * i + 2] = (i % 5) * 0.25;
    }
    return sw_curve(n, p, 0, 0, 1, 0, knots.data(), nullptr, pts.data(), 0.0, spans, nullptr);
}

template <class F>
double ns_per_point(F f) {
    auto t0 = std::chrono::steady_clock::now();
    double sum = 0;
    for (int k = 0; k < points; ++k) sum += f(spans * (k + 0.5) / points);
    auto t1 = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(sum);
    return std::chrono::duration<double, std::nano>(t1 - t0).count() / points;
}

void BM_CurveLaw(benchmark::State& state) {
    const int order = (int)state.range(0);
    initialize_law();
    sw_curve c = make_cubic();
    law_data_holder d(VORX_NEW sw_curve_law_data(c, 0.0, spans));
    law_holder l(order == 0 ? (law*)VORX_NEW curve_law(d.get())
                            : (law*)VORX_NEW dcurve_law(d.get(), order));
    const sw_curve* curve = static_cast<sw_curve_law_data*>(d.get())->curve();
    double best_law = std::numeric_limits<double>::infinity(), best_native = best_law;
    for (auto _ : state) {
        best_law = std::min(best_law, ns_per_point([&](double t) {
                                double y[3];
                                l->evaluate(&t, y);
                                return y[0] + y[1];
                            }));
        best_native =
            std::min(best_native, ns_per_point([&](double t) {
                         position P;
                         vector D[2];
                         curve->eval(t, order == 0 ? &P : nullptr, order == 1 ? &D[0] : nullptr,
                                     order == 2 ? &D[1] : nullptr);
                         return order == 0 ? P.x() + P.y() : D[order - 1].x() + D[order - 1].y();
                     }));
    }
    state.counters["law_ns"] = best_law;
    state.counters["native_ns"] = best_native;
    state.counters["ratio"] = best_law / best_native;
    state.SetLabel(order == 0 ? "CUR" : order == 1 ? "DCUR(.,1)" : "DCUR(.,2)");
    l.reset();
    d.reset();
    terminate_law();
}
BENCHMARK(BM_CurveLaw)->Arg(0)->Arg(1)->Arg(2)->Iterations(5)->Unit(benchmark::kMillisecond);

// Curve data that counts its evaluations.
class counting_curve : public base_curve_law_data {
  public:
    explicit counting_curve(const path_law_data* c)
        : base_curve_law_data(c->data_start(), c->data_end()), c_(c) {}
    const char* symbol(law_symbol_type) const override { return "COUNTED"; }
    law_data* deep_copy(pointer_map*) const override { return VORX_NEW counting_curve(c_); }
    vector eval(double t, int n, int side) const override {
        ++evaluations;
        return c_->eval(t, n, side);
    }
    double curvature(double) const override { return 0; }
    double length_param(double, double) const override { return 0; }
    double length(double, double) const override { return 0; }
    double point_perp(const position&, double) const override { return 0; }
    double point_perp(const position&) const override { return 0; }
    mutable long evaluations = 0;

  private:
    const path_law_data* c_;
};

void BM_CurveFoot(benchmark::State& state) {
    initialize_law();
    sw_curve c = make_cubic();
    law_data_holder d(VORX_NEW sw_curve_law_data(c, 0.0, spans));
    law_data_holder counted(VORX_NEW counting_curve(static_cast<path_law_data*>(d.get())));
    auto* cc = static_cast<counting_curve*>(counted.get());
    const int calls = 2000;
    long evals = 0;
    for (auto _ : state) {
        cc->evaluations = 0;
        for (int k = 0; k < calls; ++k) {
            double t = spans * (k + 0.5) / calls;
            position p =
                position(static_cast<path_law_data*>(d.get())->eval(t, 0, 0)) + vector(0, 0, 0.01);
            benchmark::DoNotOptimize(curve_foot(cc, p));
        }
        evals += cc->evaluations;
    }
    state.counters["evals_per_call"] = (double)evals / ((double)calls * state.iterations());
    state.counters["us_per_call"] =
        benchmark::Counter((double)calls * state.iterations(),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    counted.reset();
    d.reset();
    terminate_law();
}
BENCHMARK(BM_CurveFoot)->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace
