// Comparisons, connectives, MOD, LOG, ARCTAN, MAX/MIN, STEP, PIECEWISE, the domain
// wrappers and the numerical derivative law: exact values, tie and breakpoint rules,
// construction checks that leave nothing behind, derivatives, both spellings, reading
// back, and set_domain as seen by in_domain and term_domain.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "base/interval.hpp"
#include "lawutil/law_logic.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

const double pi = 3.14159265358979323846;
const double nan_value = std::numeric_limits<double>::quiet_NaN();
const double inf = std::numeric_limits<double>::infinity();

law_holder c(double v) {
    return law_holder(VORX_NEW constant_law(v));
}

// A law of class T over the given parts, built without the parser.
template <class T>
law_holder multi(std::vector<law_holder> parts) {
    std::vector<law*> p;
    for (const law_holder& h : parts) p.push_back(h.get());
    return law_holder(VORX_NEW T(p.data(), (int)p.size()));
}

int inside(const law* l, std::vector<double> x) {
    x.resize(8, 0.0);
    return l->in_domain(x.data());
}

// ---------------------------------------------------------------- values

struct value_row {
    const char* text;
    std::vector<double> x;
    double expect;
    const char* error;  // "" when a value is expected
    double tol;         // 0: exact
};

// clang-format off
const value_row value_rows[] = {
    // Exact comparisons, no tolerance.
    {"0.1+0.2=0.3", {0}, 0, "", 0}, {"X=2", {2}, 1, "", 0}, {"X!=2", {2}, 0, "", 0},
    {"X!=2", {std::nextafter(2.0, 3.0)}, 1, "", 0}, {"X=X", {nan_value}, 0, "", 0},
    {"X<2", {1}, 1, "", 0}, {"X<2", {2}, 0, "", 0}, {"X<=2", {2}, 1, "", 0}, {"X>2", {2}, 0, "", 0},
    {"X>=2", {2}, 1, "", 0},
    // Any non-zero value is true.
    {"X AND Y", {-3, 0.5}, 1, "", 0}, {"X AND Y", {-3, 0}, 0, "", 0},
    {"X OR Y", {0, 1e-300}, 1, "", 0}, {"X OR Y", {0, -0.0}, 0, "", 0},
    {"X<1 AND Y>2 OR X>5", {6, 0}, 1, "", 0},
    // Floored remainder: the sign follows the divisor.
    {"(-1)MOD(3)", {0}, 2, "", 0}, {"(7)MOD(-3)", {0}, -2, "", 0}, {"X MOD 3", {7}, 1, "", 0},
    {"X MOD 0", {7}, nan_value, "", 0}, {"LOG(100)", {0}, 2, "", 1e-15},
    {"LOG(8,2)", {0}, 3, "", 1e-15}, {"LOG(X,E)", {std::exp(2.5)}, 2.5, "", 1e-15},
    {"LOG(X,1)", {8}, inf, "", 0}, {"MAX(X,2*X-X)", {0.1}, 0.1, "", 0},
    {"MAX(1,X,2)", {3}, 3, "", 0}, {"MIN(1,X,2)", {-3}, -3, "", 0},
    {"ARCTAN(X)", {1}, pi / 4, "", 1e-15}, {"ARCTAN(1,-1)", {0}, 3 * pi / 4, "", 1e-15},
    {"ARCTAN(0,-1)", {0}, pi, "", 1e-15},
    // STEP: at a breakpoint the law on its right is used.
    {"STEP(10,1,20)", {0.999}, 10, "", 0}, {"STEP(10,1,20)", {1}, 20, "", 0},
    {"STEP(10,1,20,1,30)", {1}, 30, "", 0}, {"STEP(10,1,20,2,30)", {2}, 30, "", 0},
    {"STEP(X,0,-X)", {3}, -3, "", 0}, {"STEP(X*X)", {3}, 9, "", 0},
    // PIECEWISE: the first condition that is not exactly 0.
    {"PIECEWISE(X<0,-X,X)", {-2}, 2, "", 0}, {"PIECEWISE(X<0,-X,X)", {3}, 3, "", 0},
    {"PIECEWISE(X>0,1,X>1,2,3)", {2}, 1, "", 0}, {"PIECEWISE(X,1,3)", {-1}, 1, "", 0},
    {"PIECEWISE(X<0,5)", {1}, 0, "", 0},
    // The domain wrappers only restrict: the value is the wrapped law's everywhere.
    {"DOMAIN(X*X,0,1)", {3}, 9, "", 0}, {"PDOMAIN(X*X,0,1)", {-2}, 4, "", 0},
    // Numerical derivatives.
    {"D(X^3,0)", {2}, 12, "", 1e-8}, {"D(X^3)", {2}, 12, "", 1e-8},
    {"D(X^3,0,2)", {2}, 12, "", 1e-5}, {"D(X^3,0,0)", {2}, 8, "", 0},
    {"D(X*Y,1)", {2, 3}, 2, "", 1e-9}, {"D(X*Y,4)", {2, 3}, 0, "", 0},
    {"D(X*X,0)", {1e4}, 2e4, "", 1e-3}, {"D(X,-1)", {2}, 0, "LAW_DIM", 0},
    // D over a law that does not read the input still evaluates it and passes its errors.
    {"D(COTH(0))", {0.5}, 0, "LAW_COTH", 0}, {"D(LN(-1))", {0.5}, 0, "LAW_LN", 0},
    {"D(ARCCOTH(X),3)", {0.5}, 0, "LAW_ARCCOTH", 0},
    // NOT binds between AND and the comparisons: 'NOT X=1' is NOT(X=1); called like a
    // function, or after an operator, it takes only its argument.
    {"NOT X=1", {7.5}, 1, "", 0}, {"NOT(X)=1", {7.5}, 0, "", 0}, {"1+NOT X", {0}, 2, "", 0},
    {"NOT X AND Y", {0, 0}, 0, "", 0},
};
// clang-format on

