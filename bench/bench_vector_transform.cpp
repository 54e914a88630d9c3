// Evaluation speed of the transform laws on the helix (cos t, sin t, t) carried by a
// turn, a scaling and a move, as a ratio to the same computation written in C++ (the
// scale folded into the matrix once, the products written out) timed in the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

constexpr int points = 200000;

// p -> 2 (p turned a quarter about z) + (1,2,3), and its inverse, as plain numbers.
const double m[9] = {0, 2, 0, -2, 0, 0, 0, 0, 2}, t[3] = {1, 2, 3};
const double mi[9] = {0, -0.5, 0, 0.5, 0, 0, 0, 0, 0.5};

inline void affine(const double* a, double x, double y, double z, double* out) {
    out[0] = x * a[0] + y * a[3] + z * a[6];
    out[1] = x * a[1] + y * a[4] + z * a[7];
    out[2] = x * a[2] + y * a[5] + z * a[8];
}

void native_trans(double s, double* out) {
    affine(m, std::cos(s), std::sin(s), s, out);
    for (int i = 0; i < 3; ++i) out[i] += t[i];
}
void native_postrans(double s, double* out) {
    affine(mi, std::cos(s) - t[0], std::sin(s) - t[1], s - t[2], out);
}
void native_vectrans(double s, double* out) {
    affine(m, std::cos(s), std::sin(s), s, out);
}

struct bench_law {
    const char* text;
    void (*native)(double, double*);
};

const bench_law laws[] = {
    {"TRANS(VEC(COS(X),SIN(X),X),TRANS1)", native_trans},
    {"POSTRANS(VEC(COS(X),SIN(X),X),TRANS1)", native_postrans},
    {"VECTRANS(VEC(COS(X),SIN(X),X),TRANS1)", native_vectrans},
};
constexpr int law_count = sizeof laws / sizeof laws[0];

template <class F>
double ns_per_point(F f) {
    auto t0 = std::chrono::steady_clock::now();
    double sum = 0, y[3];
    for (int k = 0; k < points; ++k) {
        f(6.0 * k / (points - 1), y);
        sum += y[0] + y[1] + y[2];
    }
    auto t1 = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(sum);
    return std::chrono::duration<double, std::nano>(t1 - t0).count() / points;
}

void BM_TransformEval(benchmark::State& state) {
    const bench_law& b = laws[state.range(0)];
    initialize_law();
    {
        transf turn(matrix(vector(0, 1, 0), vector(-1, 0, 0), vector(0, 0, 1)), 2.0,
                    vector(1, 2, 3));
        law_data_holder data(VORX_NEW base_transform_law_data(&turn));
        law_data* array[1] = {data.get()};
        law_holder l(str_to_law(b.text, array, 1));
        const law* lp = l.get();
        double best_law = std::numeric_limits<double>::infinity(), best_native = best_law;
        for (auto _ : state) {
            best_law =
                std::min(best_law, ns_per_point([&](double s, double* y) { lp->evaluate(&s, y); }));
            best_native = std::min(best_native, ns_per_point(b.native));
        }
        state.counters["law_ns"] = best_law;
        state.counters["native_ns"] = best_native;
        state.counters["ratio"] = best_law / best_native;
        state.SetLabel(b.text);
    }
    terminate_law();
}
BENCHMARK(BM_TransformEval)
    ->DenseRange(0, law_count - 1)
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

}  // namespace
