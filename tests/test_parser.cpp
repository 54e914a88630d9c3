// Reading laws from text: the shapes the splitter builds, its deliberate quirks, its
// messages on bad input, and that every printed law reads back to an equal law.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <sstream>
#include <string>

#include "base/output.hpp"
#include "lawutil/law_unary.hpp"
#include "lawutil/lawutil.hpp"
#include "lawutil/main_law_arith.hpp"
#include "test_support.hpp"

namespace {

// The tree as nested class names, e.g. plus_law(identity_law,constant_law).
std::string shape(const law* l) {
    if (!l) return "null";
    std::string s = l->class_name();
    if (l->isa(unary_law::id()))
        return s + "(" + shape(static_cast<const unary_law*>(l)->fsub()) + ")";
    if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        return s + "(" + shape(b->fleft()) + "," + shape(b->fright()) + ")";
    }
    if (l->isa(multiple_law::id())) {
        const multiple_law* m = static_cast<const multiple_law*>(l);
        for (int i = 0; i < m->fsub_num(); ++i) s += (i ? "," : "(") + shape(m->fsub()[i]);
        return s + ")";
    }
    return s;
}

struct parse_row {
    const char* text;
    const char* shape;
};

}  // namespace

class ParserShapes : public testing::TestWithParam<parse_row> {};

TEST_P(ParserShapes, BuildsTheExpectedTree) {
    output_capture quiet;
    law_holder l(str_to_law(GetParam().text));
    EXPECT_EQ(shape(l.get()), GetParam().shape) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    Text, ParserShapes,
    testing::Values(
        parse_row{"", "constant_law"}, parse_row{"NULL", "null"}, parse_row{"null", "null"},
        parse_row{" x ", "identity_law"},
        parse_row{"x^2+sin(x)",
                  "plus_law(exponent_law(identity_law,constant_law),sin_law(identity_law))"},
        parse_row{"2x", "times_law(constant_law,identity_law)"},
        parse_row{"3SIN(X)", "times_law(constant_law,sin_law(identity_law))"},
        parse_row{"X-Y-Z", "minus_law(minus_law(identity_law,identity_law),identity_law)"},
        parse_row{"X^Y^Z", "exponent_law(exponent_law(identity_law,identity_law),identity_law)"},
        parse_row{"-X^2", "exponent_law(negate_law(identity_law),constant_law)"},
        parse_row{"-3", "negate_law(constant_law)"}, parse_row{"((X))", "identity_law"},
        parse_row{"(X+1)*2", "times_law(plus_law(identity_law,constant_law),constant_law)"},
        parse_row{"PI", "pi_law"}, parse_row{"TRUE", "true_law"}, parse_row{"e", "e_law"},
        parse_row{"SIN X", "sin_law(identity_law)"},
        parse_row{"X^-1", "exponent_law(identity_law,negate_law(constant_law))"},
        // Composition binds like a function (8), tighter than ^ (7).
        parse_row{"SIN(X) O X^2",
                  "exponent_law(composite_law(sin_law(identity_law),identity_law),constant_law)"},
        parse_row{"SIN O (X^2)",
                  "composite_law(sin_law(constant_law),exponent_law(identity_law,constant_law))"},
        // NOT has precedence 3, below the comparisons.
        parse_row{"NOT X=1", "not_law(equal_law(identity_law,constant_law))"},
        parse_row{"NOT(X)=1", "equal_law(not_law(identity_law),constant_law)"},
        parse_row{"1+NOT X", "plus_law(constant_law,not_law(identity_law))"},
        parse_row{"-NOT X", "negate_law(not_law(identity_law))"},
        // An unmatched '(' around the split operator is stripped; the missing operand is 0.
        parse_row{"(X+", "plus_law(identity_law,constant_law)"}));

