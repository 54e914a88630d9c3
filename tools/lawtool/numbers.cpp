#include "tools/lawtool/numbers.hpp"

#include <cctype>
#include <charconv>
#include <cstring>

#include "base/output.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/law_base.hpp"
#include "lawutil/law_util.hpp"
#include "tools/lawtool/lawtool.hpp"

std::string format_number(double value) {
    // to_chars is the C locale's "%.16g" by definition, so a host locale with a decimal
    // comma can never reach the numbers that scripts read back.
    char buf[64];
    std::to_chars_result r =
        std::to_chars(buf, buf + sizeof buf, value, std::chars_format::general, 16);
    return std::string(buf, r.ptr);
}

std::string format_values(const std::vector<double>& values, const char* separator) {
    std::string s;
    for (size_t i = 0; i < values.size(); ++i) {
        if (i) s += separator;
        s += format_number(values[i]);
    }
    return s;
}

namespace {

// The number that is the whole of `text` ("+" allowed in front, as the shell user writes
// it; "inf" and "nan" too), or a failure that tells a number out of range apart.
std::errc read_number(const std::string& text, double& value) {
    const char* first = text.c_str();
    const char* last = first + text.size();
    if (first != last && *first == '+') {
        ++first;  // from_chars takes no '+', and '+-1' is no number
        if (first != last && *first == '-') return std::errc::invalid_argument;
    }
    std::from_chars_result r = std::from_chars(first, last, value, std::chars_format::general);
    if (r.ec == std::errc() && r.ptr != last) return std::errc::invalid_argument;
    return r.ec;
}

[[noreturn]] void refuse_coordinate(const std::string& what, const std::string& point, size_t at) {
    throw usage_error("bad POINT '" + point + "' at column " + std::to_string(at + 1) + ": " +
                      what);
}

// A constant coordinate such as PI/2, -SQRT(2) or MAX(1,3), checked strictly before the
// reader sees it, since the reader drops what it cannot use ('1 2' would read as 12,
// '2(3)' as 2, '1+' as 1).  Recursive descent over
//   sum := product (('+'|'-') product)*      product := unary (('*'|'/') unary)*
//   unary := ('+'|'-') unary | power         power := primary ('^' unary)?
//   primary := number | name | name '(' sum (',' sum)* ')' | '(' sum ')'
// Only the form is checked here; what the names mean is the reader's business.
class coordinate_form {
  public:
    coordinate_form(const std::string& point, size_t from, size_t to)
        : s_(point), i_(from), end_(to) {}

    void check() {
        sum();
        skip();
        if (i_ < end_) refuse_coordinate("unexpected '" + s_.substr(i_, 1) + "'", s_, i_);
    }

  private:
    const std::string& s_;
    size_t i_, end_;

