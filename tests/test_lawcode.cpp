// Code generation: the text's shape (heading, sharing, bookkeeping) and its refusals.  The
// generated code itself is compiled and run against its laws by tests/codegen at build
// time (ctest: lawcode_rebuild).
#include <gtest/gtest.h>

#include <string>

#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

std::string take(char* text) {
    std::string r = text;
    VORX_FREE(text);
    return r;
}

int count_of(const std::string& text, const std::string& what) {
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

std::string c_function(const char* law_text, int gradient = 1) {
    law_holder l(str_to_law(law_text));
    return take(law_to_c_function(l.get(), "f", gradient));
}

}  // namespace

TEST(LawCode, SharedNodesAreWrittenOnce) {
    law_holder x(VORX_NEW identity_law(0, 'X'));
    law_holder square(VORX_NEW times_law(x.get(), x.get()));
    law_holder sine(VORX_NEW sin_law(x.get()));
    law_holder l(VORX_NEW plus_law(square.get(), sine.get()));

    std::string text = take(lawcode(l.get(), "build"));
    EXPECT_EQ(text.rfind("// Automatic code for the law X*X+SIN(X)\nlaw* build() {\n", 0), 0u)
        << text;
    EXPECT_EQ(count_of(text, "identity_law("), 1) << text;
    EXPECT_NE(text.find("times_law(law1.get(), law1.get())"), std::string::npos) << text;
    EXPECT_NE(text.find("return law4.release();"), std::string::npos) << text;

    law_code code;
    EXPECT_EQ(pastlawcode(sine.get(), code), 0);
    int v = codeline(l.get(), code);
    EXPECT_EQ(v, 4);
    EXPECT_EQ(pastlawcode(sine.get(), code), 3);
    std::string before = code.text();
    EXPECT_EQ(codeline(sine.get(), code), 3);
    EXPECT_EQ(code.text(), before);  // nothing written twice
}

TEST(LawCode, RefusesWhatItCannotWrite) {
    law_holder x(str_to_law("X"));
    law_data_holder data(VORX_NEW law_law_data(x.get()));
    law_holder with_data(VORX_NEW unary_data_law(data.get()));
    law_holder over_data(VORX_NEW plus_law(x.get(), with_data.get()));
    law_holder foreign(VORX_NEW counted_law("X+1"));
    law_holder vec(str_to_law("VEC(X,X*X)"));
    law_holder tangent(str_to_law("TAN(X)"));

    const struct {
        const law* l;
        const char* rebuild;  // lawcode's error
        const char* bake;     // law_to_c_function's error
    } rows[] = {
        {over_data.get(), "LAW_DATA_SAVE", "LAW_NO_SAVE"},
        {foreign.get(), "LAW_NO_SAVE", "LAW_NO_SAVE"},
        {vec.get(), "", "LAW_EVALS"},
        {tangent.get(), "", "LAW_NO_SAVE"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(error_of([&] { VORX_FREE(lawcode(row.l)); }), row.rebuild);
        EXPECT_EQ(error_of([&] { VORX_FREE(law_to_c_function(row.l, "f")); }), row.bake);
    }
}

TEST(LawCode, BakedFunctionsShareWorkAndCheckOnlyWhatMayFail) {
    // SIN(X) once, its COS once for the value and the slope alike.
    std::string f = c_function("SIN(X)*COS(X)+SIN(X)");
    EXPECT_EQ(count_of(f, "std::sin("), 1) << f;
    EXPECT_EQ(count_of(f, "std::cos("), 1) << f;
    // A polynomial is one Horner loop: no powers, eight products for the value.
    std::string p = c_function("1+2*X+3*X^2+4*X^3+5*X^4+6*X^5+7*X^6+8*X^7+9*X^8", 0);
    EXPECT_EQ(count_of(p, " * "), 8) << p;
    EXPECT_EQ(count_of(p, "pow"), 0) << p;
    // 1+X^2 is at least 1: no check; X may be negative: one, with LN's status.
    EXPECT_EQ(count_of(c_function("SQRT(1+X^2)+LN(1+X^2)/(X^2+1)"), "if ("), 0);
    std::string ln = c_function("LN(X)");
    EXPECT_EQ(count_of(ln, "if ("), 1) << ln;
    size_t at = ln.find(") return ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(law_c_status_error(std::stoi(ln.substr(at + 9))), LAW_LN);
    EXPECT_EQ(law_c_status_error(0), 0);
}
