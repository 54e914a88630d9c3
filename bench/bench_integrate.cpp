// Integration over the battery of tests/integrate_battery.hpp: Romberg (tolerance 1e-10,
// through Nintegrate_wrt_and_split with no split point, so the ends pulled in by 1e-14
// are never sampled, as the integral law calls it),
// the adaptive routine (relative 1e-10) and the 21-point Gauss-Kronrod baseline without
// split points, each timed per call with its evaluations and relative error as counters.
// The native side is the same function written in C++ evaluated at as many points as the
// method used, timed in the same run: the cost of the samples alone, so the ratio is what
// the law machinery and the integrator's bookkeeping add.  A summary table
// (relative error and evaluations side by side) is printed once before the timings.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>

#include "../tests/integrate_battery.hpp"
#include "lawutil/lawutil.hpp"

namespace {

constexpr int battery_size = sizeof integrate_battery / sizeof integrate_battery[0];

// Evaluations of a Romberg call from its result: a row length L costs 2^(L-1) + 1; 0 is
// the limit of 10 rows.
int romberg_evaluations(int result) {
    int rows = result == 0 ? 10 : result;
    return (1 << (rows - 1)) + 1;
}

int romberg(const law* f, const battery_case& c, double* value) {
    double t = 0.0;
    return Nintegrate_wrt_and_split(const_cast<law*>(f), c.a, c.b, 0, &t, value, 0, nullptr, 1e-10,
                                    0);
}

double relative(double value, double exact) {
    return std::fabs(value - exact) / std::fabs(exact);
}

struct library {
    library() { initialize_law(); }
    ~library() { terminate_law(); }
};

void print_summary() {
    std::printf("%-28s %10s %6s | %10s %10s %6s %2s | %10s %6s\n", "integral", "romberg", "evals",
                "adaptive", "estimate", "evals", "st", "gk21", "evals");
    long totals[3] = {0, 0, 0};
    for (const battery_case& c : integrate_battery) {
        law_holder f(str_to_law(c.text));
        double romberg_value = 0.0;
        int code = romberg(f.get(), c, &romberg_value);
        integrate_result r = Nintegrate_adaptive(f.get(), c.a, c.b);
        integrate_result g = Nintegrate_adaptive(f.get(), c.a, c.b, gk21_baseline());
        int re = romberg_evaluations(code);
        std::printf("%-28s %10.1e %6d | %10.1e %10.1e %6d %2d | %10.1e %6d\n", c.text,
                    relative(romberg_value, c.exact), re, relative(r.value, c.exact),
                    r.error / std::fabs(c.exact), r.evaluations, r.status,
                    relative(g.value, c.exact), g.evaluations);
        totals[0] += re;
        totals[1] += r.evaluations;
        totals[2] += g.evaluations;
    }
    std::printf("%-28s %10s %6ld | %10s %10s %6ld %2s | %10s %6ld\n\n", "total", "", totals[0], "",
                "", totals[1], "", "", totals[2]);
}

enum method { romberg_method, adaptive_method, gk21_method };

void integrate_case(benchmark::State& state, int index, method m) {
    const battery_case& c = integrate_battery[index];
    law_holder f(str_to_law(c.text));
    double value = 0.0;
    int evaluations = 0;
    auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        if (m == romberg_method) {
            evaluations = romberg_evaluations(romberg(f.get(), c, &value));
        } else {
            integrate_result r = Nintegrate_adaptive(
                f.get(), c.a, c.b, m == gk21_method ? gk21_baseline() : integrate_options());
            value = r.value;
            evaluations = r.evaluations;
        }
        benchmark::DoNotOptimize(value);
    }
    double per_call =
        std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
            .count() /
        (double)state.iterations();
    state.counters["evals"] = evaluations;
    state.counters["rel_err"] = relative(value, c.exact);
    // Native: the C++ function at as many interior points, timed here (median of 5).
    double best[5];
    for (double& t : best) {
        auto t0 = std::chrono::steady_clock::now();
        double sum = 0.0;
        for (int rep = 0; rep < 100; ++rep)
            for (int k = 0; k < evaluations; ++k)
                sum += c.native(c.a + (c.b - c.a) * (k + 0.5) / evaluations);
        benchmark::DoNotOptimize(sum);
        t = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0)
                .count() /
            100;
    }
    std::sort(best, best + 5);
    state.counters["native_us"] = best[2];
    state.counters["ratio"] = per_call / best[2];
}

// Registered at load; the library is started for the whole run.
const bool registered = [] {
    static library lib;
    print_summary();
    const char* names[3] = {"romberg", "adaptive", "gk21"};
    for (int i = 0; i < battery_size; ++i)
        for (int m = 0; m < 3; ++m)
            benchmark::RegisterBenchmark(
                (std::string(names[m]) + "/" + integrate_battery[i].text).c_str(),
                [i, m](benchmark::State& s) { integrate_case(s, i, (method)m); })
                ->Unit(benchmark::kMicrosecond);
    return true;
}();

}  // namespace
