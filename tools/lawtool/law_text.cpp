#include "tools/lawtool/law_text.hpp"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "base/errors.hpp"
#include "base/output.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/internal_law.hpp"
#include "lawutil/law_data.hpp"
#include "lawutil/law_util.hpp"
#include "lawutil/main_law_err.hpp"
#include "tools/lawtool/lawtool.hpp"

namespace {

bool is_digit(char c) {
    return std::isdigit((unsigned char)c) != 0;
}

// Index just past the last character the reader keeps (0 for a blank text).
size_t text_end(const std::string& text) {
    size_t end = text.size();
    while (end > 0 && std::strchr(" \n\t", text[end - 1])) --end;
    return end;
}

bool lenient = false;

}  // namespace

void set_lenient_reading(bool on) {
    lenient = on;
}

size_t display_column(const std::string& text, size_t at) {
    size_t column = 0;
    // One column per character: UTF-8 continuation bytes take none.
    for (size_t i = 0; i < text.size() && i < at; ++i)
        if (((unsigned char)text[i] & 0xC0) != 0x80) ++column;
    return column;
}

std::string caret_message(const std::string& headline, const std::string& text, size_t at) {
    std::string shown = text;
    for (char& c : shown)
        if (c == '\n' || c == '\t' || c == '\r') c = ' ';
    // A long text is shown as a window of about 60 columns around the fault, cut at
    // character boundaries and marked "..." where it was cut.
    const size_t half = 30;
    size_t from = 0, to = shown.size();
    if (display_column(shown, shown.size()) > 2 * half + 10) {
        auto char_start = [&](size_t i) {
            while (i > 0 && i < shown.size() && ((unsigned char)shown[i] & 0xC0) == 0x80) --i;
            return i;
        };
        from = at > half ? char_start(at - half) : 0;
        to = std::min(shown.size(), char_start(std::min(shown.size(), at + half)));
    }
    std::string lead = from > 0 ? "..." : "";
    std::string window = lead + shown.substr(from, to - from) + (to < shown.size() ? "..." : "");
    size_t column = lead.size() + display_column(shown.substr(from), at - from);
    return headline + "\n  " + window + "\n  " + std::string(column, ' ') + "^";
}

namespace {

// The byte of `text` at which character `column` (from 1) starts, or the text's end.
size_t byte_of_column(const std::string& text, int column) {
    size_t at = 0;
    for (int c = 1; at < text.size(); ++at)
        if (((unsigned char)text[at] & 0xC0) != 0x80 && c++ == column) return at;
    return text.size();
}

// The number n of a reference LAWn (or a data symbol and n) that starts at byte `at`, as
// the reader takes it: white space dropped, digits after the letters, none meaning 1.
long reference_number(const std::string& text, size_t at) {
    std::string ref;
    for (size_t i = at; i < text.size(); ++i)
        if (!std::strchr(" \n\t", text[i])) ref += text[i];
    size_t i = 0;
    while (i < ref.size() && std::isalpha((unsigned char)ref[i])) ++i;
    if (i == ref.size() || !is_digit(ref[i])) return 1;  // LAW alone is LAW1
    long n = 0;
    for (; i < ref.size() && is_digit(ref[i]); ++i)
        n = std::min(n * 10 + (ref[i] - '0'), 1000000000L);
    return n;
}

}  // namespace

law* read_law_text(const std::string& text) {
    if (!lenient) check_law_text(text);
    law_read_result r = read_law(text.c_str());
    if (r.ok() && r.value) return r.value;
    if (r.ok() || std::strcmp(r.reason, "a part of the text names no law") == 0)
        throw read_error("lawtool: '" + text + "' reads as no law");
    // A law that refused its arguments (STEP(X,1)) is reported by its own code.
    if (r.column == 0) sys_error(r.code);
    size_t where = byte_of_column(text, r.column);
    std::string at = " at column " + std::to_string(r.column);
    if (r.code == LAW_DATA_UNKNOWN)
        throw read_error(caret_message("lawtool: LAW" +
                                           std::to_string(reference_number(text, where)) +
                                           " was not given: the command line passes no data "
                                           "arguments",
                                       text, where));
    throw read_error(caret_message("lawtool: " + std::string(r.reason) + at, text, where));
}

std::string law_text(const law* l, law_symbol_type type) {
    char* s = l->string(type);
    std::string text = s ? s : "";
    VORX_FREE(s);
    return text;
}

// ---- the strict reading: what the reader accepts but the writer did not mean
//
// One scan over the user's own text, token by token (white space kept, so that a space
// between two names is seen), with a stack of open parentheses.  Each rule below refuses
// a pattern that the reader turns into something else without a word; texts the reader
// refuses itself are left to it, so that its own message stays the one shown.