TEST(LogicLaws, ValuesAndErrors) {
    for (const value_row& r : value_rows) {
        SCOPED_TRACE(r.text);
        law_holder l = parse(r.text);
        double got = 0.0;
        EXPECT_EQ(error_of([&] { got = outputs_at(l.get(), r.x)[0]; }), r.error);
        if (*r.error) continue;
        if (std::isnan(r.expect))
            EXPECT_TRUE(std::isnan(got)) << got;
        else if (r.tol == 0.0)
            EXPECT_EQ(got, r.expect);
        else
            EXPECT_NEAR(got, r.expect, r.tol);
    }
}

TEST(LogicLaws, TiesKeepTheEarlierPart) {
    // +0 and -0 compare equal, so the sign shows which part was kept.
    EXPECT_FALSE(std::signbit(multi<max_law>({c(0.0), c(-0.0)})->eval(0)));
    EXPECT_TRUE(std::signbit(multi<max_law>({c(-0.0), c(0.0)})->eval(0)));
    EXPECT_TRUE(std::signbit(multi<min_law>({c(-0.0), c(0.0)})->eval(0)));
}

TEST(LogicLaws, ArctanStaysUsableAfterTheOrigin) {
    law_holder a = parse("ARCTAN(X,Y)");
    EXPECT_EQ(error_of([&] { outputs_at(a.get(), {0, 0}); }), "LAW_BAD_DOMAN");
    EXPECT_NEAR(outputs_at(a.get(), {1, 0})[0], pi / 2, 1e-15);
    EXPECT_EQ(inside(a.get(), {0, 0}), 0);
    EXPECT_EQ(inside(a.get(), {0, 1}), 1);
}

// ---------------------------------------------------------------- construction checks

