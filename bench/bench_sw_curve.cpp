// sw_curve::eval against a plain de Boor evaluation written here, timed in the same run.
// Two curves of 100 spans over uneven knots: a polynomial cubic and a rational quintic.
// Each is sampled at 10^5 parameters in rising order and in random order, asking for the
// point (order 0), point and first derivative (order 1), or all three (order 2).
//
// The native side is what a careful programmer writes without caches: the span by binary
// search over the knots, then de Boor's triangle on the span's control points, with the
// derivative curves' control points formed on the fly (homogeneous for the rational curve,
// then the quotient rule); degree and width are template constants, everything is on the
// stack and inlined.  Reported: ns per evaluation of each side, their ratio, the tracked
// allocations per evaluation of sw_curve (must be 0) and the largest difference between
// the two sides' results (they compute the same curve).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <limits>
#include <random>
#include <vector>

#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

constexpr int spans = 100;
constexpr int samples = 100000;

struct test_curve {
    int degree;
    bool rational;
    std::vector<double> knots, weights, points;  // points: x, y, z
    std::vector<double> homogeneous;             // w·x, w·y, w·z, w (rational only)
};

test_curve make_curve(int p, bool rational) {
    test_curve c;
    c.degree = p;
    c.rational = rational;
    const int n = spans + p;
    std::mt19937 rng(p * 17 + rational);
    std::uniform_real_distribution<double> step(0.5, 1.5), coord(-10, 10), weight(0.5, 2);
    double k = 0;
    for (int i = 0; i <= p; ++i) c.knots.push_back(0);
    for (int i = 1; i < spans; ++i) c.knots.push_back(k += step(rng));
    k += step(rng);
    for (int i = 0; i <= p; ++i) c.knots.push_back(k);
    for (int i = 0; i < n; ++i) {
        double w = rational ? weight(rng) : 1.0;
        c.weights.push_back(w);
        for (int j = 0; j < 3; ++j) c.points.push_back(coord(rng));
        for (int j = 0; j < 3; ++j) c.homogeneous.push_back(w * c.points[3 * i + j]);
        c.homogeneous.push_back(w);
    }
    return c;
}

// de Boor's triangle of degree Q on the Q + 1 points d (Dim wide) of the span kk[j]..kk[j+1].
template <int Q, int Dim>
inline void de_boor(const double* kk, int j, double t, double (*d)[Dim], double* out) {
    for (int r = 1; r <= Q; ++r)
        for (int i = Q; i >= r; --i) {
            const double lo = kk[j - Q + i], a = (t - lo) / (kk[j + 1 + i - r] - lo);
            for (int c = 0; c < Dim; ++c) d[i][c] = (1 - a) * d[i - 1][c] + a * d[i][c];
        }
    for (int c = 0; c < Dim; ++c) out[c] = d[Q][c];
}

// Value and derivatives up to `Order` of the (homogeneous, when Dim is 4) B-spline; the
// derivative curves' points are p·(P[i+1] - P[i])/(k[i+p+1] - k[i+1]) and so on.
template <int P, int Dim, int Order>
struct native_curve {
    const double* k;
    const double* cp;  // Dim wide
    int n;

    inline int span(double t) const { return int(std::upper_bound(k + P + 1, k + n, t) - k) - 1; }

    inline void eval(double t, double out[3][Dim]) const {
        const int j = span(t);
        double d[P + 1][Dim], q[P + 1][Dim];
        for (int i = 0; i <= P; ++i)
            for (int c = 0; c < Dim; ++c) d[i][c] = q[i][c] = cp[(j - P + i) * Dim + c];
        de_boor<P, Dim>(k, j, t, d, out[0]);
        if (Order < 1) return;
        // First derivative curve: degree P - 1 over knots k + 1, span j - 1.
        for (int l = 0; l < P; ++l) {
            const double s = P / (k[j + l + 1] - k[j - P + l + 1]);
            for (int c = 0; c < Dim; ++c) q[l][c] = s * (q[l + 1][c] - q[l][c]);
        }
        double q1[P + 1][Dim];
        for (int l = 0; l < P; ++l)
            for (int c = 0; c < Dim; ++c) q1[l][c] = q[l][c];
        de_boor<P - 1, Dim>(k + 1, j - 1, t, q1, out[1]);
        if (Order < 2) return;
        for (int l = 0; l < P - 1; ++l) {
            const double s = (P - 1) / (k[j + l + 1] - k[j - P + l + 2]);
            for (int c = 0; c < Dim; ++c) q[l][c] = s * (q[l + 1][c] - q[l][c]);
        }
        de_boor<P - 2, Dim>(k + 2, j - 2, t, q, out[2]);
    }
};

