// Every registered prototype at once: it is registered once and binds by the precedence
// ladder; a law of its class prints in both spellings (a function's Maple name is its own
// in lower case), its own text reads back to an equal law, make_one rebuilds it, its
// symbolic derivative agrees with the numerical one, output by output, wherever the law
// evaluates, the slope of its antiderivative (law_integrate) is the law itself, and only
// the polynomial classes answer polynomial(), with a polynomial that rebuilds the law.  A class
// registered tomorrow is covered the day it is registered.
#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/output.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

// A sample law of a class, with the inputs its derivative is checked at (Y is `y`).
struct sample {
    std::string text;
    std::vector<double> at = {0.37, 0.61, 0.83};
    double y = 0.0;
};

// Sample laws for the classes whose arguments have a shape of their own, and extra ones
// where the derivative has branches (each part of MAX, both sides of a STEP) or vector
// values; every other class is tried with a generic argument list built from its kind.
const std::string frame = "VEC(0,0,0),VEC(1,0,0),VEC(0,0,1)";
const std::string tilted = "VEC(1,2,3),VEC(0,1,0.2),VEC(0.1,0,1)";
const std::map<std::string, std::vector<sample>> special = {
    {"STEP", {{"STEP(X,0.5,X*X,0.7,1-X)"}, {"STEP(X*X,1,3*X)", {0.5, 2.0}}}},
    {"PIECEWISE", {{"PIECEWISE(X<0.5,X*X,SIN(X))"}, {"PIECEWISE(X<0,-X,X*X)", {-1.0, 3.0}}}},
    {"LOG", {{"LOG(X+2,3)"}, {"LOG(X*X,2)", {0.5, 1.5, 7.0}}, {"LOG(X)", {0.1, 3.0}}}},
    {"MAX",
     {{"MAX(0.3*X+0.2,0.7)"},
      {"MAX(X*X,1-X)", {-2.0, 0.2, 1.5}},
      {"MAX(X,1-X,0.5*X*X)", {-3.0, 0.1, 0.9, 4.0}}}},
    {"MIN", {{"MIN(0.3*X+0.2,0.7)"}, {"MIN(X,1-X,0.5*X*X)", {-3.0, 0.1, 0.9, 4.0}}}},
    {"TERM", {{"TERM(VEC(X,X*X,3),2)"}}},
    {"DOT", {{"DOT(VEC(X,2,X*X),VEC(1,X,3))"}}},
    {"VEC", {{"VEC(X,X*X,SIN(X))"}}},
    {"CROSS",
     {{"CROSS(VEC(X,1,X*X),VEC(2,SIN(X),1))"}, {"CROSS(VEC(1,2,3),VEC(X,1,1))", {0.3, 0.9}}}},
    {"NORM", {{"NORM(VEC(X,1,X*X))"}, {"NORM(VEC(COS(X),X,X*X+1))", {0.3, 0.9}}}},
    {"SIZE", {{"SIZE(VEC(X,1,X*X))"}}},
    {"FRENET",
     {{"FRENET(VEC(COS(X),SIN(X),X),2)"},
      {"FRENET(VEC(COS(X),SIN(X),X*X),1)", {0.3, 0.9}},
      {"FRENET(VEC(COS(X),SIN(X),X*X),2)", {0.3, 0.9}},
      {"FRENET(VEC(COS(X),SIN(X),X*X),3)", {0.3, 0.9}}}},
    {"MINROT",
     {{"MINROT(VEC(COS(X),SIN(X),X),VEC(-1,0,0),0,6.5)"},
      {"MINROT(VEC(COS(X),SIN(X),X*X),VEC(0,0,1),0,2)", {0.3, 0.9}}}},
    {"TWISTPATH",
     {{"TWISTPATH(VEC(0,0,1),VEC(X,X*X,1),X)"},
      {"TWISTPATH(VEC(0,X,1),VEC(X,X*X,1),X*X)", {0.3, 0.9}}}},
    {"BEND",
     {{"BEND(VEC(X,X*X,1),VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),2)"},
      {"BEND(VEC(X,X*X,1),VEC(0.1,0,0.2),VEC(0.2,0.1,1),VEC(1,X,0),2+X)", {0.3, 0.9}}}},
    {"UNBEND",
     {{"UNBEND(VEC(X,X*X,1),VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),2)"},
      {"UNBEND(VEC(X,X*X,1),VEC(0.1,0,0.2),VEC(0.2,0.1,1),VEC(1,X,0),-2-X)", {0.3, 0.9}}}},
    {"CONICLINE",
     {{"CONICLINE(VEC(0,0,0),VEC(1,0,X),VEC(0,1,0),0.4,X)"},
      {"CONICLINE(VEC(0,X,0),VEC(2,1,X*X),VEC(0,2,0),0.3+0.2*X,X)", {0.3, 0.9}}}},
    {"CONICTROUGH",
     {{"CONICTROUGH(VEC(0,0,0),VEC(0,1,0),VEC(1,0,X),VEC(-1,0,0),0.4,X)"},
      {"CONICTROUGH(VEC(0,0,X),VEC(0,1,0),VEC(1,1,1),VEC(1,X,0),0.6,X)", {0.3, 0.9}}}},
    {"CYCLIDE",
     {{"CYCLIDE(" + frame + ",3,1,2,X,0.5)"},
      {"CYCLIDE(VEC(1,X,3),VEC(0,1,X),VEC(0.1,0,1),3+X,1,2,X,X*X)", {0.3, 0.9}}}},
    {"DCYCLIDE",
     {{"DCYCLIDE(" + frame + ",3,1,2,X,0.5,1,1)"},
      {"DCYCLIDE(VEC(1,X,3),VEC(0,1,X),VEC(0.1,0,1),3,1-X,2,X,0.4,1,1)", {0.3, 0.9}}}},
    {"CYCLIDEPERP",
     {{"CYCLIDEPERP(" + frame + ",3,1,2,VEC(X,2,1))"},
      {"CYCLIDEPERP(" + tilted + ",3,1,2,VEC(X,2,4))", {0.3, 0.9}}}},
    {"D", {{"D(X^3+X,0)"}, {"D(X*X*Y,1)", {0.5, 2.0}, 0.7}}},
    {"DOMAIN", {{"DOMAIN(X*X,0,1)"}}},
    {"INTEGRATE", {{"INTEGRATE(X*Y+SIN(Y),0.2,X*X)"}}},
    {"PDOMAIN", {{"PDOMAIN(X*X,0,1)"}}},
    {"ARCTAN",
     {{"ARCTAN(X+0.3,0.7)"},
      {"ARCTAN(X*X)", {-1.5, 0.3, 2.0}},
      {"ARCTAN(X*Y,X-1)", {-2.0, 0.5, 1.5}, 0.7}}},
    {"O", {{"SIN(X)O(X*X)"}}},
};

