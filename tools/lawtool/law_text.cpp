#include "tools/lawtool/law_text.hpp"

#include <cctype>
#include <cstring>

#include "base/output.hpp"
#include "lawutil/law_util.hpp"
#include "tools/lawtool/lawtool.hpp"

namespace {

bool starts_with(const std::string& s, size_t at, const char* prefix) {
    return s.compare(at, std::strlen(prefix), prefix) == 0;
}

bool is_digit(char c) {
    return std::isdigit((unsigned char)c) != 0;
}
bool is_upper(char c) {
    return std::isupper((unsigned char)c) != 0;
}

// Index just past the last character the reader keeps (0 for a blank text).
size_t text_end(const std::string& text) {
    size_t end = text.size();
    while (end > 0 && std::strchr(" \n\t", text[end - 1])) --end;
    return end;
}

}  // namespace

normal_text normalise_law_text(const std::string& text) {
    // The reader's steps, kept in step with it: upper-case and drop white space, then
    // make implied products explicit.
    std::string raw;
    std::vector<size_t> raw_origin;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == ' ' || c == '\n' || c == '\t') continue;
        raw += (char)std::toupper((unsigned char)c);
        raw_origin.push_back(i);
    }
    normal_text out;
    for (size_t i = 0; i < raw.size(); ++i) {
        char c = raw[i];
        if (i > 0 && is_digit(raw[i - 1])) {
            char next = i + 1 < raw.size() ? raw[i + 1] : '\0';
            // 2E-3: an exponent.
            bool exponent = c == 'E' && (next == '+' || next == '-');
            // 2*E-3 is read as the number 2E-3.
            if (!exponent && c == '*' && next == 'E' && i + 3 < raw.size() &&
                (raw[i + 2] == '+' || raw[i + 2] == '-') && is_digit(raw[i + 3]))
                continue;
            // 2X is 2*X, but 2OR, 2AND and 2O... are left alone.
            if (!exponent && is_upper(c) && c != 'O' && !starts_with(raw, i, "AND") &&
                !starts_with(raw, i, "OR")) {
                out.text += '*';
                out.origin.push_back(raw_origin[i]);
            }
        }
        out.text += c;
        out.origin.push_back(raw_origin[i]);
    }
    return out;
}

size_t locate_failure(const std::string& text, const std::string& rest) {
    if (rest.empty()) return text_end(text);
    normal_text n = normalise_law_text(text);
    // The reader reports the rest of the piece it was reading; an error found while
    // scanning the whole text is a suffix of it, and a piece is read after every piece
    // to its left has been, so the last occurrence is the best guess.
    size_t at = n.text.rfind(rest);
    if (at == std::string::npos) return text_end(text);
    return n.origin[at];
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
    return headline + "\n  " + shown + "\n  " + std::string(display_column(text, at), ' ') + "^";
}

law* read_law_text(const std::string& text) {
    law_holder l;
    std::string said;
    {
        output_capture capture;
        l.reset(str_to_law(text.c_str()));
        said = capture.text();
    }
    if (l) {
        // Whatever else the reader printed goes on to the caller's capture, which shows
        // it as a note.
        if (!said.empty()) vorx_printf("%s", said.c_str());
        return l.release();
    }

    static const char bad_syntax[] = "Error bad syntax at ";
    static const char not_given[] = "Error law ";
    size_t at = said.find(bad_syntax);
    if (at != std::string::npos) {
        size_t from = at + sizeof bad_syntax - 1;
        std::string rest = said.substr(from, said.find('\n', from) - from);
        size_t where = locate_failure(text, rest);
        size_t column = display_column(text, where) + 1;
        throw read_error(
            caret_message("lawtool: bad syntax at column " + std::to_string(column), text, where));
    }
    at = said.find(not_given);
    if (at != std::string::npos) {
        int n = std::atoi(said.c_str() + at + sizeof not_given - 1);
        normal_text norm = normalise_law_text(text);
        size_t ref = norm.text.find("LAW");
        size_t where = ref == std::string::npos ? 0 : norm.origin[ref];
        throw read_error(caret_message("lawtool: LAW" + std::to_string(n) +
                                           " was not given: the command line passes no data "
                                           "arguments",
                                       text, where));
    }
    throw read_error("lawtool: '" + text + "' reads as no law");
}

std::string law_text(const law* l, law_symbol_type type) {
    char* s = l->string(type);
    std::string text = s ? s : "";
    VORX_FREE(s);
    return text;
}
