// Laws baked into C++ by law_to_c_function, against the same functions written by hand,
// timed in the same run.  The generated functions (bench_codegen_laws.hpp) are written
// at build time from the evaluation workload E1-E8 and inlined into the timing loop just
// as the hand-written ones are.  Two comparisons per law: the value alone, and the value
// with its first derivatives (both inputs for E7).  Each pass runs over 10^6 points spread
// over [-0.9, 0.9], Y held at 0.7; times are medians over eleven passes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

#include "bench_codegen_laws.hpp"
#include "lawutil/global_names.hpp"

namespace {

constexpr int points = 1000000;
constexpr int passes = 11;
constexpr double y_fixed = 0.7;

// The point by a multiplication: a division here would share the divider with E2's.
constexpr double step = 1.8 / (points - 1);
inline double px(int k) {
    return -0.9 + step * k;
}

// ---- hand-written: Horner, x*x, constants folded, shared subexpressions named ----
struct value_grad {
    double v, dx, dy;
};

inline double horner_e5(double x) {
    return ((((((((9 * x + 8) * x + 7) * x + 6) * x + 5) * x + 4) * x + 3) * x + 2) * x + 1);
}

template <int Id>
inline double native(double x, double y) {
    switch (Id) {
        case 0:
            return x * x + std::sin(x);
        case 1:
            return ((x * x - 2) * x + 1) / (x * x + 1);
        case 2:
            return std::exp(-(x * x)) * std::cos(10 * x);
        case 3: {
            double u = 1 + x * x;
            return std::sqrt(u) + std::log(u);
        }
        case 4:
            return horner_e5(x);
        case 5:
            return std::sin(x) * std::cos(x) + std::exp(x * (1.0 / 3)) * std::sinh(x * 0.5);
        case 6:
            return x * x * y + std::sin(x * y) + y * y * y;
        default:
            return std::sin(std::cos(std::sin(std::cos(x + 1) + 2) + 3) + 4) *
                   std::exp(-std::fabs(x));
    }
}

template <int Id>
inline value_grad native_d(double x, double y) {
    switch (Id) {
        case 0:
            return {x * x + std::sin(x), 2 * x + std::cos(x), 0};
        case 1: {
            double q = x * x + 1, v = ((x * x - 2) * x + 1) / q;
            return {v, ((3 * x * x - 2) - v * 2 * x) / q, 0};
        }
        case 2: {
            double e = std::exp(-(x * x)), c = std::cos(10 * x), s = std::sin(10 * x);
            return {e * c, -e * (2 * x * c + 10 * s), 0};
        }
        case 3: {
            double u = 1 + x * x, r = std::sqrt(u);
            return {r + std::log(u), x / r + 2 * x / u, 0};
        }
        case 4: {
            const double c[] = {8, 7, 6, 5, 4, 3, 2, 1};
            double p = 9, d = 0;
            for (double ck : c) {
                d = d * x + p;
                p = p * x + ck;
            }
            return {p, d, 0};
        }
        case 5: {
            double s = std::sin(x), c = std::cos(x), e = std::exp(x * (1.0 / 3));
            double sh = std::sinh(x * 0.5), ch = std::cosh(x * 0.5);
            return {s * c + e * sh, c * c - s * s + e * (sh * (1.0 / 3) + 0.5 * ch), 0};
        }
        case 6: {
            double xy = x * y, c = std::cos(xy);
            return {x * x * y + std::sin(xy) + y * y * y, 2 * x * y + y * c,
                    x * x + x * c + 3 * y * y};
        }
        default: {
            double a = x + 1, u1 = std::cos(a) + 2, u2 = std::sin(u1) + 3, u3 = std::cos(u2) + 4;
            double f = std::sin(u3), e = std::exp(-std::fabs(x));
            double df = std::cos(u3) * -std::sin(u2) * std::cos(u1) * -std::sin(a);
            return {f * e, df * e + f * e * (x > 0 ? -1 : 1), 0};
        }
    }
}

template <class F>
double ns_per_point(F f) {
    auto t0 = std::chrono::steady_clock::now();
    double sum = 0;
    for (int k = 0; k < points; ++k) sum += f(px(k));
    auto t1 = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(sum);
    return std::chrono::duration<double, std::nano>(t1 - t0).count() / points;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

const char* const names[] = {"E1 X^2+SIN(X)",
                             "E2 (X^3-2*X+1)/(X^2+1)",
                             "E3 EXP(-(X^2))*COS(10*X)",
                             "E4 SQRT(1+X^2)+LN(1+X^2)",
                             "E5 1+2*X+...+9*X^8",
                             "E6 SIN(X)*COS(X)+EXP(X/3)*SINH(X/2)",
                             "E7 X^2*Y+SIN(X*Y)+Y^3",
                             "E8 SIN(COS(SIN(COS(X+1)+2)+3)+4)*EXP(-ABS(X))"};
constexpr int law_count = 8;
double value_ratios[law_count], grad_ratios[law_count];

// One pass times the four loops back to back, the order alternating between passes; the
// ratio is taken within each pass and the median over passes kept, so the slow drifts of a
// shared machine cancel out of the ratio.
template <int Id, class G, class D>
void run(benchmark::State& state, G generated_value, D generated_grad) {
    std::vector<double> gen_v, nat_v, gen_d, nat_d, ratio_v, ratio_d;
    int bad = 0;
    auto gen_value = [&](double x) {
        double in[2] = {x, y_fixed}, v = 0;
        bad |= generated_value(in, &v);
        return v;
    };
    auto gen_grad = [&](double x) {
        double in[2] = {x, y_fixed}, v = 0, g[2] = {0, 0};
        bad |= generated_grad(in, &v, g);
        return v + g[0] + (Id == 6 ? g[1] : 0.0);
    };
    auto nat_value = [](double x) { return native<Id>(x, y_fixed); };
    auto nat_grad = [](double x) {
        value_grad r = native_d<Id>(x, y_fixed);
        return r.v + r.dx + r.dy;
    };
    for (auto _ : state) {
        for (int p = 0; p < passes; ++p) {
            if (p % 2) {
                nat_v.push_back(ns_per_point(nat_value));
                gen_v.push_back(ns_per_point(gen_value));
                nat_d.push_back(ns_per_point(nat_grad));
                gen_d.push_back(ns_per_point(gen_grad));
            } else {
                gen_v.push_back(ns_per_point(gen_value));
                nat_v.push_back(ns_per_point(nat_value));
                gen_d.push_back(ns_per_point(gen_grad));
                nat_d.push_back(ns_per_point(nat_grad));
            }
            ratio_v.push_back(gen_v.back() / nat_v.back());
            ratio_d.push_back(gen_d.back() / nat_d.back());
        }
    }
    if (bad) state.SkipWithError("a generated function reported a domain error");
    value_ratios[Id] = median(ratio_v);
    grad_ratios[Id] = median(ratio_d);
    state.counters["gen_ns"] = median(gen_v);
    state.counters["native_ns"] = median(nat_v);
    state.counters["ratio"] = value_ratios[Id];
    state.counters["gen_d_ns"] = median(gen_d);
    state.counters["native_d_ns"] = median(nat_d);
    state.counters["ratio_d"] = grad_ratios[Id];
    state.SetLabel(names[Id]);
}

#define CODEGEN_BENCH(id, fn)                                                                  \
    void BM_Codegen_##fn(benchmark::State& state) {                                            \
        run<id>(                                                                               \
            state, [](const double* x, double* v) { return generated::fn(x, v); },             \
            [](const double* x, double* v, double* g) { return generated::fn##_d(x, v, g); }); \
    }                                                                                          \
    BENCHMARK(BM_Codegen_##fn)->Iterations(1)->Unit(benchmark::kMillisecond);

CODEGEN_BENCH(0, e1)
CODEGEN_BENCH(1, e2)
CODEGEN_BENCH(2, e3)
CODEGEN_BENCH(3, e4)
CODEGEN_BENCH(4, e5)
CODEGEN_BENCH(5, e6)
CODEGEN_BENCH(6, e7)
CODEGEN_BENCH(7, e8)

// Geometric means of the ratios measured above (registered last, so it runs last).
void BM_CodegenGeometricMean(benchmark::State& state) {
    for (auto _ : state) {
    }
    double lv = 0, ld = 0;
    for (int i = 0; i < law_count; ++i) {
        lv += std::log(value_ratios[i] > 0 ? value_ratios[i] : 1.0);
        ld += std::log(grad_ratios[i] > 0 ? grad_ratios[i] : 1.0);
    }
    state.counters["geomean_ratio"] = std::exp(lv / law_count);
    state.counters["geomean_ratio_d"] = std::exp(ld / law_count);
}
BENCHMARK(BM_CodegenGeometricMean)->Iterations(1);

}  // namespace
