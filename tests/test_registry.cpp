// Every registered prototype at once: it is registered once and binds by the precedence
// ladder; a law of its class prints in both spellings, its own text reads back to an
// equal law, and its symbolic derivative agrees with the numerical one wherever the law
// evaluates.  A class registered tomorrow is covered the day it is registered.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <string>

#include "base/output.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

// Sample texts for the classes whose arguments have a shape of their own; every other
// class is tried with a generic argument list built from its kind.
const std::map<std::string, std::string> special = {
    {"STEP", "STEP(X,0.5,X*X,0.7,1-X)"},
    {"PIECEWISE", "PIECEWISE(X<0.5,X*X,SIN(X))"},
    {"LOG", "LOG(X+2,3)"},
    {"TERM", "TERM(VEC(X,X*X,3),2)"},
    {"DOT", "DOT(VEC(X,2,X*X),VEC(1,X,3))"},
    {"VEC", "VEC(X,X*X,SIN(X))"},
    {"CROSS", "CROSS(VEC(X,1,X*X),VEC(2,SIN(X),1))"},
    {"NORM", "NORM(VEC(X,1,X*X))"},
    {"SIZE", "SIZE(VEC(X,1,X*X))"},
    {"FRENET", "FRENET(VEC(COS(X),SIN(X),X),2)"},
    {"MINROT", "MINROT(VEC(COS(X),SIN(X),X),VEC(-1,0,0),0,6.5)"},
    {"TWISTPATH", "TWISTPATH(VEC(0,0,1),VEC(X,X*X,1),X)"},
    {"BEND", "BEND(VEC(X,X*X,1),VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),2)"},
    {"UNBEND", "UNBEND(VEC(X,X*X,1),VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),2)"},
    {"CONICLINE", "CONICLINE(VEC(0,0,0),VEC(1,0,X),VEC(0,1,0),0.4,X)"},
    {"CONICTROUGH", "CONICTROUGH(VEC(0,0,0),VEC(0,1,0),VEC(1,0,X),VEC(-1,0,0),0.4,X)"},
    {"CYCLIDE", "CYCLIDE(VEC(0,0,0),VEC(1,0,0),VEC(0,0,1),3,1,2,X,0.5)"},
    {"DCYCLIDE", "DCYCLIDE(VEC(0,0,0),VEC(1,0,0),VEC(0,0,1),3,1,2,X,0.5,1,1)"},
    {"CYCLIDEPERP", "CYCLIDEPERP(VEC(0,0,0),VEC(1,0,0),VEC(0,0,1),3,1,2,VEC(X,2,1))"},
    {"D", "D(X^3+X,0)"},
    {"DOMAIN", "DOMAIN(X*X,0,1)"},
    {"INTEGRATE", "INTEGRATE(X*Y+SIN(Y),0.2,X*X)"},
    {"PDOMAIN", "PDOMAIN(X*X,0,1)"},
    {"ARCTAN", "ARCTAN(X+0.3,0.7)"},
    {"O", "SIN(X)O(X*X)"},
};

std::string sample_text(const law* proto, const char* arg) {
    std::string sym = proto->symbol(law_symbol_default);
    auto it = special.find(sym);
    if (it != special.end()) return it->second;
    if (proto->isa(constant_law::id())) return sym;
    if (proto->isa(binary_law::id())) return std::string("(") + arg + ")" + sym + "(0.7)";
    if (proto->isa(multiple_law::id())) return sym + "(" + arg + ",0.7)";
    return sym + "(" + arg + ")";
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
    int classes = 0, slopes = 0;
    std::map<int, int> registrations;
    for (law_list* n = law_list::head(); n; n = n->fnext()) {
        const law* proto = n->fthis();
        EXPECT_EQ(++registrations[proto->type()], 1) << proto->class_name() << " registered twice";
        if (proto->isa(unary_data_law::id()) || proto->isa(multiple_data_law::id())) continue;
        SCOPED_TRACE(proto->class_name());
        ++classes;
        // The unary minus shares "-" with subtraction but binds like a function.
        auto rung = ladder.find(proto->symbol(law_symbol_default));
        bool on_ladder =
            rung != ladder.end() && (proto->isa(binary_law::id()) || proto->isa(not_law::id()));
        EXPECT_EQ(proto->precedence(), on_ladder ? rung->second : 8);
        // Two arguments, so functions with a domain away from [0.2, 0.5] get a chance.
        for (const char* arg : {"0.3*X+0.2", "0.3*X+1.7"}) {
            std::string text = sample_text(proto, arg);
            output_capture quiet;
            law_holder l(str_to_law(text.c_str()));
            ASSERT_TRUE(l) << text << ": " << quiet.text();
            EXPECT_EQ(l->type(), proto->type()) << text;
            std::string printed = text_of(l.get());
            law_holder back(str_to_law(printed.c_str()));
            ASSERT_TRUE(back) << printed;
            EXPECT_TRUE(*back == *l) << text << " printed " << printed;
            EXPECT_FALSE(text_of(l.get(), law_symbol_maple).empty());

            if (l->return_dim() != 1 || !l->has_derivative(0) || slope_differs_deliberately(proto))
                continue;
            law_holder d(l->derivative(0));
            for (double x : {0.37, 0.61, 0.83}) {
                double at[3] = {x, 0.0, 0.0}, value, numeric, symbolic;
                try {
                    l->evaluate(at, &value);
                    Ndifferentiate(l.get(), at, 0, &numeric, 1);
                    d->evaluate(at, &symbolic);
                } catch (const vorx_exception&) {
                    continue;  // outside the domain
                }
                EXPECT_NEAR(symbolic, numeric, 1e-6 * (1.0 + std::fabs(numeric)))
                    << text << " at " << x << ": d = " << text_of(d.get());
                ++slopes;
            }
        }
    }
    EXPECT_GT(classes, 60);
    EXPECT_GT(slopes, 150);
}
