// Numbers in law text are read and printed with a '.' whatever the process's locale: a
// host that switches to a locale with a decimal comma must still read '2.5' as 2.5 and
// get "2.5" back.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <string>

#include "base/d3_stream.hpp"
#include "base/output.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

struct number_row {
    const char* text;   // as read
    double value;       // its value
    const char* shown;  // as printed
};

void PrintTo(const number_row& r, std::ostream* os) {
    *os << "'" << r.text << "'";
}

// Switches the whole process to the first locale with a decimal comma that exists, and
// back after the test.
class CommaLocaleLaw : public testing::Test {
  protected:
    void SetUp() override {
        previous_ = std::setlocale(LC_ALL, nullptr);
        for (const char* n : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8"})
            if (std::setlocale(LC_ALL, n)) {
                name_ = n;
                break;
            }
        if (!name_)
            GTEST_SKIP() << "no locale with a decimal comma here (scripts/setup-deps.sh "
                            "generates de_DE.UTF-8)";
        // The C library itself must now write a comma, or the test proves nothing.
        char probe[16];
        std::snprintf(probe, sizeof probe, "%.1f", 2.5);
        ASSERT_STREQ(probe, "2,5") << name_;
    }
    void TearDown() override { std::setlocale(LC_ALL, previous_.c_str()); }

    std::string previous_;
    const char* name_ = nullptr;
};

class CommaLocale : public CommaLocaleLaw, public testing::WithParamInterface<number_row> {};

}  // namespace

TEST_P(CommaLocale, NumbersReadAndPrintWithAPoint) {
    const number_row& row = GetParam();
    output_capture quiet;
    law_holder l(str_to_law(row.text));
    ASSERT_TRUE(l) << row.text << ": " << quiet.text();
    EXPECT_EQ(l->evaluateM_R(nullptr), row.value) << row.text;
    EXPECT_EQ(text_of(l.get()), row.shown) << row.text;
    EXPECT_EQ(text_of(l.get(), law_symbol_maple), row.shown) << row.text;
    // Constants built in code print the same way.
    law_holder c(VORX_NEW constant_law(row.value));
    EXPECT_EQ(text_of(c.get()), row.shown);
    char* s = number_string(row.value);
    EXPECT_STREQ(s, row.shown);
    VORX_FREE(s);
}

INSTANTIATE_TEST_SUITE_P(Numbers, CommaLocale,
                         testing::Values(number_row{"2.5", 2.5, "2.5"},
                                         number_row{"0.1", 0.1, "0.1"},
                                         number_row{".5", 0.5, "0.5"},
                                         number_row{"1.5E-3", 0.0015, "0.0015"},
                                         number_row{"12345.678", 12345.678, "12345.678"},
                                         number_row{"2.5E+20", 2.5e20, "2.5e+20"}));

TEST_F(CommaLocaleLaw, AWholeLawReadsPrintsAndEvaluatesAlike) {
    output_capture quiet;
    // A comma in a number is an argument separator, never a decimal separator.
    law_holder l(str_to_law("x*2.5+max(0.25,1,5)"));
    ASSERT_TRUE(l) << quiet.text();
    EXPECT_EQ(text_of(l.get()), "X*2.5+MAX(0.25,1,5)");
    double x = 2.0;
    EXPECT_EQ(l->evaluateM_R(&x), 10.0);
    law_holder back(str_to_law(text_of(l.get()).c_str()));
    ASSERT_TRUE(back);
    EXPECT_TRUE(*back == *l);
}

// Data objects are saved and restored through these streams: a file written under one
// locale must read back under any other.
TEST_F(CommaLocaleLaw, SavedNumbersUseAPoint) {
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    D3_ostream out(f);
    out << 2.5;
    std::fputs(" 0.125", f);
    std::rewind(f);
    char written[32] = {};
    ASSERT_EQ(std::fscanf(f, "%31s", written), 1);
    EXPECT_STREQ(written, "2.5");
    D3_istream in(f);
    double v = 0.0;
    in >> v;
    EXPECT_TRUE(in.good());
    EXPECT_EQ(v, 0.125);
    std::fclose(f);
}