// The class's samples: its own, or the generic argument lists at two places, so that
// functions with a domain away from [0.2, 0.5] get a chance.
std::vector<sample> samples_of(const law* proto) {
    std::string sym = proto->symbol(law_symbol_default);
    auto it = special.find(sym);
    if (it != special.end()) return it->second;
    if (proto->isa(constant_law::id())) return {{sym}};
    std::vector<sample> r;
    for (std::string arg : {"0.3*X+0.2", "0.3*X+1.7"}) {
        if (proto->isa(binary_law::id()))
            r.push_back({"(" + arg + ")" + sym + "(0.7)"});
        else if (proto->isa(multiple_law::id()))
            r.push_back({sym + "(" + arg + ",0.7)"});
        else
            r.push_back({sym + "(" + arg + ")"});
    }
    return r;
}

// make_one over the law's own arguments rebuilds an equal law of its class.
law* rebuilt(const law* l) {
    if (l->isa(unary_law::id())) {
        auto u = static_cast<const unary_law*>(l);
        return u->make_one(u->fsub());
    }
    if (l->isa(binary_law::id())) {
        auto b = static_cast<const binary_law*>(l);
        return b->make_one(b->fleft(), b->fright());
    }
    if (l->isa(multiple_law::id())) {
        auto m = static_cast<const multiple_law*>(l);
        return m->make_one(m->fsub(), m->fsub_num());
    }
    return l->deep_copy();
}

// Classes whose derivative is deliberately not the slope of their value: MOD's is 0
// (its jumps are ignored and the first operand's slope is not passed on), and the
// shifted arcsec, arccsc and arcsech keep the derivatives of the principal branches.
// The precedence ladder, binding loosest first; every other class binds like a function (8).
const std::map<std::string, int> ladder = {
    {"OR", 1}, {"AND", 2}, {"NOT", 3}, {"=", 4}, {"!=", 4}, {"<", 4}, {"<=", 4},
    {">", 4},  {">=", 4},  {"+", 5},   {"-", 5}, {"*", 6},  {"/", 6}, {"^", 7},
};

bool slope_differs_deliberately(const law* proto) {
    const char* sym = proto->symbol(law_symbol_default);
    for (const char* s : {"MOD", "ARCSEC", "ARCCSC", "ARCSECH"})
        if (std::strcmp(sym, s) == 0) return true;
    return false;
}

}  // namespace

