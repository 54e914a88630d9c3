// Evaluation speed of the workload E1-E8, as a ratio to the same functions written in
// C++ the way a performance-aware programmer writes them (Horner, x*x, inlined into the
// loop), timed in the same benchmark, pass for pass.
//
// Every pass runs over the same 10^6 precomputed points spread over [-0.9, 0.9] with Y
// held at 0.7, so neither side computes its inputs inside the timed loop.  The law side
// and the native side alternate, `passes` times each, and the median pass of each is
// kept (machines are shared and noisy: the median is robust where the best is
// flattering).  Passes are timed in the thread's processor time, so time the core spent
// on other processes is not charged.  The spread of the native passes ((p75 - p25) /
// median) is reported as the noise of the run.  The last benchmark prints the geometric
// mean of each method's ratios.  Tracked allocations per evaluation are reported and
// must be 0.  BM_DerivativeEval times high derivatives (DAGs) through the tree and the
// compiled form.
//
// The native side is the target's reference and stays inlined: where the compiler
// vectorises its loop across points (E2 and E5), no interface taking one point a call can
// match it.  For context each law also reports its floor: the same native function
// (value, or value and partials for the gradient) called one point a call through a
// function pointer the compiler cannot see through (read once from a volatile, the
// function noinline), which is call cost only, the best any per-point interface can do.
// callable_ns is its time a point, floor_ratio = callable_ns / native_ns, and the last
// benchmark prints their geometric means (geomean_floor, geomean_floor_gradient).
//
//   tree      evaluateM_R as a caller gets it: the tree for the first law::tier_after
//             evaluations, then the law's own exact program (law_tier.cpp)
//   tree_plain evaluateM_R down the law tree alone (law_tiering_off)
//   compiled  law_program::evaluate, one point at a time
//   gradient  law_program::evaluate_with_gradient, against the hand-written value and
//             partials (E7: both partials)
//   batch     law_program::evaluate_batch over all the points in one call, against the
//             native scalar loop
//   exact     law_program::evaluate of the program in exact mode (the tree's values, bit
//             for bit, as law_evaluator runs it), one point at a time
//
// Run: build/default/bench/bench_eval (or `make bench`).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <vector>

#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

constexpr int points = 1000000;
constexpr int passes = 9;
constexpr double y_fixed = 0.7;

const std::vector<double>& xs() {
    static const std::vector<double> v = [] {
        std::vector<double> p(points);
        for (int k = 0; k < points; ++k) p[k] = -0.9 + 1.8 * k / (points - 1);
        return p;
    }();
    return v;
}

// ---- the workload, natively: value, and value plus every first partial derivative ----
// grad has one entry per input the law reads (E7 reads X and Y).

struct e1 {
    static double f(double x, double) { return x * x + std::sin(x); }
    static double fd(double x, double, double* g) {
        g[0] = 2 * x + std::cos(x);
        return x * x + std::sin(x);
    }
};
struct e2 {
    static double f(double x, double) { return ((x * x - 2) * x + 1) / (x * x + 1); }
    static double fd(double x, double, double* g) {
        double x2 = x * x, n = (x2 - 2) * x + 1, d = x2 + 1;
        g[0] = ((3 * x2 - 2) * d - n * 2 * x) / (d * d);
        return n / d;
    }
};
struct e3 {
    static double f(double x, double) { return std::exp(-(x * x)) * std::cos(10 * x); }
    static double fd(double x, double, double* g) {
        double e = std::exp(-(x * x)), c = std::cos(10 * x);
        g[0] = e * (-2 * x * c - 10 * std::sin(10 * x));
        return e * c;
    }
};
struct e4 {
    static double f(double x, double) {
        double u = 1 + x * x;
        return std::sqrt(u) + std::log(u);
    }
    static double fd(double x, double, double* g) {
        double u = 1 + x * x, s = std::sqrt(u);
        g[0] = x / s + 2 * x / u;
        return s + std::log(u);
    }
};
struct e5 {
    static double f(double x, double) {
        return 1 + x * (2 + x * (3 + x * (4 + x * (5 + x * (6 + x * (7 + x * (8 + x * 9)))))));
    }
    static double fd(double x, double, double* g) {
        g[0] = 2 + x * (6 + x * (12 + x * (20 + x * (30 + x * (42 + x * (56 + x * 72))))));
        return f(x, 0);
    }
};
struct e6 {
    static double f(double x, double) {
        return std::sin(x) * std::cos(x) + std::exp(x / 3) * std::sinh(x / 2);
    }
    static double fd(double x, double, double* g) {
        double s = std::sin(x), c = std::cos(x), e = std::exp(x / 3);
        double sh = std::sinh(x / 2), ch = std::cosh(x / 2);
        g[0] = c * c - s * s + e * (sh / 3 + ch / 2);
        return s * c + e * sh;
    }
};
struct e7 {
    static double f(double x, double y) { return x * x * y + std::sin(x * y) + y * y * y; }
    static double fd(double x, double y, double* g) {
        double c = std::cos(x * y);
        g[0] = 2 * x * y + y * c;
        g[1] = x * x + x * c + 3 * y * y;
        return x * x * y + std::sin(x * y) + y * y * y;
    }
};
struct e8 {
    static double f(double x, double) {
        return std::sin(std::cos(std::sin(std::cos(x + 1) + 2) + 3) + 4) * std::exp(-std::fabs(x));
    }
    static double fd(double x, double, double* g) {
        double a = std::cos(x + 1), b = std::sin(a + 2), c = std::cos(b + 3);
        double d = std::sin(c + 4), e = std::exp(-std::fabs(x));
        double dd = std::cos(c + 4) * -std::sin(b + 3) * std::cos(a + 2) * -std::sin(x + 1);
        g[0] = dd * e - (x < 0 ? -1.0 : 1.0) * d * e;
        return d * e;
    }
};

struct workload {
    const char* id;
    const char* text;
    double (*native_pass)();       // one native pass over the points, value only
    double (*native_grad_pass)();  // the same with every first derivative
    double (*callable_pass)();     // the floor: native_pass one point a call, not inlined
    double (*callable_grad_pass)();
};

template <class E>
double native_pass() {
    const double* p = xs().data();
    double sum = 0;
    for (int k = 0; k < points; ++k) sum += E::f(p[k], y_fixed);
    return sum;
}

template <class E>
double native_grad_pass() {
    const double* p = xs().data();
    double sum = 0, g[2] = {0, 0};
    for (int k = 0; k < points; ++k) {
        sum += E::fd(p[k], y_fixed, g);
        sum += g[0] + g[1];  // E7 has two partials; both sides sum both
    }
    return sum;
}

// The floor: the native function one point a call, through a pointer read once from a
// volatile, so the call is neither inlined nor devirtualised.
template <class E>
__attribute__((noinline)) double native_point(const double* in) {
    return E::f(in[0], in[1]);
}

template <class E>
__attribute__((noinline)) double native_grad_point(const double* in, double* g) {
    return E::fd(in[0], in[1], g);
}

template <class E>
double callable_pass() {
    double (*volatile hidden)(const double*) = native_point<E>;
    double (*const f)(const double*) = hidden;
    const double* p = xs().data();
    double sum = 0;
    for (int k = 0; k < points; ++k) {
        double in[2] = {p[k], y_fixed};
        sum += f(in);
    }
    return sum;
}

template <class E>
double callable_grad_pass() {
    double (*volatile hidden)(const double*, double*) = native_grad_point<E>;
    double (*const f)(const double*, double*) = hidden;
    const double* p = xs().data();
    double sum = 0, g[2] = {0, 0};
    for (int k = 0; k < points; ++k) {
        double in[2] = {p[k], y_fixed};
        sum += f(in, g);
        sum += g[0] + g[1];  // E7 has two partials; both sides sum both
    }
    return sum;
}

#define WORKLOAD(id, cls, text)                                                \
    {                                                                          \
        id, text, native_pass<cls>, native_grad_pass<cls>, callable_pass<cls>, \
            callable_grad_pass<cls>                                            \
    }
const workload work[] = {
    WORKLOAD("E1", e1, "X^2+SIN(X)"),
    WORKLOAD("E2", e2, "(X^3-2*X+1)/(X^2+1)"),
    WORKLOAD("E3", e3, "EXP(-(X^2))*COS(10*X)"),
    WORKLOAD("E4", e4, "SQRT(1+X^2)+LN(1+X^2)"),
    WORKLOAD("E5", e5, "1+2*X+3*X^2+4*X^3+5*X^4+6*X^5+7*X^6+8*X^7+9*X^8"),
    WORKLOAD("E6", e6, "SIN(X)*COS(X)+EXP(X/3)*SINH(X/2)"),
    WORKLOAD("E7", e7, "X^2*Y+SIN(X*Y)+Y^3"),
    WORKLOAD("E8", e8, "SIN(COS(SIN(COS(X+1)+2)+3)+4)*EXP(-ABS(X))"),
};
#undef WORKLOAD
constexpr int law_count = sizeof work / sizeof work[0];

enum method {
    tree_method,
    compiled_method,
    gradient_method,
    batch_method,
    exact_method,
    tree_plain_method,
    method_count
};
const char* const method_names[method_count] = {"tree",  "compiled", "gradient",
                                                "batch", "exact",    "tree_plain"};
double ratios[method_count][law_count];
double floors[method_count][law_count];  // callable_ns / native_ns

// One pass of a method over the points (law side).
double law_pass(int m, const law* l, const law_program& prog) {
    const double* p = xs().data();
    double sum = 0;
    switch (m) {
        case tree_plain_method: {
            law_tiering_off plain;
            return law_pass(tree_method, l, prog);
        }
        case tree_method:
            for (int k = 0; k < points; ++k) {
                double in[2] = {p[k], y_fixed};
                sum += l->evaluateM_R(in);
            }
            break;
        case compiled_method:
        case exact_method:
            for (int k = 0; k < points; ++k) {
                double in[2] = {p[k], y_fixed};
                sum += prog.evaluate(in);
            }
            break;
        case gradient_method:
            for (int k = 0; k < points; ++k) {
                double in[2] = {p[k], y_fixed}, g[2] = {0, 0};
                sum += prog.evaluate_with_gradient(in, g);
                sum += g[0] + g[1];  // E7 has two partials; both sides sum both
            }
            break;
        default: {
            static std::vector<double> ys(points, y_fixed), out(points);
            const double* in[2] = {p, ys.data()};
            prog.evaluate_batch(points, in, out.data());
            sum = out[points / 3];
            break;
        }
    }
    return sum;
}

// The thread's own processor time: the machine is shared, and wall time would charge
// this pass with the time other processes held the core.
double thread_ns() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return (double)t.tv_sec * 1e9 + (double)t.tv_nsec;
}

template <class F>
double ns_per_point(F f) {
    double t0 = thread_ns();
    benchmark::DoNotOptimize(f());
    return (thread_ns() - t0) / points;
}

double quantile(std::vector<double> v, double q) {
    std::sort(v.begin(), v.end());
    return v[(size_t)(q * (double)(v.size() - 1) + 0.5)];
}

long tracked_allocations_ever() {
    long n = 0;
    for (int i = 1; i <= vorx_mem_tag_count(); ++i) n += vorx_mem_tag(i).total_count;
    return n;
}

void BM_Eval(benchmark::State& state) {
    int m = (int)state.range(0);
    const workload& w = work[state.range(1)];
    initialize_law();
    {
        law_holder l(str_to_law(w.text));
        if (!l) {
            state.SkipWithError("law did not parse");
            terminate_law();
            return;
        }
        law_program prog(l.get(), m == exact_method ? law_program::exact : law_program::rewrite);
        double (*native)() = m == gradient_method ? w.native_grad_pass : w.native_pass;
        double (*callable)() = m == gradient_method ? w.callable_grad_pass : w.callable_pass;
        std::vector<double> law_ns, native_ns, callable_ns;
        long allocs = 0;
        for (auto _ : state) {
            law_pass(m, l.get(), prog);  // warm caches and branch predictors once
            for (int r = 0; r < passes; ++r) {
                long before = tracked_allocations_ever();
                law_ns.push_back(ns_per_point([&] { return law_pass(m, l.get(), prog); }));
                allocs += tracked_allocations_ever() - before;
                native_ns.push_back(ns_per_point(native));
                callable_ns.push_back(ns_per_point(callable));
            }
        }
        double law_med = quantile(law_ns, 0.5), native_med = quantile(native_ns, 0.5);
        double noise = (quantile(native_ns, 0.75) - quantile(native_ns, 0.25)) / native_med;
        double callable_med = quantile(callable_ns, 0.5);
        ratios[m][state.range(1)] = law_med / native_med;
        floors[m][state.range(1)] = callable_med / native_med;
        state.counters["law_ns"] = law_med;
        state.counters["native_ns"] = native_med;
        state.counters["ratio"] = law_med / native_med;
        state.counters["callable_ns"] = callable_med;
        state.counters["floor_ratio"] = callable_med / native_med;
        state.counters["noise"] = noise;
        state.counters["allocs_per_eval"] = (double)allocs / ((double)points * passes);
        state.SetLabel(std::string(method_names[m]) + " " + w.id + " " + w.text);
    }
    terminate_law();
}
BENCHMARK(BM_Eval)
    ->ArgsProduct({benchmark::CreateDenseRange(0, method_count - 1, 1),
                   benchmark::CreateDenseRange(0, law_count - 1, 1)})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// A vector law through the typed evaluator, against the same helix in C++.
void BM_VectorEval(benchmark::State& state) {
    initialize_law();
    {
        law_holder l(str_to_law("VEC(COS(T),SIN(T),T)"));
        const law* lp = l.get();
        const double* p = xs().data();
        std::vector<double> law_ns, native_ns;
        for (auto _ : state) {
            for (int r = 0; r < passes; ++r) {
                law_ns.push_back(ns_per_point([&] {
                    double sum = 0;
                    for (int k = 0; k < points; ++k) {
                        vector v = lp->evaluateR_V(p[k]);
                        sum += v.x() + v.y() + v.z();
                    }
                    return sum;
                }));
                native_ns.push_back(ns_per_point([&] {
                    double sum = 0;
                    for (int k = 0; k < points; ++k) {
                        vector v(std::cos(p[k]), std::sin(p[k]), p[k]);
                        sum += v.x() + v.y() + v.z();
                    }
                    return sum;
                }));
            }
        }
        double law_med = quantile(law_ns, 0.5), native_med = quantile(native_ns, 0.5);
        state.counters["law_ns"] = law_med;
        state.counters["native_ns"] = native_med;
        state.counters["ratio"] = law_med / native_med;
        state.SetLabel("VEC(COS(T),SIN(T),T) through evaluateR_V");
    }
    terminate_law();
}
BENCHMARK(BM_VectorEval)->Iterations(1)->Unit(benchmark::kMillisecond);

// High derivatives are DAGs: the tree evaluates every shared subtree once per path to
// it, the compiled form once.  Time per point of the tree and of the compiled form (the
// ratio is tree over compiled), with the program's size.
void BM_DerivativeEval(benchmark::State& state) {
    const char* const texts[] = {"EXP(-(X^2))*COS(10*X)",
                                 "SIN(COS(SIN(COS(X+1)+2)+3)+4)*EXP(-ABS(X))"};
    const int order = (int)state.range(1);
    const int n = 2000;
    initialize_law();
    {
        law_holder l(str_to_law(texts[state.range(0)]));
        law_holder d(l->nth_derivative(order));
        law_program prog(d.get());
        const law* dp = d.get();
        std::vector<double> tree_ns, prog_ns;
        law_tiering_off plain;  // the tree itself, not its own program
        for (auto _ : state) {
            for (int r = 0; r < passes; ++r) {
                tree_ns.push_back(ns_per_point([&] {
                                      double sum = 0;
                                      for (int k = 0; k < n; ++k)
                                          sum += dp->evaluateM_R(&xs()[k * (points / n)]);
                                      return sum;
                                  }) *
                                  points / n);
                prog_ns.push_back(ns_per_point([&] {
                                      double sum = 0;
                                      for (int k = 0; k < n; ++k)
                                          sum += prog.evaluate(&xs()[k * (points / n)]);
                                      return sum;
                                  }) *
                                  points / n);
            }
        }
        double t = quantile(tree_ns, 0.5), c = quantile(prog_ns, 0.5);
        state.counters["tree_ns"] = t;
        state.counters["compiled_ns"] = c;
        state.counters["tree_over_compiled"] = t / c;
        state.counters["instructions"] = prog.size();
        state.SetLabel(std::string(state.range(0) ? "E8" : "E3") + " derivative of order " +
                       std::to_string(order));
    }
    terminate_law();
}
BENCHMARK(BM_DerivativeEval)
    ->ArgsProduct({{0, 1}, {1, 2, 5}})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// What compiling costs, for a routine deciding whether to compile (law_evaluator, in exact