// Built by construction: the parser reads '-2' as a negation, not a constant_law.
TEST(LogicLaws, ConstructionChecksRaiseAndLeaveNothing) {
    struct row {
        void (*build)();
        const char* error;
    };
    // clang-format off
    const row rows[] = {
        {[] { multi<log_law>({parse("X"), c(-2)}); }, "LAW_BASE_P"},
        {[] { multi<log_law>({parse("X"), parse("Y")}); }, "LAW_BASE_C"},
        {[] { multi<log_law>({parse("X"), c(2), c(3)}); }, "LAW_BASE_C"},
        {[] { multi<log_law>({parse("X"), parse("-2")}); }, "LAW_BASE_C"},
        {[] { multi<log_law>({parse("X"), c(0)}); }, ""},
        {[] { multi<step_law>({c(1), c(1), c(2), c(1), c(3)}); }, ""},
        {[] { multi<step_law>({c(1), c(2), c(2), c(1), c(3)}); }, "LAW_STEP_ORDER"},
        {[] { multi<step_law>({c(1), parse("X"), c(2)}); }, "LAW_STEP_ODD"},
        {[] { multi<step_law>({c(1), c(1)}); }, "LAW_STEP_NUM"},
        {[] { law* none[1] = {nullptr}; law_holder(VORX_NEW derivative_law(none, 0)); }, "LAW_DL_NUM"},
        {[] { multi<derivative_law>({c(1), c(0), c(1), c(2)}); }, "LAW_DL_NUM"},
        // Through the parser, which must release what it built for the arguments.
        {[] { law_holder(str_to_law("STEP(X,2,Y,1,Z)")); }, "LAW_STEP_ORDER"},
        {[] { law_holder(str_to_law("LOG(X,Y)")); }, "LAW_BASE_C"},
        {[] { law_holder(str_to_law("D(X,0,1,2)")); }, "LAW_DL_NUM"},
    };
    // clang-format on
    int before = law::how_many_laws;
    for (const row& r : rows) EXPECT_EQ(error_of(r.build), r.error);
    EXPECT_EQ(law::how_many_laws, before);
    EXPECT_EQ(text_of(multi<log_law>({parse("X")}).get()), "LOG(X,10)");
}

// ---------------------------------------------------------------- derivatives

TEST(LogicLaws, PiecewiseConstantLawsDifferentiateToZero) {
    for (const char* text : {"X<Y", "X=X*X", "X OR Y", "(X*X)MOD(3)"}) {
        law_holder d(parse(text)->derivative(0));
        ASSERT_TRUE(d->isa(constant_law::id())) << text;
        EXPECT_EQ(d->eval(1.0), 0.0) << text;
    }
}

TEST(LogicLaws, DerivativeShapes) {
    law_holder s(parse("STEP(X,1,X*X)")->derivative(0));
    ASSERT_TRUE(s->isa(step_law::id()));
    EXPECT_EQ(text_of(static_cast<multiple_law*>(s.get())->fsub()[1]), "1");
    // 3X and 2X+X tie everywhere: the switch keeps the first part's slope.
    EXPECT_DOUBLE_EQ(law_holder(parse("MAX(3*X,2*X+X)")->derivative(0))->eval(1.0), 3.0);
    // The permanent restriction survives the simplification that derivative() applies.
    law_holder p(parse("PDOMAIN(X*X,0,1)")->derivative(0));
    ASSERT_TRUE(p->isa(permanent_domain_law::id()));
    EXPECT_DOUBLE_EQ(p->eval(0.25), 0.5);
    EXPECT_EQ(inside(p.get(), {2}), 0);
    EXPECT_DOUBLE_EQ(law_holder(parse("DOMAIN(X*X,0,1)")->derivative(0))->eval(0.25), 0.5);
}

TEST(LogicLaws, DerivativeLawOneSidedAtAKink) {
    // STEP(X,1,3X-2) is continuous with slope 1 below 1 and 3 from 1 on.
    law_holder d = parse("D(STEP(X,1,3*X-2),0)");
    double x = 1.0;
    int below = 1, above = 0;
    EXPECT_NEAR(d->evaluateM_R(&x, &below), 1.0, 1e-9);
    EXPECT_NEAR(d->evaluateM_R(&x, &above), 3.0, 1e-9);
    EXPECT_EQ(x, 1.0);
}

// ---------------------------------------------------------------- domains

TEST(LogicLaws, SetDomainRestrictsInDomainAndTermDomain) {
    law_holder f = parse("X*X");
    interval dom[1] = {interval(0.0, 1.0)};
    law_holder d(f->set_domain(dom));
    ASSERT_TRUE(d->isa(domain_law::id()));
    EXPECT_EQ(text_of(d.get()), "DOMAIN(X*X,0,1)");
    EXPECT_EQ(text_of(d.get(), law_symbol_maple), text_of(f.get(), law_symbol_maple));
    for (double x : {0.0, 0.5, 1.0}) EXPECT_EQ(inside(d.get(), {x}), 1) << x;
    for (double x : {-0.1, 1.5, nan_value}) EXPECT_EQ(inside(d.get(), {x}), 0) << x;
    interval got;
    ASSERT_EQ(d->term_domain(0, got), 1);
    EXPECT_TRUE(got.finite());
    EXPECT_EQ(got.start_pt(), 0.0);
    EXPECT_EQ(got.end_pt(), 1.0);
    EXPECT_EQ(d->eval(3.0), 9.0);  // evaluating outside does not raise
}

