// Handing a curve of one's own to laws.  A modeller's curve derives from
// base_curve_law_data, answers the point, its derivatives, the curvature and the arc
// length, and registers a prototype; texts then name it by its keyword and its place in
// the data array handed to str_to_law ("CATENARY1" is data[0]).  The laws CUR, DCUR,
// CURC and LENGTH read it like any other curve, and mix with ordinary laws.
#include <cmath>
#include <cstdio>

#include "lawutil/lawutil.hpp"

using namespace lawutil;
using vorx::position;
using vorx::sys_error;
using vorx::vector;

// The catenary (t, cosh t, 0): everything about it is in closed form.
class catenary_data : public base_curve_law_data {
    LAWUTIL_TYPE_DECL(catenary_data, base_curve_law_data)
    catenary_data(double start = -2.0, double end = 2.0) : base_curve_law_data(start, end) {}
    const char* symbol(law_symbol_type) const override { return "CATENARY"; }
    law_data* deep_copy(pointer_map* = nullptr) const override {
        return VORX_NEW catenary_data(start_, end_);
    }
    vector eval(double t, int nderiv = 0, int = 0) const override {
        switch (nderiv) {
            case 0:
                return vector(t, std::cosh(t), 0.0);
            case 1:
                return vector(1.0, std::sinh(t), 0.0);
            case 2:
                return vector(0.0, std::cosh(t), 0.0);
        }
        sys_error(LAW_DATA_CURVE);  // no higher derivatives, like the library's kinds
    }
    // |x' y'' - y' x''| / speed^3 = cosh t / cosh^3 t
    double curvature(double t) const override { return 1.0 / (std::cosh(t) * std::cosh(t)); }
    // The speed is cosh t, so the length is a difference of sinh.
    double length(double from, double to) const override { return std::sinh(to) - std::sinh(from); }
    double length_param(double base, double length) const override {
        return std::asinh(std::sinh(base) + length);
    }
    // The library's own search serves a kind with no closed form for its feet.
    double point_perp(const position& p, double) const override { return curve_foot(this, p); }
    double point_perp(const position& p) const override { return curve_foot(this, p); }
};

LAWUTIL_TYPE_DEF(catenary_data)
// The parser knows the keyword CATENARY from here on.
static law_data_prototype<catenary_data> catenary_prototype;

namespace {

void show(const char* text, law_data** data, double t) {
    law_holder l(str_to_law(text, data, 1));
    double out[3] = {0, 0, 0};
    l->evaluate(&t, out);
    std::printf("%-28s at %g:", text, t);
    for (int i = 0; i < l->return_dim(); ++i) std::printf(" %.10f", out[i]);
    std::printf("\n");
}

}  // namespace

int main() {
    initialize_law();
    {
        law_data* data[1] = {VORX_NEW catenary_data()};
        show("CUR(CATENARY1)", data, 1.0);
        show("DCUR(CATENARY1,1)", data, 1.0);
        show("CURC(CATENARY1)", data, 0.0);
        show("LENGTH(CATENARY1,0,X)", data, 1.0);
        // Curve laws compose with the rest: the curvature times cosh^2 is 1 everywhere.
        show("CURC(CATENARY1)*COSH(X)^2", data, 1.5);
        data[0]->remove();
    }
    terminate_law();
    return 0;
}
