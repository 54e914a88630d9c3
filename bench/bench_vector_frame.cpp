// Evaluation speed of the vector and frame laws on the helix (cos t, sin t, t), as a
// ratio to the same computation written in C++ and timed in the same run.  MINROT's
// native side is the same double-reflection step from a table made beforehand (its
// one-time integration is not timed on either side); the integration itself is timed
// separately, with the curve evaluations it makes (two per sample: C and C').
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <vector>

#include "base/options.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

constexpr int points = 200000;

inline double pt(int k) {
    return 6.0 * k / (points - 1);
}

vector helix(double t) {
    return vector(std::cos(t), std::sin(t), t);
}
vector helix_d1(double t) {
    return vector(-std::sin(t), std::cos(t), 1.0);
}
vector unit3(const vector& v) {
    return v / std::sqrt(v % v);
}

// The same step as MINROT's, over a table of n+1 samples of [0, 6] made here.
struct native_rmf {
    std::vector<vector> x, t, r;
    double h;
    explicit native_rmf(int n) : h(6.0 / n) {
        for (int i = 0; i <= n; ++i) {
            double s = i * h;
            x.push_back(helix(s));
            t.push_back(unit3(helix_d1(s)));
            r.push_back(i == 0 ? vector(-1, 0, 0) : step(x[i - 1], t[i - 1], r[i - 1], x[i], t[i]));
        }
    }
    static vector step(const vector& x0, const vector& t0, const vector& r0, const vector& x1,
                       const vector& t1) {
        vector v1 = x1 - x0;
        double c1 = v1 % v1;
        vector rl = r0 - (2.0 / c1) * (v1 % r0) * v1, tl = t0 - (2.0 / c1) * (v1 % t0) * v1;
        vector v2 = t1 - tl;
        double c2 = v2 % v2;
        return c2 > 0.0 ? rl - (2.0 / c2) * (v2 % rl) * v2 : rl;
    }
    vector at(double s) const {
        int i = std::min((int)(s / h), (int)x.size() - 2);
        return c1_guard(i, s);
    }
    vector c1_guard(int i, double s) const {
        vector x1 = helix(s), t1 = unit3(helix_d1(s));
        if ((x1 - x[i]) % (x1 - x[i]) == 0.0) return r[i];
        return step(x[i], t[i], r[i], x1, t1);
    }
};

const native_rmf& rmf_table() {
    static const native_rmf table(1000);
    return table;
}

struct bench_law {
    const char* text;
    vector (*native)(double t);
};

const bench_law laws[] = {
    {"CROSS(VEC(COS(X),SIN(X),X),VEC(-SIN(X),COS(X),1))",
     [](double t) { return helix(t) * helix_d1(t); }},
    {"NORM(VEC(-SIN(X),COS(X),1))", [](double t) { return unit3(helix_d1(t)); }},
    {"FRENET(VEC(COS(X),SIN(X),X),3)",
     [](double t) { return unit3(helix_d1(t) * vector(-std::cos(t), -std::sin(t), 0.0)); }},
    {"BEND(VEC(X,0.5,0.2),VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),2)",
     [](double t) {
         double a = t / 2.0, k = 2.0 - 0.5;
         return vector(k * std::sin(a), 2.0 - k * std::cos(a), 0.2);
     }},
    {"MINROT(VEC(COS(X),SIN(X),X),VEC(-1,0,0),0,6)", [](double t) { return rmf_table().at(t); }},
};
constexpr int law_count = sizeof laws / sizeof laws[0];

template <class F>
double ns_per_point(F f) {
    auto t0 = std::chrono::steady_clock::now();
    double sum = 0;
    for (int k = 0; k < points; ++k) {
        vector v = f(pt(k));
        sum += v.x() + v.y() + v.z();
    }
    auto t1 = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(sum);
    return std::chrono::duration<double, std::nano>(t1 - t0).count() / points;
}

void BM_FrameEval(benchmark::State& state) {
    const bench_law& b = laws[state.range(0)];
    initialize_law();
    law_holder l(str_to_law(b.text));
    const law* lp = l.get();
    rmf_table();
    lp->evaluateR_V(0.0);  // MINROT integrates here, outside the timing
    double best_law = std::numeric_limits<double>::infinity(), best_native = best_law;
    for (auto _ : state) {
        best_law = std::min(best_law, ns_per_point([&](double t) { return lp->evaluateR_V(t); }));
        best_native = std::min(best_native, ns_per_point(b.native));
    }
    state.counters["law_ns"] = best_law;
    state.counters["native_ns"] = best_native;
    state.counters["ratio"] = best_law / best_native;
    state.SetLabel(b.text);
    l.reset();
    terminate_law();
}
BENCHMARK(BM_FrameEval)->DenseRange(0, law_count - 1)->Iterations(5)->Unit(benchmark::kMillisecond);

// MINROT's one-time integration over 10^4 samples, by either step ("fast_euler").
void BM_MinRotIntegration(benchmark::State& state) {
    initialize_law();
    option_guard euler("fast_euler", (int)state.range(0));
    option_guard samples("min_rot_samples", 10000);
    for (auto _ : state) {
        law_holder l(str_to_law("MINROT(VEC(COS(X),SIN(X),X),VEC(-1,0,0),0,6)"));
        benchmark::DoNotOptimize(l->evaluateR_V(3.0));
    }
    state.counters["curve_evals_per_call"] = 2.0 * (10000 + 1) + 2.0;
    state.SetLabel(state.range(0) ? "double reflection" : "rotation method");
    terminate_law();
}
BENCHMARK(BM_MinRotIntegration)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

}  // namespace