namespace {

bool is_alpha(char c) {
    return std::isalpha((unsigned char)c) != 0;
}
bool is_alnum(char c) {
    return std::isalnum((unsigned char)c) != 0;
}
bool is_space(char c) {
    return c == ' ' || c == '\n' || c == '\t';
}

std::string upper(std::string s) {
    for (char& c : s) c = (char)std::toupper((unsigned char)c);
    return s;
}

// The symbols of the registered prototypes that are names (not operators such as "+").
std::vector<std::string> known_names() {
    std::vector<std::string> names;
    for (const law_list* p = law_list::head(); p; p = p->fnext()) {
        const char* sym = p->fthis()->symbol(law_symbol_default);
        if (sym && is_alpha(sym[0]) && std::find(names.begin(), names.end(), sym) == names.end())
            names.push_back(sym);
    }
    return names;
}

bool all_digits(const std::string& s, size_t from) {
    if (from >= s.size()) return false;
    for (size_t i = from; i < s.size(); ++i)
        if (!std::isdigit((unsigned char)s[i])) return false;
    return true;
}

// A name the reader takes whole: a variable (X, Y, Z, T, U, V, or a letter and a number),
// a reference LAWn or a data symbol and a number, or a registered symbol.
bool known_name(const std::string& name) {
    if (name.size() == 1 && std::strchr("XYZTUV", name[0])) return true;
    if (name == "NULL") return true;  // the reader's word for no law
    if (all_digits(name, 1)) return true;
    if (name.compare(0, 3, "LAW") == 0 && (name.size() == 3 || all_digits(name, 3))) return true;
    for (law_data_list* d = law_data_list::head(); d; d = d->fnext()) {
        const char* sym = d->fthis()->symbol(law_symbol_default);
        size_t k = std::strlen(sym);
        if (k && name.compare(0, k, sym) == 0 && all_digits(name, k)) return true;
    }
    std::vector<std::string> names = known_names();
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Levenshtein distance: d[i][j] = min(d[i-1][j]+1, d[i][j-1]+1, d[i-1][j-1]+(a_i != b_j)).
size_t edit_distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diag = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diag + (a[i - 1] != b[j - 1])});
            diag = up;
        }
    }
    return row[b.size()];
}

// The registered law of symbol `name` that satisfies `kind`, or null.
const law* registered(const std::string& name, int kind) {
    for (const law_list* p = law_list::head(); p; p = p->fnext()) {
        const char* sym = p->fthis()->symbol(law_symbol_default);
        if (sym && name == sym && p->fthis()->isa(kind)) return p->fthis();
    }
    return nullptr;
}

// A word operator: X AND Y, X OR Y, X MOD 2, F O G.
bool word_operator(const std::string& name) {
    return registered(name, binary_law::id()) != nullptr;
}

// A function of one argument that the reader applies to the name after it: SIN X and
// SINX read as SIN(X), as meant.
bool prefix_function(const std::string& name) {
    return registered(name, unary_law::id()) != nullptr;
}

// A name the reader takes as meant: a known name, or a prefix function and a known name.
bool reads_as_meant(const std::string& name) {
    if (known_name(name)) return true;
    for (size_t k = 1; k < name.size(); ++k)
        if (prefix_function(name.substr(0, k)) && known_name(name.substr(k))) return true;
    return false;
}

std::string with_near_names(const std::string& message, const std::string& name) {
    std::vector<std::string> near = nearest_names(upper(name));
    if (near.empty()) return message;
    std::string s = message + " (nearest known names: ";
    for (size_t i = 0; i < near.size(); ++i) s += (i ? ", " : "") + near[i];
    return s + ")";
}

[[noreturn]] void refuse(const std::string& what, const std::string& text, size_t at) {
    throw read_error(caret_message("lawtool: " + what, text, at));
}

enum token_kind { tk_none, tk_number, tk_name, tk_open, tk_close, tk_comma, tk_operator, tk_other };

}  // namespace