TEST(LogicLaws, SetDomainOfSeveralInputsAndUnboundedEnds) {
    interval dom[2] = {interval(interval_finite_below, 1.0, 0.0), interval(2.0, 3.0)};
    law_holder d(parse("X*Y")->set_domain(dom, 1));
    ASSERT_TRUE(d->isa(permanent_domain_law::id()));
    EXPECT_FALSE(d->isa(domain_law::id()));
    EXPECT_EQ(inside(d.get(), {1e300, 2.5}), 1);
    EXPECT_EQ(inside(d.get(), {0.5, 2.5}), 0);
    EXPECT_EQ(inside(d.get(), {5, 3.5}), 0);
    interval got;
    ASSERT_EQ(d->term_domain(1, got), 1);
    EXPECT_TRUE(got.finite());
    EXPECT_EQ(got.end_pt(), 3.0);
    EXPECT_EQ(d->term_domain(2, got), 0);  // beyond the bounded inputs: the wrapped law's
    // The unbounded end prints as a number that reads back as unbounded.
    law_holder back = parse(text_of(d.get()).c_str());
    ASSERT_TRUE(back);
    EXPECT_TRUE(*back == *d) << text_of(back.get());
    ASSERT_EQ(back->term_domain(0, got), 1);
    EXPECT_EQ(got.type(), interval_finite_below);
    EXPECT_EQ(got.start_pt(), 1.0);
}

TEST(LogicLaws, DomainsNestAndKeepTheWrappedLawsOwnDomain) {
    law_holder constant(c(4)->set_domain(std::vector<interval>{interval(-1.0, 1.0)}.data()));
    EXPECT_EQ(constant->take_dim(), 1);
    EXPECT_EQ(inside(constant.get(), {2}), 0);

    law_holder nested = parse("DOMAIN(DOMAIN(X,0,2),1,3)");
    interval got;
    ASSERT_EQ(nested->term_domain(0, got), 1);
    EXPECT_EQ(got.start_pt(), 1.0);
    EXPECT_EQ(got.end_pt(), 2.0);
    EXPECT_EQ(inside(nested.get(), {2.5}), 0);

    law_holder lg = parse("DOMAIN(LOG(X),-5,5)");
    EXPECT_EQ(inside(lg.get(), {-1}), 0);
    EXPECT_EQ(inside(lg.get(), {1}), 1);
}

// ---------------------------------------------------------------- text

// clang-format off
const text_row text_rows[] = {
    {"X<2", "X<2"}, {"X<=Y", "X<=Y"}, {"X>=Y", "X>=Y"}, {"X=1+Y", "X=1+Y"}, {"X!=Y", "X<>Y"},
    {"X<1ANDY>2ORX>5", "X<1andY>2orX>5"}, {"(XANDY)=0", "(XandY)=0"},
    // MOD's operands are always parenthesised, so a number before MOD reads back.
    {"(7)MOD(3)", "mod[3]7"}, {"(X+1)MOD(Y)", "mod[Y](X+1)"}, {"1+(X)MOD(2)", "1+mod[2]X"},
    {"LOG(X,2)", "log[2]X"}, {"LOG(X+1,10)", "log[10](X+1)"}, {"MAX(X,Y,1)", "max(X,Y,1)"},
    {"MIN(X,Y)", "min(X,Y)"}, {"ARCTAN(Y,X)", "arctan(Y,X)"}, {"STEP(X,1,Y)", "no_maple(X,1,Y)"},
    {"PIECEWISE(X<0,-X,X)", "PIECEWISE(X<0,-X,X)"}, {"DOMAIN(X*X,0,1)", "X*X"},
    {"PDOMAIN(X,0,1)", "X"}, {"D(X^3,0)", "D(X**3,0)"}, {"(NOT(X))=1", "(not(X))=1"},
    {"NOT(X=1)", "not(X=1)"}, {"-(NOT(X))", "-(not(X))"}, {"XANDNOT(Y)", "Xandnot(Y)"},
};
// clang-format on

TEST(LogicLaws, PrintsInBothSpellingsAndCopies) {
    check_text_rows(text_rows);
}

}  // namespace