// Point and derivatives in model space: the quotient rule over homogeneous results.
template <int P, int Dim, int Order>
inline double native_sample(const native_curve<P, Dim, Order>& c, double t) {
    double h[3][Dim];
    c.eval(t, h);
    double r[3][3];
    if (Dim == 3) {
        for (int o = 0; o <= Order; ++o)
            for (int j = 0; j < 3; ++j) r[o][j] = h[o][j];
    } else {
        const double iw = 1.0 / h[0][Dim - 1];
        for (int j = 0; j < 3; ++j) r[0][j] = h[0][j] * iw;
        if (Order >= 1)
            for (int j = 0; j < 3; ++j) r[1][j] = (h[1][j] - h[1][Dim - 1] * r[0][j]) * iw;
        if (Order >= 2)
            for (int j = 0; j < 3; ++j)
                r[2][j] = (h[2][j] - 2 * h[1][Dim - 1] * r[1][j] - h[2][Dim - 1] * r[0][j]) * iw;
    }
    double sum = 0;
    for (int o = 0; o <= Order; ++o) sum += r[o][0] + r[o][1] + r[o][2];
    return sum;
}

inline double law_sample(const sw_curve& c, double t, int order) {
    position p;
    vector d1, d2;
    c.eval(t, &p, order >= 1 ? &d1 : nullptr, order >= 2 ? &d2 : nullptr);
    return p.x() + p.y() + p.z() + d1.x() + d1.y() + d1.z() + d2.x() + d2.y() + d2.z();
}

// This thread's CPU time: the machine is shared, and time spent descheduled is not the
// evaluator's.
double thread_ns() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec * 1e9 + ts.tv_nsec;
}

template <class F>
double ns_per_eval(const std::vector<double>& ts, F f, std::vector<double>& results) {
    double t0 = thread_ns();
    for (int i = 0; i < samples; ++i) results[i] = f(ts[i]);
    double t1 = thread_ns();
    benchmark::DoNotOptimize(results.data());
    return (t1 - t0) / samples;
}

long tracked_allocations_ever() {
    long n = 0;
    for (int i = 1; i <= vorx_mem_tag_count(); ++i) n += vorx_mem_tag(i).total_count;
    return n;
}

template <int P, int Dim, int Order>
void run(benchmark::State& state, bool random_order) {
    const test_curve tc = make_curve(P, Dim == 4);
    const int n = spans + P;
    sw_curve curve(n, P, 0, 0, Dim == 4 ? 0 : 1, 0, tc.knots.data(), tc.weights.data(),
                   tc.points.data(), tc.knots.front(), tc.knots.back(), nullptr);
    const std::vector<double>& cp = Dim == 4 ? tc.homogeneous : tc.points;
    native_curve<P, Dim, Order> native{tc.knots.data(), cp.data(), n};

    // Rising samples stop short of the end, where the native span lookup would need the
    // usual clamp to the last span.
    const double lo = tc.knots.front(), hi = tc.knots.back();
    std::vector<double> ts(samples);
    for (int i = 0; i < samples; ++i) ts[i] = lo + (hi - lo) * i / samples;
    if (random_order) std::shuffle(ts.begin(), ts.end(), std::mt19937(5));

    std::vector<double> ours(samples), theirs(samples);
    curve.eval(lo, nullptr);  // fill the caches outside the timing
    double best = std::numeric_limits<double>::infinity(), best_native = best;
    long allocs = 0;
    for (auto _ : state) {
        long before = tracked_allocations_ever();
        best = std::min(best, ns_per_eval(
                                  ts, [&](double t) { return law_sample(curve, t, Order); }, ours));
        allocs += tracked_allocations_ever() - before;
        best_native = std::min(best_native,
                               ns_per_eval(
                                   ts, [&](double t) { return native_sample(native, t); }, theirs));
    }
    double worst_diff = 0;
    for (int i = 0; i < samples; ++i)
        worst_diff = std::max(worst_diff,
                              std::fabs(ours[i] - theirs[i]) / std::max(1.0, std::fabs(theirs[i])));
    state.counters["sw_ns"] = best;
    state.counters["native_ns"] = best_native;
    state.counters["ratio"] = best / best_native;
    state.counters["allocs_per_eval"] = (double)allocs / ((double)samples * state.iterations());
    state.counters["rel_diff"] = worst_diff;
    state.SetLabel(std::string(Dim == 4 ? "rational quintic" : "cubic") + ", order " +
                   std::to_string(Order) + (random_order ? ", random" : ", rising"));
}

void BM_SwCurveEval(benchmark::State& state) {
    const bool random_order = state.range(2) != 0;
    const int order = (int)state.range(1);
    if (state.range(0) == 0) {
        if (order == 0) run<3, 3, 0>(state, random_order);
        if (order == 1) run<3, 3, 1>(state, random_order);
        if (order == 2) run<3, 3, 2>(state, random_order);
    } else {
        if (order == 0) run<5, 4, 0>(state, random_order);
        if (order == 1) run<5, 4, 1>(state, random_order);
        if (order == 2) run<5, 4, 2>(state, random_order);
    }
}
BENCHMARK(BM_SwCurveEval)
    ->ArgsProduct({{0, 1}, {0, 1, 2}, {0, 1}})
    ->Iterations(15)
    ->Unit(benchmark::kMillisecond);

}  // namespace
