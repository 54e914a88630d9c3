// All roots of a law on an interval: Nroot_classified against Nroot, against a dense scan
// (1000 equally spaced samples, every sign change bisected to 1e-14) run on the same law,
// and against the same dense scan over the function written in C++ (the native side of
// the ratio), timed in the same run.  Reports microseconds, evaluations and points found
// per call for each (a scan counts poles and jumps as roots and misses tangencies), and
// the ratio of Nroot_classified's time to the native scan's.
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
    {"X^3-2*X-5", 0, 3, [](double x) { return (x * x - 2) * x - 5; }},
    {"(X-0.25)^2*(X-0.75)", 0, 1, [](double x) { return (x - 0.25) * (x - 0.25) * (x - 0.75); }},
    {"(X-1)*(X-2)*(X-3)*(X-4)*(X-5)", 0, 6,
     [](double x) { return (x - 1) * (x - 2) * (x - 3) * (x - 4) * (x - 5); }},
    {"SIN(1/X)", 0.01, 1, [](double x) { return std::sin(1 / x); }},
    {"SIN(50*X)", 0, 1, [](double x) { return std::sin(50 * x); }},
    {"EXP(-X)*COS(X)", 0, 30, [](double x) { return std::exp(-x) * std::cos(x); }},
    {"1/(X-0.3)-1/(X-0.6)", 0, 1, [](double x) { return 1 / (x - 0.3) - 1 / (x - 0.6); }},
    {"COT(X)", 0.1, 6, [](double x) { return 1 / std::tan(x); }},
    {"STEP(X-0.2,0.5,X-0.8)", 0, 1, [](double x) { return x < 0.5 ? x - 0.2 : x - 0.8; }},
    {"SQRT(X)-0.5", 0, 1, [](double x) { return std::sqrt(x) - 0.5; }},
    {"MAX(X-0.5,0.2-X)", 0, 1, [](double x) { return std::max(x - 0.5, 0.2 - x); }},
    {"X^2+1", -2, 2, [](double x) { return x * x + 1; }},
};
constexpr int law_count = sizeof laws / sizeof laws[0];

// Dense scan with bisection over any function; returns the number of roots reported.
template <class F>
int dense_scan(F f, double a, double b) {
    const int samples = 1000;
    int roots = 0;
    double x0 = a, f0 = f(a);
    for (int i = 1; i < samples; ++i) {
        double x1 = a + (b - a) * i / (samples - 1), f1 = f(x1);
        if (f1 == 0.0) ++roots;
        if (f0 != 0.0 && f1 != 0.0 && (f0 < 0) != (f1 < 0)) {
            double u = x0, v = x1, fu = f0;
            while (v - u > 1e-14 * std::max(1.0, std::fabs(u))) {
                double m = 0.5 * (u + v), fm = f(m);
                if (std::isnan(fm)) break;
                if ((fm < 0) == (fu < 0))
                    u = m, fu = fm;
                else
                    v = m;
            }
            ++roots;
        }
        x0 = x1, f0 = f1;
    }
    return roots;
}

// Best time of one call over `reps` calls, in microseconds.
template <class F>
double best_us(int reps, F call) {
    double best = std::numeric_limits<double>::infinity();
    for (int r = 0; r < reps; ++r) {
        auto t0 = std::chrono::steady_clock::now();
        call();
        auto t1 = std::chrono::steady_clock::now();
        best = std::min(best, std::chrono::duration<double, std::micro>(t1 - t0).count());
    }
    return best;
}

void BM_AllRoots(benchmark::State& state) {
    const bench_law& b = laws[state.range(0)];
    initialize_law();
    law_holder l(str_to_law(b.text));
    const law* lp = l.get();
    double classified_us = 0, scan_us = 0, native_us = 0, nroot_us = 0;
    int classified_evals = 0, scan_evals = 0, found = 0, scanned = 0, probed = 0;
    long nroot_evals = 0;
    for (auto _ : state) {
        classified_us = best_us(20, [&] {
            root_search_info info;
            classified_root* r = Nroot_classified(l.get(), b.a, b.b, &found, &info);
            classified_evals = info.evaluations;
            VORX_FREE(r);
        });
        scan_us = best_us(5, [&] {
            scan_evals = 0;
            scanned = dense_scan(
                [&](double x) {
                    ++scan_evals;
                    try {
                        return lp->eval(x);
                    } catch (const vorx_exception&) {
                        return std::numeric_limits<double>::quiet_NaN();
                    }
                },
                b.a, b.b);
        });
        nroot_us = best_us(20, [&] {
            try {
                VORX_FREE(Nroot(l.get(), b.a, b.b, &probed));
            } catch (const vorx_exception&) {
                probed = -1;
            }
            nroot_evals = last_nroot_stats().evaluations;
        });
        native_us = best_us(20, [&] { benchmark::DoNotOptimize(dense_scan(b.native, b.a, b.b)); });
    }
    state.counters["classified_us"] = classified_us;
    state.counters["classified_evals"] = classified_evals;
    state.counters["classified_evals_per_s"] = classified_evals / classified_us * 1e6;
    state.counters["classified_found"] = found;
    state.counters["scan_us"] = scan_us;
    state.counters["scan_evals"] = scan_evals;
    state.counters["scan_found"] = scanned;
    state.counters["nroot_us"] = nroot_us;
    state.counters["nroot_evals"] = (double)nroot_evals;
    state.counters["nroot_found"] = probed;
    state.counters["native_scan_us"] = native_us;
    state.counters["ratio_to_native"] = classified_us / native_us;
    state.SetLabel(b.text);
    l.reset();
    terminate_law();
}
BENCHMARK(BM_AllRoots)->DenseRange(0, law_count - 1)->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace
