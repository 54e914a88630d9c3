// Derivative swell: the size and build time of the 1st, 2nd and 5th derivatives of a few
// laws, as `derivative` makes them (built, simplified and cached).  Size is reported as
// the number of nodes of the printed tree and of distinct law objects (shared sub-laws
// counted once).
#include <benchmark/benchmark.h>

#include <set>

#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

// The ids are those of the evaluation workload (bench_eval).
struct workload_law {
    const char* id;
    const char* text;
};
const workload_law laws[] = {
    {"E1", "X^2+SIN(X)"},
    {"E3", "EXP(-(X^2))*COS(10*X)"},
    {"E4", "SQRT(1+X^2)+LN(1+X^2)"},
    {"E6", "SIN(X)*COS(X)+EXP(X/3)*SINH(X/2)"},
    {"E8", "SIN(COS(SIN(COS(X+1)+2)+3)+4)*EXP(-ABS(X))"},
};
const int orders[] = {1, 2, 5};

void count_nodes(const law* l, long& tree, std::set<const law*>& distinct) {
    ++tree;
    distinct.insert(l);
    if (l->isa(unary_law::id())) {
        if (const law* s = static_cast<const unary_law*>(l)->fsub()) count_nodes(s, tree, distinct);
    } else if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        if (b->fleft()) count_nodes(b->fleft(), tree, distinct);
        if (b->fright()) count_nodes(b->fright(), tree, distinct);
    } else if (l->isa(multiple_law::id())) {
        const multiple_law* m = static_cast<const multiple_law*>(l);
        for (int i = 0; i < m->fsub_num(); ++i)
            if (m->fsub()[i]) count_nodes(m->fsub()[i], tree, distinct);
    }
}

void BM_Derivative(benchmark::State& state) {
    const char* text = laws[state.range(0)].text;
    int order = orders[state.range(1)];
    initialize_law();
    long tree = 0;
    size_t distinct = 0;
    for (auto _ : state) {
        // A fresh law each time, so the derivative caches start empty.
        law_holder l(str_to_law(text));
        law_holder d(l->nth_derivative(order));
        state.PauseTiming();
        std::set<const law*> seen;
        tree = 0;
        count_nodes(d.get(), tree, seen);
        distinct = seen.size();
        state.ResumeTiming();
    }
    state.counters["tree_nodes"] = (double)tree;
    state.counters["distinct_laws"] = (double)distinct;
    state.SetLabel(std::string(laws[state.range(0)].id) + " " + text + " order " +
                   std::to_string(order));
    terminate_law();
}
BENCHMARK(BM_Derivative)
    ->ArgsProduct({{0, 1, 2, 3, 4}, {0, 1, 2}})
    ->Unit(benchmark::kMicrosecond)
    ->MinTime(0.2);

}  // namespace
