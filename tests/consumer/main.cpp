// Built against the installed package only: proves the exported headers, libraries and
// link flags are enough to construct and evaluate a law, and that the umbrella header
// alone brings every value type the evaluators take or return.  It keeps the old global
// spelling through the opt-in header.
#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

int std_names_check();  // std_names.cpp

int main() {
    initialize_law();
    int failures = 0;
    constant_law* c = new constant_law(2.5);
    double x = 0;
    double y = 0;
    c->evaluate(&x, &y);
    failures += y != 2.5;
    c->remove();

    law* helix = str_to_law("VEC(COS(X),SIN(X),X)");
    law* nine = str_to_law("VEC(1,0,0,0,1,0,0,0,1)");
    law* sum = str_to_law("X+Y");
    law* surface = str_to_law("VEC(X,Y,X+Y)");
    double at[2] = {0.0, 0.0};
    vector v = helix->evaluateR_V(0.0);
    unit_vector u = helix->evaluateR_UV(0.0);
    position p = helix->evaluateR_P(0.0);
    par_pos uv(1.0, 2.0);
    matrix m = nine->evaluateM_MAT(at);
    transf t = sum->evaluateM_T(at);  // a scalar law gives the identity
    complex_number z(1.0, 2.0);
    nvector n(at, 2);
    interval range(0.0, 1.0);
    box b(p, p);
    failures += v.x() != 1.0 || u.x() != 1.0 || !m.is_identity() || !t.identity();
    failures += sum->evaluateC_R(z) != 3.0 || sum->evaluateNV_R(n) != 0.0;
    failures += surface->evaluatePP_P(uv).z() != 3.0 || !range.in_interval(0.5) || b.empty();
    law_remove(helix);
    law_remove(nine);
    law_remove(sum);
    law_remove(surface);
    failures += std_names_check();
    terminate_law();
    return failures ? 1 : 0;
}