    void skip() {
        while (i_ < end_ && s_[i_] == ' ') ++i_;
    }
    bool take(char c) {
        skip();
        if (i_ < end_ && s_[i_] == c) return ++i_, true;
        return false;
    }
    void sum() {
        do product();
        while (take('+') || take('-'));
    }
    void product() {
        do unary();
        while (take('*') || take('/'));
    }
    void unary() {
        if (take('+') || take('-')) return unary();
        primary();
        if (take('^')) unary();
    }
    void primary() {
        skip();
        if (i_ >= end_) refuse_coordinate("a number or a constant is missing", s_, i_);
        char c = s_[i_];
        if (c == '(') {
            ++i_;
            sum();
            if (!take(')')) refuse_coordinate("')' is missing", s_, i_);
        } else if (std::isdigit((unsigned char)c) || c == '.') {
            size_t at = i_;
            while (i_ < end_ && (std::isdigit((unsigned char)s_[i_]) || s_[i_] == '.')) ++i_;
            if (i_ < end_ && (s_[i_] == 'e' || s_[i_] == 'E')) {
                ++i_;
                if (i_ < end_ && (s_[i_] == '+' || s_[i_] == '-')) ++i_;
                while (i_ < end_ && std::isdigit((unsigned char)s_[i_])) ++i_;
            }
            double v;
            std::errc e = read_number(s_.substr(at, i_ - at), v);
            if (e == std::errc::result_out_of_range)
                refuse_coordinate("'" + s_.substr(at, i_ - at) + "' is out of range", s_, at);
            if (e != std::errc())
                refuse_coordinate("'" + s_.substr(at, i_ - at) + "' is no number", s_, at);
        } else if (std::isalpha((unsigned char)c)) {
            while (i_ < end_ && std::isalnum((unsigned char)s_[i_])) ++i_;
            if (take('(')) {
                do sum();
                while (take(','));
                if (!take(')')) refuse_coordinate("')' is missing", s_, i_);
            }
        } else {
            refuse_coordinate(
                "a number or a constant is expected here, not '" + std::string(1, c) + "'", s_, i_);
        }
    }
};

// A constant law text such as PI/2 or SQRT(2), read quietly: whatever the reader prints
// about a text that does not read is replaced by one clear message.
double read_constant(const std::string& text, const std::string& point) {
    law_holder l;
    {
        output_capture quiet;
        l.reset(str_to_law(text.c_str()));
    }
    if (!l || l->take_dim() != 0 || l->return_dim() != 1)
        throw usage_error("'" + text + "' in POINT '" + point +
                          "' is neither a number nor a constant such as PI/2");
    double none = 0.0;
    return l->evaluateM_R(&none);
}

// The coordinates of `text`, which is the part [from, to) of `whole` (a range holds two
// points); columns in messages count in `whole`.
std::vector<double> parse_coordinates(const std::string& whole, size_t from, size_t to) {
    std::string text = whole.substr(from, to - from);
    if (text.empty()) throw usage_error("empty POINT in '" + whole + "'");
    std::vector<double> point;
    int depth = 0;
    size_t start = 0;
    for (size_t i = 0; i <= text.size(); ++i) {
        char c = i < text.size() ? text[i] : ',';
        if (c == '(') ++depth;
        if (c == ')') --depth;
        if (c != ',' || depth > 0) continue;
        std::string piece = text.substr(start, i - start);
        if (piece.empty()) throw usage_error("missing coordinate in POINT '" + text + "'");
        double v;
        std::errc e = read_number(piece, v);
        if (e == std::errc::result_out_of_range)
            refuse_coordinate("'" + piece + "' is out of range", whole, from + start);
        if (e != std::errc()) {
            coordinate_form(whole, from + start, from + i).check();
            v = read_constant(piece, text);
        }
        point.push_back(v);
        start = i + 1;
    }
    return point;
}

}  // namespace

std::vector<double> parse_point(const std::string& text) {
    return parse_coordinates(text, 0, text.size());
}

std::vector<double> point_range::at(long i) const {
    if (i == 0) return from;
    if (i == count - 1) return to;
    std::vector<double> p(from.size());
    for (size_t k = 0; k < p.size(); ++k)
        p[k] = from[k] + (to[k] - from[k]) * (double)i / (double)(count - 1);
    return p;
}

point_range parse_range(const std::string& text) {
    size_t first = text.find(':');
    size_t second = first == std::string::npos ? first : text.find(':', first + 1);
    if (second == std::string::npos || text.find(':', second + 1) != std::string::npos)
        throw usage_error("--range takes A:B:N, not '" + text + "'");
    point_range r;
    r.from = parse_coordinates(text, 0, first);
    r.to = parse_coordinates(text, first + 1, second);
    if (r.from.size() != r.to.size())
        throw usage_error("the ends of --range '" + text +
                          "' differ in their number of coordinates");
    std::string n = text.substr(second + 1);
    const char* last = n.c_str() + n.size();
    std::from_chars_result res = std::from_chars(n.c_str(), last, r.count);
    if (n.empty() || res.ec != std::errc() || res.ptr != last || r.count < 1)
        throw usage_error("the N of --range '" + text + "' must be a whole number of at least 1");
    return r;
}

int parse_variable(const std::string& text) {
    std::string v;
    for (char c : text) v += (char)std::toupper((unsigned char)c);
    const char* s = v.c_str();
    auto digits_only = [](const char* p) {
        if (!*p) return false;
        for (; *p; ++p)
            if (!std::isdigit((unsigned char)*p)) return false;
        return true;
    };
    long index = -1;
    if (digits_only(s)) {
        index = std::strtol(s, nullptr, 10);
    } else if (std::isupper((unsigned char)s[0]) && s[1] == '\0') {
        if (std::strchr("XUT", s[0])) index = 0;
        if (std::strchr("YV", s[0])) index = 1;
        if (s[0] == 'Z') index = 2;
    } else if (std::isupper((unsigned char)s[0]) && digits_only(s + 1)) {
        // The reader's letter-and-number variables: X4 is input 3.
        long n = std::strtol(s + 1, nullptr, 10);
        if (n >= 1) index = n - 1;
    }
    if (index < 0 || index > 1000)
        throw usage_error(
            "--var takes an input index (0 for X) or a variable name (X, Y, Z, "
            "X4, ...), not '" +
            text + "'");
    return (int)index;
}
