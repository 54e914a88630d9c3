// Built against the installed package only: proves the exported headers, libraries and
// link flags are enough to construct and evaluate a law.
#include "lawutil/lawutil.hpp"

int main() {
    initialize_law();
    constant_law* c = new constant_law(2.5);
    double x = 0;
    double y = 0;
    c->evaluate(&x, &y);
    c->remove();
    terminate_law();
    return y == 2.5 ? 0 : 1;
}
