// Roots and extrema of a law of one input on an interval.  Nroot_classified names what it
// finds (a pole where the law changes sign is not a root); Nmax and Nmin give the position
// of the largest and smallest value.
#include <cstdio>

#include "lawutil/lawutil.hpp"

using namespace lawutil;

namespace {

const char* kind_name(root_kind k) {
    switch (k) {
        case root_simple:
            return "simple root";
        case root_even_multiple:
            return "even multiple root";
        case root_odd_multiple:
            return "odd multiple root";
        case root_pole:
            return "pole";
        case root_jump:
            return "jump";
        case root_everywhere:
            return "zero throughout";
    }
    return "?";
}

void roots(const char* text, double a, double b) {
    law_holder f(str_to_law(text));
    int n = 0;
    classified_root* found = Nroot_classified(f.get(), a, b, &n);
    std::printf("%s on [%g, %g]:\n", text, a, b);
    for (int i = 0; i < n; ++i)
        std::printf("  %-19s at x = %.8f\n", kind_name(found[i].kind), found[i].x);
    VORX_FREE(found);
}

}  // namespace

int main() {
    initialize_law();
    {
        roots("(x-1)^2*(x+1)", -2, 2);  // a simple root and a double one
        roots("cos(x) - x", 0, 1);      // no closed form
        roots("1/(x-0.5)", 0, 1);       // a sign change that is no root

        law_holder f(str_to_law("x^3 - 3*x"));
        double at_max = Nmax(f.get(), -1.5, 1.5), at_min = Nmin(f.get(), -1.5, 1.5);
        std::printf("x^3 - 3*x on [-1.5, 1.5]: max %.8f at x = %.8f, min %.8f at x = %.8f\n",
                    f->eval(at_max), at_max, f->eval(at_min), at_min);
    }
    terminate_law();
    return 0;
}
