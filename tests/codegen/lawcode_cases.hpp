// The laws whose rebuilding code is generated at build time and checked afterwards: a law
// of every registered class, the evaluation workload with derivatives and simplified
// forms (graphs with shared nodes), and random compositions with shared arguments.  The
// generator and the checker build the same list in the same order.
#pragma once

#include <vector>

#include "lawutil/lawutil.hpp"

// Appends the cases to `out`; each element is one reference the caller releases.
void build_lawcode_cases(std::vector<law*>& out);
