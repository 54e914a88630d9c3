#include "base/d3_stream.hpp"

#include <locale.h>

#include <charconv>
#include <clocale>
#include <cstdlib>

namespace vorx {

D3_ostream& D3_ostream::operator<<(int v) {
    std::fprintf(fp_, "%d ", v);
    return *this;
}

D3_ostream& D3_ostream::operator<<(double v) {
    // Shortest text that reads back exactly, with a '.' whatever the locale.
    char buf[40];
    std::to_chars_result r = std::to_chars(buf, buf + sizeof buf - 1, v);
    *r.ptr = '\0';
    std::fprintf(fp_, "%s ", buf);
    return *this;
}

D3_ostream& D3_ostream::operator<<(const char* s) {
    std::fprintf(fp_, "%s ", s ? s : "");
    return *this;
}

D3_istream& D3_istream::operator>>(int& v) {
    if (ok_ && std::fscanf(fp_, "%d", &v) != 1) ok_ = false;
    return *this;
}

D3_istream& D3_istream::operator>>(double& v) {
    char word[64];
    read_word(word, sizeof word);
    if (ok_) {
        char* end = nullptr;
        static locale_t c_locale = newlocale(LC_ALL_MASK, "C", (locale_t)0);
        v = strtod_l(word, &end, c_locale);
        if (end == word) ok_ = false;
    }
    return *this;
}

D3_istream& D3_istream::read_word(char* buf, int size) {
    if (size < 1) return *this;
    buf[0] = '\0';
    int c = std::fgetc(fp_);
    while (c == ' ' || c == '\n' || c == '\t' || c == '\r') c = std::fgetc(fp_);
    int n = 0;
    while (c != EOF && c != ' ' && c != '\n' && c != '\t' && c != '\r') {
        if (n < size - 1) buf[n++] = (char)c;
        c = std::fgetc(fp_);
    }
    buf[n] = '\0';
    if (n == 0) ok_ = false;
    return *this;
}

}  // namespace vorx