TEST(Parser, VariablesByLetterAndNumber) {
    struct {
        const char* text;
        int index;
        const char* printed;
    } rows[] = {{"X", 0, "X"},   {"T", 0, "T"},           {"U", 0, "U"},   {"Y", 1, "Y"},
                {"V", 1, "V"},   {"Z", 2, "Z"},           {"A4", 3, "A4"}, {"X2", 1, "X2"},
                {"E5", 4, "E5"}, {"X4096", 4095, "X4096"}};
    for (auto& r : rows) {
        law_holder l(str_to_law(r.text));
        ASSERT_TRUE(l && l->isa(identity_law::id())) << r.text;
        EXPECT_EQ(static_cast<identity_law*>(l.get())->fwhich(), r.index);
        EXPECT_EQ(text_of(l.get()), r.printed);
    }
}

TEST(Parser, BadInputPrintsTheDocumentedMessageAndReturnsNull) {
    struct {
        const char* text;
        const char* message;
    } rows[] = {{"X$", "Error bad syntax at $\n"},
                {"SIN(X)+#", "Error bad syntax at #\n"},
                {"LAW2", "Error law 2 was not given\n"},
                // Variable numbers are bounded where they are read: 'X100000000' made every
                // evaluation allocate gigabytes, 'X999999999999' ended in std::bad_alloc.
                {"X4097", "Error bad syntax at X4097\n"},
                {"X100000000+1", "Error bad syntax at X100000000+1\n"},
                {"X999999999999", "Error bad syntax at X999999999999\n"},
                // Without the exponent's sign this is 1 times the variable E99999, past the last.
                {"1E99999", "Error bad syntax at E99999\n"},
                // A number beyond the doubles is refused: it could not be printed back.
                {"1E+99999", "Error bad syntax at 1E+99999\n"}};
    for (auto& r : rows) {
        output_capture out;
        law* l = str_to_law(r.text);
        EXPECT_EQ(l, nullptr) << r.text;
        EXPECT_STREQ(out.text(), r.message) << r.text;
    }
}

TEST(Parser, DataReferencesReadWrappedLaws) {
    law_holder inner(str_to_law("X*X"));
    law_data_holder d(VORX_NEW law_law_data(inner.get()));
    law_data* data[1] = {d.get()};
    law_holder l(str_to_law("LAW1+1", data, 1));
    ASSERT_TRUE(l);
    EXPECT_EQ(l->eval(3.0), 10.0);
    EXPECT_EQ(static_cast<binary_law*>(l.get())->fleft(), inner.get());
    output_capture out;
    EXPECT_EQ(str_to_law("LAW2", data, 1), nullptr);
    EXPECT_EQ(str_to_law("LAW0", data, 1), nullptr);
}

TEST(Parser, EvaluatesWhatItReads) {
    struct {
        const char* text;
        double x, value;
    } rows[] = {{"x^2+3x-1", 2.0, 9.0},
                {"2^3^2", 0.0, 64.0},
                {"-X^2", 3.0, 9.0},
                {"10/4/5", 0.0, 0.5},
                {"2*PI*X", 0.5, M_PI},
                {"SIN(X)^2+COS(X)^2", 0.7, 1.0},
                // Numbers, with their quirks: '2*E-3' is the number 2E-3, and without the
                // exponent's sign '2E5' is 2 times the variable E5 (input 4, 3 here).
                {"2e-3", 0.0, 0.002},
                {"2*E-3", 0.0, 0.002},
                {"1.5E+2", 0.0, 150.0},
                {".25", 0.0, 0.25},
                {"2E5", 0.0, 6.0}};
    for (auto& r : rows) {
        law_holder l(str_to_law(r.text));
        ASSERT_TRUE(l) << r.text;
        double in[5] = {r.x, 0.0, 0.0, 0.0, 3.0};
        EXPECT_NEAR(l->evaluateM_R(in), r.value, 1e-12) << r.text;
    }
}

