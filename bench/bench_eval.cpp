// Scalar evaluation speed of parsed laws, as a ratio to the same functions written in
// C++ and timed in the same run (machines are noisy; only the ratio means something).
// Each law is evaluated over 10^6 points spread over [-0.9, 0.9] with Y held at 0.7.
// Also reports the tracked allocations made per evaluation, which must be 0.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include "lawutil/lawutil.hpp"

namespace {

constexpr int points = 1000000;
constexpr double y_fixed = 0.7;

inline double px(int k) {
    return -0.9 + 1.8 * k / (points - 1);
}

struct bench_law {
    const char* text;
    double (*native)(double x, double y);
};

const bench_law laws[] = {
    {"X^2+SIN(X)", [](double x, double) { return x * x + std::sin(x); }},
    {"(X^3-2*X+1)/(X^2+1)", [](double x, double) { return (x * x * x - 2 * x + 1) / (x * x + 1); }},
    {"EXP(-(X^2))*COS(10*X)",
     [](double x, double) { return std::exp(-(x * x)) * std::cos(10 * x); }},
    {"SQRT(1+X^2)+LN(1+X^2)",
     [](double x, double) { return std::sqrt(1 + x * x) + std::log(1 + x * x); }},
    {"1+2*X+3*X^2+4*X^3+5*X^4+6*X^5+7*X^6+8*X^7+9*X^8",
     [](double x, double) {
         return 1 + 2 * x + 3 * x * x + 4 * x * x * x + 5 * std::pow(x, 4) + 6 * std::pow(x, 5) +
                7 * std::pow(x, 6) + 8 * std::pow(x, 7) + 9 * std::pow(x, 8);
     }},
    {"SIN(X)*COS(X)+EXP(X/3)*SINH(X/2)",
     [](double x, double) {
         return std::sin(x) * std::cos(x) + std::exp(x / 3) * std::sinh(x / 2);
     }},
    {"X^2*Y+SIN(X*Y)+Y^3",
     [](double x, double y) { return x * x * y + std::sin(x * y) + y * y * y; }},
    {"SIN(COS(SIN(COS(X+1)+2)+3)+4)*EXP(-ABS(X))",
     [](double x, double) {
         return std::sin(std::cos(std::sin(std::cos(x + 1) + 2) + 3) + 4) * std::exp(-std::fabs(x));
     }},
};
constexpr int law_count = sizeof laws / sizeof laws[0];
double ratios[law_count];

template <class F>
double ns_per_point(F f) {
    auto t0 = std::chrono::steady_clock::now();
    double sum = 0;
    for (int k = 0; k < points; ++k) sum += f(px(k));
    auto t1 = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(sum);
    return std::chrono::duration<double, std::nano>(t1 - t0).count() / points;
}

long tracked_allocations_ever() {
    long n = 0;
    for (int i = 1; i <= vorx_mem_tag_count(); ++i) n += vorx_mem_tag(i).total_count;
    return n;
}

void BM_ScalarEval(benchmark::State& state) {
    const bench_law& b = laws[state.range(0)];
    initialize_law();
    law_holder l(str_to_law(b.text));
    if (!l) {
        state.SkipWithError("law did not parse");
        terminate_law();
        return;
    }
    const law* lp = l.get();
    double best_law = std::numeric_limits<double>::infinity(), best_native = best_law;
    long allocs = 0;
    for (auto _ : state) {
        long before = tracked_allocations_ever();
        best_law = std::min(best_law, ns_per_point([&](double x) {
                                double in[2] = {x, y_fixed};
                                return lp->evaluateM_R(in);
                            }));
        allocs += tracked_allocations_ever() - before;
        best_native =
            std::min(best_native, ns_per_point([&](double x) { return b.native(x, y_fixed); }));
    }
    ratios[state.range(0)] = best_law / best_native;
    state.counters["law_ns"] = best_law;
    state.counters["native_ns"] = best_native;
    state.counters["ratio"] = best_law / best_native;
    state.counters["allocs_per_eval"] = (double)allocs / ((double)points * state.iterations());
    state.SetLabel(b.text);
    l.reset();
    terminate_law();
}
BENCHMARK(BM_ScalarEval)
    ->DenseRange(0, law_count - 1)
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

// A vector law through the typed evaluator, against the same helix in C++.
void BM_VectorEval(benchmark::State& state) {
    initialize_law();
    law_holder l(str_to_law("VEC(COS(T),SIN(T),T)"));
    const law* lp = l.get();
    double best_law = std::numeric_limits<double>::infinity(), best_native = best_law;
    for (auto _ : state) {
        best_law = std::min(best_law, ns_per_point([&](double t) {
                                vector v = lp->evaluateR_V(t);
                                return v.x() + v.y() + v.z();
                            }));
        best_native = std::min(best_native, ns_per_point([&](double t) {
                                   vector v(std::cos(t), std::sin(t), t);
                                   return v.x() + v.y() + v.z();
                               }));
    }
    state.counters["law_ns"] = best_law;
    state.counters["native_ns"] = best_native;
    state.counters["ratio"] = best_law / best_native;
    state.SetLabel("VEC(COS(T),SIN(T),T) through evaluateR_V");
    l.reset();
    terminate_law();
}
BENCHMARK(BM_VectorEval)->Iterations(5)->Unit(benchmark::kMillisecond);

// Geometric mean of the ratios measured above (registered last, so it runs last).
void BM_GeometricMeanRatio(benchmark::State& state) {
    for (auto _ : state) {
    }
    double log_sum = 0;
    for (double r : ratios) log_sum += std::log(r > 0 ? r : 1.0);
    state.counters["geomean_ratio"] = std::exp(log_sum / law_count);
}
BENCHMARK(BM_GeometricMeanRatio)->Iterations(1);

}  // namespace