std::vector<std::string> nearest_names(const std::string& name) {
    std::vector<std::pair<size_t, std::string>> scored;
    // A name within a third of its length of edits (1 for short names, 2 from four
    // letters), or one that holds it; single letters suggest nothing.
    size_t limit = name.size() <= 3 ? 1 : std::max<size_t>(2, name.size() / 3);
    for (const std::string& known : known_names()) {
        size_t d = edit_distance(name, known);
        if (known.size() < 2 || d >= name.size()) continue;
        if (d <= limit || (name.size() >= 3 && known.find(name) != std::string::npos))
            scored.emplace_back(d, known);
    }
    std::stable_sort(scored.begin(), scored.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> out;
    for (size_t i = 0; i < scored.size() && i < 4; ++i) out.push_back(scored[i].second);
    return out;
}

void check_law_text(const std::string& text) {
    size_t n = text.size();
    size_t first = 0;
    while (first < n && is_space(text[first])) ++first;
    if (first == n) throw read_error("lawtool: the law is empty (the reader would read it as 0)");
    std::vector<size_t> open;  // positions of the unmatched '('
    token_kind prev = tk_none;
    size_t prev_at = 0, prev_end = 0;
    bool space_before = false;
    for (size_t i = first; i < n;) {
        char c = text[i];
        if (is_space(c)) {
            space_before = true;
            ++i;
            continue;
        }
        size_t at = i;
        token_kind kind;
        std::string word;
        if (std::isdigit((unsigned char)c) || c == '.') {
            kind = tk_number;
            while (i < n && (std::isdigit((unsigned char)text[i]) || text[i] == '.')) ++i;
            if (i + 1 < n && (text[i] == 'e' || text[i] == 'E')) {
                if (std::isdigit((unsigned char)text[i + 1])) {
                    size_t e = i + 1;
                    while (e < n && std::isdigit((unsigned char)text[e])) ++e;
                    std::string mantissa = text.substr(at, i - at),
                                digits = text.substr(i + 1, e - i - 1);
                    refuse("'" + text.substr(at, e - at) +
                               "' is no number for the reader, which reads " + mantissa + "*E" +
                               digits + " (E" + digits + " is an input): write " + mantissa + "e+" +
                               digits + " for the number, or use --lenient",
                           text, i);
                }
                if ((text[i + 1] == '+' || text[i + 1] == '-') && i + 2 < n &&
                    std::isdigit((unsigned char)text[i + 2])) {
                    i += 2;
                    while (i < n && std::isdigit((unsigned char)text[i])) ++i;
                }
            }
        } else if (is_alpha(c)) {
            kind = tk_name;
            while (i < n && (is_alnum(text[i]) || text[i] == '_')) ++i;
            if (i < n && text[i] == '?') ++i;  // PRIME?, INT? ...
            word = text.substr(at, i - at);
            if (word_operator(upper(word))) kind = tk_operator;
        } else {
            kind = c == '('                      ? tk_open
                   : c == ')'                    ? tk_close
                   : c == ','                    ? tk_comma
                   : std::strchr("+-*/^<>=!", c) ? tk_operator
                                                 : tk_other;
            ++i;
        }
        bool operand = kind == tk_number || kind == tk_name || kind == tk_open;
        // (X+1)(X-1), 2(X+1), (X+1)X: the reader keeps one side and drops the other,
        // except that a number before a name is an implied product (2X, 3 SIN(X)).
        if (prev == tk_close && operand)
            refuse(
                "nothing joins this to the group before it, and the reader would drop one "
                "of them: write * for a product",
                text, at);
        if (prev == tk_number && kind == tk_open)
            refuse(
                "a number before '(' is no product for the reader, which would drop the "
                "group: write * for a product",
                text, at);
        // X Y, SIN X: white space goes before the reader splits names, so XY reads as Y.
        if (space_before && prev == tk_name && (kind == tk_name || kind == tk_number) &&
            !prefix_function(upper(text.substr(prev_at, prev_end - prev_at))))
            refuse(
                "two names side by side read as one name that the reader splits: write * "
                "for a product or parentheses around a function's argument",
                text, at);
        if (space_before && prev == tk_number && kind == tk_number)
            refuse("two numbers side by side read as one: write * for a product", text, at);
        // X+, X+(), MAX(X,): an operand left out is read as 0.
        if (prev == tk_operator && (kind == tk_close || kind == tk_comma))
            refuse("an operand is missing after '" + text.substr(prev_at, prev_end - prev_at) +
                       "' (the reader would read it as 0)",
                   text, at);
        if (prev == tk_comma && (kind == tk_close || kind == tk_comma))
            refuse("an argument is missing (the reader would read it as 0)", text, at);
        if (kind == tk_name) {
            std::string name = upper(word);
            size_t next = i;
            while (next < n && is_space(text[next])) ++next;
            bool call = next < n && text[next] == '(';
            if (call && !known_name(name))
                refuse(with_near_names("unknown function '" + word + "'", word), text, at);
            if (!call && !reads_as_meant(name))
                refuse(
                    with_near_names("unknown name '" + word +
                                        "' (the reader reads a name it does not know in pieces): "
                                        "write * for a product or parentheses around a "
                                        "function's argument",
                                    word),
                    text, at);
        }
        if (kind == tk_open) open.push_back(at);
        if (kind == tk_close) {
            if (open.empty()) refuse("this ')' closes no '('", text, at);
            open.pop_back();
        }
        if (kind == tk_other) return;  // the reader's own message says more
        prev = kind;
        prev_at = at;
        prev_end = i;
        space_before = false;
    }
    if (!open.empty())
        refuse("this '(' is never closed (the reader would drop it)", text, open.back());
    if (prev == tk_operator)
        refuse("an operand is missing after '" + text.substr(prev_at, prev_end - prev_at) +
                   "' (the reader would read it as 0)",
               text, text_end(text));
}