TEST(Parser, EveryPrintedLawReadsBackEqual) {
    // One law per ';'.
    std::istringstream corpus(
        "X^2+SIN(X);(X^3-2*X+1)/(X^2+1);EXP(-(X^2))*COS(10*X);SQRT(1+X^2)+LN(1+X^2);"
        "1+2*X+3*X^2+4*X^3+5*X^4;X^2*Y+SIN(X*Y)+Y^3;SIN(COS(SIN(X)+2)+3)*EXP(-ABS(X));"
        "X-(Y-Z);(X-Y)-Z;X/(Y*Z);-(X+Y);X^-1;(X^Y)^Z;X^(Y^Z);-X^2;PI*E;A4+X2;TRUE+FALSE;"
        "SIN(X) O COS(X);1E-20*X;0.1+1/3;(NOT(X))=1;NOT X=1;-(NOT(X));X OR NOT(Y) AND Z;"
        "1+NOT X;X^NOT(Y)");
    for (std::string text; std::getline(corpus, text, ';');) {
        law_holder l(str_to_law(text.c_str()));
        ASSERT_TRUE(l) << text;
        std::string printed = text_of(l.get());
        law_holder back(str_to_law(printed.c_str()));
        ASSERT_TRUE(back) << printed;
        EXPECT_TRUE(*back == *l) << text << " printed " << printed;
        EXPECT_EQ(text_of(back.get()), printed);
    }
}

TEST(Parser, RandomAndMutatedTextNeverCrashesOrLeaks) {
    const char* seeds[] = {"X^2+SIN(X)",  "(X+1)*2",    "MAX(X,Y,Z)", "LAW1+2E-3",    "-X^-Y",
                           "SIN(COS(X))", "1.5E+10*PI", "VEC(X,Y,Z)", "STEP(X,1,X*X)"};
    const char alphabet[] = "XYZT0123456789.+-*/^(),E SINCOPLAW$#";
    std::mt19937 rng(12345);
    output_capture quiet;
    int built = 0;
    for (int i = 0; i < 4000; ++i) {
        std::string s;
        if (i % 2) {
            s = seeds[rng() % (sizeof seeds / sizeof *seeds)];
            int edits = 1 + rng() % 4;
            for (int e = 0; e < edits && !s.empty(); ++e) {
                size_t at = rng() % s.size();
                int op = rng() % 3;
                char c = alphabet[rng() % (sizeof alphabet - 1)];
                if (op == 0)
                    s.erase(at, 1);
                else if (op == 1)
                    s.insert(at, 1, c);
                else
                    s[at] = c;
            }
        } else {
            int n = rng() % 24;
            for (int k = 0; k < n; ++k) s += alphabet[rng() % (sizeof alphabet - 1)];
        }
        law_holder l;
        try {
            l.reset(str_to_law(s.c_str()));
        } catch (const vorx_exception&) {
            continue;  // a construction error such as STEP(X,1): raised, leaks nothing
        }
        if (!l) continue;
        ++built;
        char* t = l->string();
        VORX_FREE(t);
        double x[8] = {0.3, 0.7, 1.1, 0.2, 0.5, 0.9, 1.3, 0.4};
        if (l->take_dim() <= 8 && l->return_dim() == 1) {
            try {
                l->evaluateM_R(x);
            } catch (const vorx_exception&) {
            }
        }
        quiet.clear();
    }
    EXPECT_GT(built, 100);
    quiet.clear();
    // Long and deeply nested input is read, never a crash (too deep: see ReadLaw).
    std::string deep(5000, '(');
    deep += "X";
    deep += std::string(5000, ')');
    law_holder d(str_to_law(deep.c_str()));
    EXPECT_TRUE(d);
    std::string long_sum = "X";
    for (int k = 0; k < 2000; ++k) long_sum += "+X";
    law_holder ls(str_to_law(long_sum.c_str()));
    ASSERT_TRUE(ls);
    EXPECT_EQ(ls->eval(1.0), 2001.0);
}

