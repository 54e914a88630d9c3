// The laws whose rebuilding code is generated at build time and checked afterwards: a law
// of every registered class, the evaluation workload with derivatives and simplified
// forms (graphs with shared nodes), and random compositions with shared arguments.  The
// generator and the checker build the same list in the same order.
#pragma once

#include <vector>

#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

// Appends the cases to `out`; each element is one reference the caller releases.
void build_lawcode_cases(std::vector<law*>& out);

// Scalar laws of the classes law_to_c_function bakes, with points of domain errors among
// the sample points: the evaluation workload, one law per rule, and random compositions.
void build_c_function_cases(std::vector<law*>& out);

// The points where the generated functions are compared with the tree (three inputs).
extern const double c_function_points[][3];
extern const int c_function_point_count;

// A generated evaluation function with the gradient, and the one of the value alone.
struct generated_eval {
    int (*with_gradient)(const double* x, double* value, double* gradient);
    int (*value_only)(const double* x, double* value);
};