// mode without derivatives): the time to build the program, in tree evaluations, and the
// evaluations after which it has paid for itself (compile time over the time one
// evaluation saves).
void BM_CompileCost(benchmark::State& state) {
    const workload& w = work[state.range(0)];
    const int n = 20000, builds = 200;
    initialize_law();
    {
        law_holder l(str_to_law(w.text));
        const int mode = law_program::exact | law_program::values_only;
        law_program prog(l.get(), mode);
        const double* p = xs().data();
        std::vector<double> tree_ns, prog_ns, build_ns;
        law_tiering_off plain;  // the tree itself, not its own program
        for (auto _ : state) {
            for (int r = 0; r < passes; ++r) {
                auto per = [&](auto f) { return ns_per_point(f) * points / n; };
                tree_ns.push_back(per([&] {
                    double sum = 0;
                    for (int k = 0; k < n; ++k) sum += l->evaluateM_R(&p[k * (points / n)]);
                    return sum;
                }));
                prog_ns.push_back(per([&] {
                    double sum = 0;
                    for (int k = 0; k < n; ++k) sum += prog.evaluate(&p[k * (points / n)]);
                    return sum;
                }));
                build_ns.push_back(ns_per_point([&] {
                                       int size = 0;
                                       for (int b = 0; b < builds; ++b)
                                           size += law_program(l.get(), mode).size();
                                       return size;
                                   }) *
                                   points / builds);
            }
        }
        double t = quantile(tree_ns, 0.5), c = quantile(prog_ns, 0.5);
        double b = quantile(build_ns, 0.5);
        state.counters["compile_ns"] = b;
        state.counters["compile_in_tree_evals"] = b / t;
        state.counters["break_even_evals"] = t > c ? b / (t - c) : -1;
        state.SetLabel(std::string(w.id) + " " + w.text);
    }
    terminate_law();
}
BENCHMARK(BM_CompileCost)
    ->DenseRange(0, law_count - 1)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// The memory that tiering costs (law_tier.cpp): tracked bytes live after a law has been
// evaluated 4 * law::tier_after times, against the bytes of one exact, values-only program
// of its root; equal when the root alone compiled (its subtrees did not).  The last rows
// are big laws: the fifth derivatives of E3 and E8, DAGs of shared subtrees.
void BM_TierMemory(benchmark::State& state) {
    const int k = (int)state.range(0);
    initialize_law();
    {
        const workload& w = work[k < law_count ? k : k == law_count ? 2 : 7];
        law_holder l(str_to_law(w.text));
        if (k >= law_count) l.reset(l->nth_derivative(5));
        long one = 0, instructions = 0;
        {
            law_holder copy(l->deep_copy());  // so the root itself has not compiled
            long bare = vorx_live_bytes();
            law_program* p = compile_values(copy.get());
            one = p ? vorx_live_bytes() - bare : 0;
            instructions = p ? p->size() : 0;
            delete p;
        }
        long before = vorx_live_bytes();
        for (auto _ : state)
            for (int i = 0; i < 4 * law::tier_after; ++i) {
                double in[2] = {xs()[(size_t)i * 397 % points], y_fixed};
                benchmark::DoNotOptimize(l->evaluateM_R(in));
            }
        state.counters["tier_bytes"] = (double)(vorx_live_bytes() - before);
        state.counters["root_program_bytes"] = (double)one;
        state.counters["instructions"] = (double)instructions;
        state.counters["root_compiled"] = l->tier_program() != nullptr;
        state.SetLabel(std::string(w.id) + (k < law_count ? "" : " fifth derivative"));
    }
    terminate_law();
}
BENCHMARK(BM_TierMemory)->DenseRange(0, law_count + 1)->Iterations(1);

// Geometric mean over E1-E8 of each method's ratios measured above (registered last, so
// it runs last), and of the floors (the value's as measured with the compiled form, the
// gradient's with the gradient).
double geomean(const double (&r)[law_count]) {
    double log_sum = 0;
    for (double v : r) log_sum += std::log(v > 0 ? v : 1.0);
    return std::exp(log_sum / law_count);
}

void BM_GeometricMeanRatio(benchmark::State& state) {
    for (auto _ : state) {
    }
    for (int m = 0; m < method_count; ++m)
        state.counters[std::string("geomean_") + method_names[m]] = geomean(ratios[m]);
    state.counters["geomean_floor"] = geomean(floors[compiled_method]);
    state.counters["geomean_floor_gradient"] = geomean(floors[gradient_method]);
}
BENCHMARK(BM_GeometricMeanRatio)->Iterations(1);

}  // namespace