// read_law: the same reading as str_to_law, with a fault given back, never printed.
TEST(ReadLaw, FaultsComeBackWithCodeColumnAndReason) {
    std::string nested;
    for (int k = 0; k < 3000; ++k) nested += "SIN(";
    nested += "X" + std::string(3000, ')');
    struct {
        std::string text;
        int code;
        int column;
        const char* reason;
    } rows[] = {{"X$", LAW_SYNTAX, 2, "bad syntax"},
                {"SIN(X)+#", LAW_SYNTAX, 8, "bad syntax"},
                // Columns count in the caller's text: spaces, case and implied '*' included.
                {" x  + $", LAW_SYNTAX, 7, "bad syntax"},
                {"1E99999", LAW_SYNTAX, 2, "bad syntax"},
                {"X4097", LAW_SYNTAX, 1, "bad syntax"},
                {"MAX  ", LAW_SYNTAX, 4, "bad syntax"},  // the end, not the spaces after it
                {"X+LAW2", LAW_DATA_UNKNOWN, 3, "a LAW reference beyond the data given"},
                {"X+NULL", LAW_SYNTAX, 3, "bad syntax"},
                {nested, LAW_SYNTAX, 10001, "nested too deeply (limit 2,500)"},
                {"STEP(X,1)", LAW_STEP_NUM, 0, "a law refused its arguments"},
                {"NULL", 0, 0, nullptr}};
    for (auto& r : rows) {
        output_capture out;
        law_read_result got = read_law(r.text.c_str());
        EXPECT_STREQ(out.text(), "") << r.text.substr(0, 20);
        EXPECT_EQ(got.value, nullptr) << r.text.substr(0, 20);
        EXPECT_EQ(got.code, r.code) << r.text.substr(0, 20);
        EXPECT_EQ(got.column, r.column) << r.text.substr(0, 20);
        if (r.reason) {
            EXPECT_STREQ(got.reason, r.reason) << r.text.substr(0, 20);
        }
    }
}

// Texts of every shape, thousands of levels or arguments, read whole (pieces are read in
// place) and say where they fail.
TEST(ReadLaw, LongTextsOfEveryShape) {
    auto times = [](const char* s, int n) {
        std::string out;
        for (int k = 0; k < n; ++k) out += s;
        return out;
    };
    std::string balanced = "X";
    for (int k = 0; k < 12; ++k) balanced = "(" + balanced + "+" + balanced + ")";
    struct {
        std::string text;
        double value;  // at X = 0.5; or the column of the fault
        const char* reason;
    } rows[] = {
        {times("(", 2000) + "X" + times("+1)", 2000), 2000.5, nullptr},
        {times("SIN(MAX(X,", 1000) + "X" + times("))", 1000), std::sin(0.5), nullptr},
        {"MAX(" + times("1,", 9000) + "X)", 1.0, nullptr},
        {balanced, 2048.0, nullptr},
        {times("(", 2000) + "X+$" + times(")", 2000), 2003, "bad syntax"},
        {times("ABS(", 2600) + "X" + times(")", 2600), 10001, "nested too deeply (limit 2,500)"},
    };
    for (auto& r : rows) {
        law_read_result got = read_law(r.text.c_str());
        law_holder l(got.value);
        if (r.reason) {
            EXPECT_EQ(got.column, (int)r.value) << r.text.substr(0, 20);
            EXPECT_STREQ(got.reason, r.reason) << r.text.substr(0, 20);
        } else {
            ASSERT_TRUE(l) << r.text.substr(0, 20);
            EXPECT_DOUBLE_EQ(l->eval(0.5), r.value) << r.text.substr(0, 20);
        }
    }
}

TEST(ReadLaw, ReadsWhatStrToLawReads) {
    const char alphabet[] = "XYZ0123456789.+-*/^(),E SINCOSMAXPI";
    std::mt19937 rng(777);
    int read = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string s;
        for (int k = 1 + rng() % 20; k > 0; --k) s += alphabet[rng() % (sizeof alphabet - 1)];
        law_holder old;
        law_read_result now;
        {
            output_capture quiet;
            try {
                old.reset(str_to_law(s.c_str()));
            } catch (const vorx_exception&) {
            }
            now = read_law(s.c_str());
            law_holder keep(now.value);
            ASSERT_EQ(!!old, !!keep) << s;
            EXPECT_EQ(now.ok(), !!old) << s;
            if (!old) continue;
            ++read;
            EXPECT_TRUE(*old == *keep) << s;
            EXPECT_EQ(text_of(old.get()), text_of(keep.get())) << s;
        }
    }
    EXPECT_GT(read, 300);
}
