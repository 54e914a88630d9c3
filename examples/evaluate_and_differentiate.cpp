// Reading a law from its text, evaluating it, and differentiating it symbolically: the
// first thing a program does with the library.
#include <cstdio>

#include "lawutil/lawutil.hpp"

using namespace lawutil;

namespace {

// Prints a law's text; string() hands out tracked memory that the caller frees.
void show(const char* name, const law* l) {
    char* text = l->string();
    std::printf("%-8s = %s\n", name, text);
    VORX_FREE(text);
}

}  // namespace

int main() {
    initialize_law();
    {
        // Every law* the library hands out carries one reference; law_holder releases it.
        law_holder f(str_to_law("x^3 - 2*x + exp(-x)"));
        show("f(x)", f.get());
        for (double x : {0.0, 0.5, 1.0}) {
            char name[16];
            std::snprintf(name, sizeof name, "f(%g)", x);
            std::printf("%-8s = %.10f\n", name, f->eval(x));
        }

        // derivative(0) is d/dX, built once, simplified and cached on f.
        law_holder df(f->derivative(0));
        law_holder d2f(df->derivative(0));
        show("f'(x)", df.get());
        show("f''(x)", d2f.get());
        std::printf("f'(1)    = %.10f\n", df->eval(1.0));

        // A law of two inputs: evaluate from an array, and take the partial in Y.
        law_holder g(str_to_law("x^2*y + sin(y)"));
        law_holder gy(g->derivative(1));
        const double p[2] = {1.5, 0.0};
        double value = 0, slope = 0;
        g->evaluate(p, &value);
        gy->evaluate(p, &slope);
        show("dg/dy", gy.get());
        std::printf("g(1.5,0) = %.10f, dg/dy(1.5,0) = %.10f\n", value, slope);
    }
    terminate_law();
    return 0;
}
