// Nroot and Nmax over representative laws: microseconds and evaluations per call, as a
// ratio to a native search timed in the same run.  The native side is what a careful
// programmer writes without a law library: the same function in C++, a 1000-sample scan,
// then bisection of every sign change to 1e-12 (roots) or golden-section refinement
// around the best sample (maximum).  It knows nothing of poles, tangencies or derivatives,
// so the comparison is of cost, not of answers.  Evaluations of Nroot count the law and
// its derivative laws alike (last_nroot_stats); a native evaluation is one call.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

struct bench_law {
    const char* text;
    double a, b;
    double (*native)(double x);
};

const bench_law laws[] = {
    {"X^2-0.25", -1, 1, [](double x) { return x * x - 0.25; }},
    {"(X-0.2)*(X-0.5)*(X-0.8)", 0, 1, [](double x) { return (x - 0.2) * (x - 0.5) * (x - 0.8); }},
    {"(X-0.3)^2*(X-0.7)", 0, 1, [](double x) { return (x - 0.3) * (x - 0.3) * (x - 0.7); }},
    {"X^5-X", -1.5, 1.5, [](double x) { return ((x * x) * (x * x) - 1) * x; }},
    {"X^3-2*X-5", 0, 3, [](double x) { return (x * x - 2) * x - 5; }},
    {"SIN(X)", 0, 10, [](double x) { return std::sin(x); }},
    {"SIN(5*X)", 0, 3, [](double x) { return std::sin(5 * x); }},
    {"COS(X)-X", 0, 1, [](double x) { return std::cos(x) - x; }},
    {"EXP(X)-2", 0, 3, [](double x) { return std::exp(x) - 2; }},
    {"X*EXP(-X)", -1, 5, [](double x) { return x * std::exp(-x); }},
    {"TANH(10*X-3)", 0, 1, [](double x) { return std::tanh(10 * x - 3); }},
    {"EXP(-(X^2))*COS(10*X)", -1, 1,
     [](double x) { return std::exp(-(x * x)) * std::cos(10 * x); }},
    {"1/(X-0.5)", 0, 1, [](double x) { return 1 / (x - 0.5); }},
};
constexpr int law_count = sizeof laws / sizeof laws[0];
constexpr int calls = 200;
constexpr int samples = 1000;

long native_evaluations = 0;

double native_eval(const bench_law& b, double x) {
    ++native_evaluations;
    return b.native(x);
}

// Scan and bisect: the roots' count (their sum keeps the work alive).
double native_roots(const bench_law& b) {
    double sum = 0, h = (b.b - b.a) / (samples - 1);
    double x0 = b.a, f0 = native_eval(b, x0);
    for (int i = 1; i < samples; ++i) {
        double x1 = b.a + i * h, f1 = native_eval(b, x1);
        if (f0 == 0 || (f0 < 0) != (f1 < 0)) {
            double lo = x0, hi = x1, flo = f0;
            while (hi - lo > 1e-12) {
                double m = 0.5 * (lo + hi), fm = native_eval(b, m);
                if ((flo < 0) != (fm < 0))
                    hi = m;
                else
                    lo = m, flo = fm;
            }
            sum += lo;
        }
        x0 = x1, f0 = f1;
    }
    return sum;
}

// Scan and golden-section refinement around the best sample.
double native_max(const bench_law& b) {
    double h = (b.b - b.a) / (samples - 1), best = b.a, best_v = native_eval(b, b.a);
    for (int i = 1; i < samples; ++i) {
        double x = b.a + i * h, v = native_eval(b, x);
        if (v > best_v) best = x, best_v = v;
    }
    const double g = 0.6180339887498949;
    double lo = std::max(b.a, best - h), hi = std::min(b.b, best + h);
    double c = hi - g * (hi - lo), d = lo + g * (hi - lo);
    double fc = native_eval(b, c), fd = native_eval(b, d);
    while (hi - lo > 1e-10) {
        if (fc > fd)
            hi = d, d = c, fd = fc, c = hi - g * (hi - lo), fc = native_eval(b, c);
        else
            lo = c, c = d, fc = fd, d = lo + g * (hi - lo), fd = native_eval(b, d);
    }
    return 0.5 * (lo + hi);
}

template <class F>
double us_per_call(F f) {
    auto t0 = std::chrono::steady_clock::now();
    double sum = 0;
    for (int k = 0; k < calls; ++k) sum += f();
    auto t1 = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(sum);
    return std::chrono::duration<double, std::micro>(t1 - t0).count() / calls;
}

// which: 0 Nroot, 1 Nmax.
void run(benchmark::State& state, int which) {
    const bench_law& b = laws[state.range(0)];
    initialize_law();
    law_holder l(str_to_law(b.text));
    double best_law = std::numeric_limits<double>::infinity(), best_native = best_law;
    long evals = 0, found = 0;
    for (auto _ : state) {
        best_law = std::min(best_law, us_per_call([&] {
                                if (which == 1) return Nmax(l.get(), b.a, b.b);
                                int n = 0;
                                double* r = Nroot(l.get(), b.a, b.b, &n);
                                VORX_FREE(r);
                                found = n;
                                return (double)n;
                            }));
        evals = last_nroot_stats().evaluations;
        native_evaluations = 0;
        best_native = std::min(
            best_native, us_per_call([&] { return which == 1 ? native_max(b) : native_roots(b); }));
    }
    state.counters["law_us"] = best_law;
    state.counters["native_us"] = best_native;
    state.counters["ratio"] = best_law / best_native;
    state.counters["evals"] = (double)evals;
    state.counters["native_evals"] = (double)native_evaluations / calls;
    if (which == 0) state.counters["roots"] = (double)found;
    state.SetLabel(b.text);
    l.reset();
    terminate_law();
}

void BM_Nroot(benchmark::State& state) {
    run(state, 0);
}
void BM_Nmax(benchmark::State& state) {
    run(state, 1);
}
BENCHMARK(BM_Nroot)->DenseRange(0, law_count - 1)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Nmax)->DenseRange(0, law_count - 1)->Iterations(5)->Unit(benchmark::kMillisecond);

}  // namespace
