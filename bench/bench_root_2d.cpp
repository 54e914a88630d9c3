// Compass search and zeros in the plane: microseconds and objective evaluations per call.
//
// Nmin2D is compared with the same compass search written natively over an inlined
// objective (ratio = law search / native search, same evaluation count).  Nroot2D is
// compared with the native cost of its evaluations alone (ratio = time per call /
// (evaluations x native time of one evaluation of the magnitude)): the part above 1 is
// the price of the law tree and of the search's bookkeeping.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <ctime>
#include <vector>

#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"
#include "tests/test_support.hpp"  // counted_law

namespace {

// Processor time of this process in microseconds (the machine may be shared: wall time
// would count other work).
double cpu_us() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1e6 + t.tv_nsec * 1e-3;
}

// Median of five processor-time measurements of `f`, in microseconds per call.
template <class F>
double median_us(F f, int reps) {
    std::vector<double> t;
    for (int k = 0; k < 5; ++k) {
        double t0 = cpu_us();
        for (int i = 0; i < reps; ++i) f();
        t.push_back((cpu_us() - t0) / reps);
    }
    std::sort(t.begin(), t.end());
    return t[2];
}

// The compass search of Nmin2D over a native objective: same trials, same step rules.
template <class F>
double native_compass(F f, double x, double y, double h, long& evals) {
    double fz = f(x, y);
    evals = 1;
    int since = 0, last_won = -1;
    while (h > 1e-14) {
        double v[4] = {f(x + h, y), f(x - h, y), f(x, y + h), f(x, y - h)};
        double px[5] = {x + h, x - h, x, x, 0}, py[5] = {y, y, y + h, y - h, 0};
        evals += 4;
        double best = fz;
        int won = -1;
        for (int i = 0; i < 4; ++i)
            if (v[i] < best) best = v[i], won = i;
        double gx = 0.5 * (v[0] - v[1]), gy = 0.5 * (v[2] - v[3]);
        double len = std::sqrt(gx * gx + gy * gy);
        if ((std::fabs(v[0] - v[1]) > 1e-10 || std::fabs(v[2] - v[3]) > 1e-10) && len / h > 1e-15) {
            px[4] = x - h * gx / len, py[4] = y - h * gy / len;
            double g = f(px[4], py[4]);
            ++evals;
            if (g < best) best = g, won = 4;
        }
        if (won >= 0) x = px[won], y = py[won], fz = best;
        ++since;
        if (won < 0)
            h *= 0.5, since = 0;
        else if (since >= 3 || won == last_won)
            h *= 2, since = 0;
        last_won = won;
        if (evals > 10000) break;
    }
    return fz + x + y;
}

struct bowl {
    const char* text;
    double (*native)(double, double);
};

const bowl bowls[] = {
    {"(X-1)^2+2*(Y+0.5)^2",
     [](double x, double y) { return (x - 1) * (x - 1) + 2 * (y + 0.5) * (y + 0.5); }},
    {"(X+Y-1)^2+10*(X-Y)^2",
     [](double x, double y) { return (x + y - 1) * (x + y - 1) + 10 * (x - y) * (x - y); }},
};