TEST(Registry, EveryPrototypePrintsReadsBackAndDifferentiatesRight) {
    int classes = 0, slopes = 0, antiderivatives = 0, polynomials = 0;
    std::map<int, int> registrations;
    for (law_list* n = law_list::head(); n; n = n->fnext()) {
        const law* proto = n->fthis();
        EXPECT_EQ(++registrations[proto->type()], 1) << proto->class_name() << " registered twice";
        if (proto->isa(unary_data_law::id()) || proto->isa(multiple_data_law::id())) continue;
        SCOPED_TRACE(proto->class_name());
        ++classes;
        std::string own = proto->symbol(law_symbol_default), maple = own;
        for (char& ch : maple) ch = (char)std::tolower((unsigned char)ch);
        // A function's Maple spelling is its own in lower case, or it has none (SIZE and NORM
        // have Maple forms of their own).
        std::string maple_own = proto->symbol(law_symbol_maple);
        EXPECT_TRUE(!proto->isa(unary_law::id()) || maple_own == maple || maple_own == "no_maple" ||
                    own == "SIZE" || own == "NORM")
            << maple_own;
        // The unary minus shares "-" with subtraction but binds like a function.
        auto rung = ladder.find(own);
        bool on_ladder =
            rung != ladder.end() && (proto->isa(binary_law::id()) || proto->isa(not_law::id()));
        EXPECT_EQ(proto->precedence(), on_ladder ? rung->second : 8);
        std::vector<sample> samples = samples_of(proto);
        for (const sample& s : samples) {
            output_capture quiet;
            law_holder l(str_to_law(s.text.c_str()));
            ASSERT_TRUE(l) << s.text << ": " << quiet.text();
            EXPECT_EQ(l->type(), proto->type()) << s.text;
            std::string printed = text_of(l.get());
            law_holder back(str_to_law(printed.c_str()));
            ASSERT_TRUE(back) << printed;
            EXPECT_TRUE(*back == *l) << s.text << " printed " << printed;
            EXPECT_FALSE(text_of(l.get(), law_symbol_maple).empty());
            law_holder again(rebuilt(l.get()));
            EXPECT_TRUE(again && again->type() == l->type() && *again == *l) << s.text;

            // Only the classes of the polynomial set answer polynomial(), with the law.
            std::unique_ptr<law_polynomial> poly(l->polynomial(nullptr));
            if (poly) {
                EXPECT_TRUE(l->isa(constant_law::id()) || l->isa(plus_law::id()) ||
                            l->isa(minus_law::id()) || l->isa(times_law::id()) ||
                            l->isa(negate_law::id()) || l->isa(exponent_law::id()));
                std::vector<double> c;
                for (int e = 0; e <= poly->degree(); ++e) c.push_back(poly->coefficent(e));
                law_holder rebuilt_poly(make_polynomial_law(c.data(), poly->degree()));
                EXPECT_NEAR(rebuilt_poly->eval(0.7), l->eval(0.7), 1e-9) << s.text;
                ++polynomials;
            }
            // Functions and operators over a line: the antiderivative's slope is the law (from
            // the first sample only: TAN's values are shifted beyond pi/2, its integral not).
            bool integrable = (proto->isa(unary_law::id()) || proto->isa(binary_law::id())) &&
                              own != "O" && l->return_dim() == 1 && &s == &samples[0];
            law_holder big(integrable ? law_integrate(l.get(), 0.5) : nullptr);
            law_holder big_d(big && big->has_derivative(0) ? big->derivative(0) : nullptr);
            for (double x : s.at) {
                double want = 0;
                if (!big_d || error_of([&] { want = l->eval(x); }) != "") continue;
                EXPECT_NEAR(big_d->eval(x), want, 1e-9 * (1 + std::fabs(want))) << text_of(big);
                ++antiderivatives;
            }

            if (!l->has_derivative(0) || slope_differs_deliberately(proto)) continue;
            law_holder d(l->derivative(0));
            ASSERT_EQ(d->return_dim(), l->return_dim()) << text_of(d.get());
            int dim = l->return_dim();
            for (double x : s.at) {
                double at[3] = {x, s.y, 0.0};
                std::vector<double> value(dim), numeric(dim), symbolic(dim);
                try {
                    l->evaluate(at, value.data());
                    Ndifferentiate(l.get(), at, 0, numeric.data(), 1);
                    d->evaluate(at, symbolic.data());
                } catch (const vorx_exception&) {
                    continue;  // outside the domain
                }
                for (int i = 0; i < dim; ++i)
                    EXPECT_NEAR(symbolic[i], numeric[i], 1e-6 * (1.0 + std::fabs(numeric[i])))
                        << s.text << " at " << x << ": d = " << text_of(d.get());
                ++slopes;
            }
        }
    }
    EXPECT_GT(classes, 60);
    EXPECT_GT(slopes, 150);
    EXPECT_GT(antiderivatives, 100);
    EXPECT_GE(polynomials, 9);
}
