// Faults found by fuzzing the law reader (fuzz/fuzz_str_to_law.cpp), each pinned down by
// the input that showed it.  The listener of test_main.cpp fails any test that leaves a
// law or a tracked block behind, which is how the leaks here are caught.
#include <gtest/gtest.h>

#include <new>
#include <string>

#include "base/output.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

// A number beyond the doubles read as an infinite constant, which printed "inf" and so
// read back as nothing: it is bad syntax instead.
TEST(FuzzNumberOverflow, IsRefusedWithTheReadersMessage) {
    const char* rows[][2] = {{"1E+880PI", "Error bad syntax at 1E+880*PI\n"},
                             {"1e+999", "Error bad syntax at 1E+999\n"},
                             {"x+1E+400", "Error bad syntax at 1E+400\n"},
                             {"sin(2E+309)", "Error bad syntax at 2E+309)\n"}};
    for (auto& r : rows) {
        output_capture said;
        law_holder l(str_to_law(r[0]));
        EXPECT_FALSE(l) << r[0];
        EXPECT_EQ(std::string(said.text()), r[1]);
    }
}

TEST(FuzzNumberOverflow, NumbersThatUnderflowOrJustFitStillRead) {
    output_capture said;
    law_holder tiny(str_to_law("1E-400"));
    ASSERT_TRUE(tiny) << said.text();
    EXPECT_EQ(tiny->evaluateM_R(nullptr), 0.0);
    law_holder big(str_to_law("1.7E+308"));
    ASSERT_TRUE(big) << said.text();
    EXPECT_EQ(big->evaluateM_R(nullptr), 1.7e308);
}

// 'D(PRIME?(X),1)': the derivative in input 0 of a D law whose F has no derivative there
// was built as D(this,0,1) over the law itself.  Cached on the law, it held the law that
// holds it, and neither was ever destroyed.
TEST(FuzzRegressions, DerivativeOfANumericalDerivativeDoesNotHoldItsLaw) {
    int laws = law::how_many_laws;
    {
        output_capture quiet;
        law_holder l(str_to_law("D(PRIME?(X),1)"));
        ASSERT_TRUE(l) << quiet.text();
        law_holder d(l->derivative(0));
        ASSERT_TRUE(d);
        double x = 2.0;
        d->evaluateM_R(&x);
    }
    EXPECT_EQ(law::how_many_laws, laws);
}

// 'X600000000 O X': the composition pads the inner value up to the outer law's inputs,
// 600 million doubles, whose byte count wrapped around in the 32-bit allocation size; the
// padding then wrote far past the short block.  Refusing (or evaluating to 0, the value
// of the padded input) is fine; overrunning is not.
TEST(FuzzRegressions, CompositionOverAFarInputDoesNotOverrunItsBuffer) {
    // Built directly: the reader refuses a variable that far.
    law_holder far(VORX_NEW identity_law(599999999, 'X'));
    law_holder first(VORX_NEW identity_law(0, 'X'));
    law_holder l(VORX_NEW composite_law(far.get(), first.get()));
    double x = 0.5;
    try {
        EXPECT_EQ(l->evaluateM_R(&x), 0.0);
    } catch (const std::bad_alloc&) {
    } catch (const vorx_exception&) {
    }
}

TEST(FuzzRegressions, ArrayWhoseByteCountOverflowsIsRefused) {
    EXPECT_THROW(VORX_FREE(VORX_ALLOC_ARRAY(double, (size_t)1 << 29)), std::bad_alloc);
}

// 'MAX(X,0,...,0)': each part of the derivative reuses the derivative so far twice, a
// shared tree of linear size, but simplification rebuilt it once per path, so that each
// further part doubled the work: 20 parts took minutes and millions of laws.
TEST(FuzzRegressions, DerivativeOfAManyPartMaxStaysSmall) {
    output_capture quiet;
    std::string text = "MAX(X";
    for (int i = 0; i < 16; ++i) text += ",0";
    text += ")";
    law_holder l(str_to_law(text.c_str()));
    ASSERT_TRUE(l) << quiet.text();
    int laws = law::how_many_laws;
    law_holder d(l->derivative(0));
    ASSERT_TRUE(d);
    EXPECT_LT(law::how_many_laws - laws, 2000);
    double x = 0.5;
    EXPECT_EQ(d->evaluateM_R(&x), 1.0);
}

// 'D(,SINZ,1111111EXP)': a numerical derivative of order three million ground through
// ten million samples per evaluation; orders past what finite differences can give are
// refused.
TEST(FuzzRegressions, HugeNumericalDerivativeOrderIsRefused) {
    output_capture quiet;
    law_holder l(str_to_law("D(,SINZ,1111111EXP)"));
    ASSERT_TRUE(l) << quiet.text();
    double x[3] = {0.5, 0.5, 0.5};
    EXPECT_EQ(error_of([&] { l->evaluateM_R(x); }), "LAW_DIM");
    law_holder fine(str_to_law("D(X^3,0,2)"));
    EXPECT_NEAR(fine->evaluateM_R(x), 3.0, 1e-5);
}

// 'SIN2MIN(X,,,E,...)': the derivative of a MIN of many parts summed switched terms that
// each reused the derivative so far twice, so evaluating it took 2^n steps; it is now a
// piecewise law that evaluates one branch.
TEST(FuzzRegressions, DerivativeOfAManyPartMinEvaluatesOneBranch) {
    output_capture quiet;
    std::string text = "MIN(X";
    for (int i = 0; i < 40; ++i) text += i % 9 ? ",X+1" : ",E";
    text += ",X-1)";
    law_holder l(str_to_law(text.c_str()));
    ASSERT_TRUE(l) << quiet.text();
    law_holder d(l->derivative(0));
    double x = 0.5;
    EXPECT_EQ(d->evaluateM_R(&x), 1.0);  // X-1 is the smallest part
}

// 'D(2,-x*u4444...-X11)': a part read as a number (D's input and order) is evaluated at
// 1.0 for every input it reads (law_value_at_one), and a part reading input 999999999
// asked for an array of a billion doubles: std::bad_alloc, which nothing in the library
// raises on purpose, escaped from derivative().  Such a part is malformed and must be
// refused like any other bad law (a vorx_exception), or read.
TEST(FuzzRegressions, PartReadAsANumberOverAFarInputIsRefusedNotAllocated) {
    for (const char* text : {"D(2,-x*u44444444444444444444-X11)", "D(X^2,0,U1000000000)"}) {
        output_capture quiet;
        law_holder l;
        // Refused by the reader (past the last variable it reads), or read; never bad_alloc.
        if (error_of([&] { l.reset(str_to_law(text)); }) != "" || !l) continue;
        error_of([&] { law_holder d(l->derivative(0)); });
    }
}

// '-X^3X/SINHX-X^3X/SINHX...': simplifying the derivative compared its terms pairwise, and
// comparing two sums (or products) first compares them side by side and, failing that,
// again as flattened operand lists, so each level of nesting doubled the work: two
// 40-level nests that differ only in their innermost variable took 4^40 steps.
TEST(FuzzRegressions, ComparingDeepSumsAndProductsIsNotExponential) {
    std::string x = "X", y = "Y";
    for (int i = 0; i < 40; ++i) {
        x = "(" + x + "+1)*2";
        y = "(" + y + "+1)*2";
    }
    law_holder a(str_to_law(x.c_str())), b(str_to_law(y.c_str())), c(str_to_law(x.c_str()));
    ASSERT_TRUE(a && b && c);
    EXPECT_FALSE(*a == *b);
    EXPECT_TRUE(*a == *c);
}