void BM_Nmin2D(benchmark::State& state) {
    const bowl& b = bowls[state.range(0)];
    initialize_law();
    {
        law_holder f(str_to_law(b.text));
        law_holder counted(VORX_NEW counted_law(b.text));
        double value, step;
        int status;
        Nmin2D(counted.get(), nullptr, complex_number(3, -2), 0.5, 100, &value, &step, &status,
               nullptr);
        long evals = static_cast<counted_law*>(counted.get())->calls, native_evals = 0;
        for (auto _ : state) {
            complex_number z = Nmin2D(f.get(), nullptr, complex_number(3, -2), 0.5, 100, &value,
                                      &step, &status, nullptr);
            benchmark::DoNotOptimize(z);
        }
        double law_us = median_us(
            [&] {
                complex_number z = Nmin2D(f.get(), nullptr, complex_number(3, -2), 0.5, 100, &value,
                                          &step, &status, nullptr);
                benchmark::DoNotOptimize(z);
            },
            200);
        double native_us = median_us(
            [&] { benchmark::DoNotOptimize(native_compass(b.native, 3, -2, 0.5, native_evals)); },
            200);
        state.counters["evals_per_call"] = (double)evals;
        state.counters["native_evals"] = (double)native_evals;
        state.counters["law_us"] = law_us;
        state.counters["native_us"] = native_us;
        state.counters["ratio_to_native"] = law_us / native_us;
        state.SetLabel(b.text);
    }
    terminate_law();
}
BENCHMARK(BM_Nmin2D)->DenseRange(0, 1)->Unit(benchmark::kMicrosecond);

struct system {
    const char* name;
    const char* magnitude;
    const char* reach;  // null: the unpruned tree
    double x0, y0, x1, y1;
    double (*native)(double, double);
};

const system systems[] = {
    {"circle_line", "SQRT((X^2+Y^2-1)^2+(X-Y)^2)", "SQRT((X^2+Y^2-1)^2+(X-Y)^2)/6", -2, -2, 2, 2,
     [](double x, double y) { return std::hypot(x * x + y * y - 1, x - y); }},
    {"two_ellipses", "SQRT((X^2/4+Y^2-1)^2+(X^2+Y^2/4-1)^2)", nullptr, -2, -2, 2, 2,
     [](double x, double y) { return std::hypot(x * x / 4 + y * y - 1, x * x + y * y / 4 - 1); }},
    {"sin_grid", "SQRT(SIN(PI*X)^2+SIN(PI*Y)^2)", "SQRT(SIN(PI*X)^2+SIN(PI*Y)^2)/4.5", -0.4, -0.4,
     2.4, 1.4,
     [](double x, double y) { return std::hypot(std::sin(M_PI * x), std::sin(M_PI * y)); }},
};

void BM_Nroot2D(benchmark::State& state) {
    const system& s = systems[state.range(0)];
    initialize_law();
    {
        law_holder f(str_to_law(s.magnitude));
        law_holder g(s.reach ? str_to_law(s.reach) : nullptr);
        law_holder counted(VORX_NEW counted_law(s.magnitude));
        rec2d R(s.x0, s.y0, s.x1, s.y1);
        int n = 0;
        VORX_FREE(Nroot2D(counted.get(), g.get(), nullptr, R, &n, nullptr, 0));
        long evals = static_cast<counted_law*>(counted.get())->calls;
        for (auto _ : state) {
            complex_number* z = Nroot2D(f.get(), g.get(), nullptr, R, &n, nullptr, 0);
            benchmark::DoNotOptimize(z);
            VORX_FREE(z);
        }
        double law_us = median_us(
            [&] {
                complex_number* z = Nroot2D(f.get(), g.get(), nullptr, R, &n, nullptr, 0);
                VORX_FREE(z);
            },
            5);
        // One native evaluation of the magnitude, over points spread through R.
        double native_eval_us = median_us(
                                    [&] {
                                        double acc = 0;
                                        for (int i = 0; i < 1000; ++i)
                                            acc += s.native(s.x0 + (s.x1 - s.x0) * (i % 37) / 37.0,
                                                            s.y0 + (s.y1 - s.y0) * (i % 41) / 41.0);
                                        benchmark::DoNotOptimize(acc);
                                    },
                                    100) /
                                1000;
        state.counters["law_us"] = law_us;
        state.counters["zeros"] = n;
        state.counters["evals_per_call"] = (double)evals;
        state.counters["ratio_to_native_evals"] = law_us / (evals * native_eval_us);
        state.SetLabel(std::string(s.name) + (s.reach ? " (reach law)" : " (unpruned)"));
    }
    terminate_law();
}
BENCHMARK(BM_Nroot2D)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

}  // namespace
