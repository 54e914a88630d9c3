// lawtool functions: every name the reader knows, listed from the registry of prototypes
// itself, so the list cannot drift from the library.  The meaning is the class name
// without its suffix; the domain is the library's own message for the error the law
// raises outside it (LAW_<SYMBOL>), so a law with no such message has none listed.
#include <algorithm>
#include <cstring>

#include "base/errors.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/internal_law.hpp"
#include "lawutil/main_law_err.hpp"
#include "tools/lawtool/commands.hpp"

namespace {

// "operator", "constant", "function" or "data function" (its arguments are geometry).
const char* kind_of(const law* l) {
    const char* sym = l->symbol(law_symbol_default);
    if (l->isa(constant_law::id())) return "constant";
    if (l->isa(binary_law::id()) || !std::isalpha((unsigned char)sym[0])) return "operator";
    if (l->isa(unary_data_law::id()) || l->isa(multiple_data_law::id())) return "data function";
    return "function";
}

// The number of arguments: fixed for the unary and binary bases, any number otherwise.
const char* arity_of(const law* l) {
    if (l->isa(constant_law::id())) return "0";
    if (l->isa(unary_law::id())) return "1";
    if (l->isa(binary_law::id())) return "2";
    return "n";
}

// "natural_log_law" -> "natural log".
std::string meaning_of(const law* l) {
    std::string s = l->class_name();
    if (s.size() > 4 && s.compare(s.size() - 4, 4, "_law") == 0) s.resize(s.size() - 4);
    std::replace(s.begin(), s.end(), '_', ' ');
    return s;
}

// The domain stated by the message LAW_<SYMBOL> ("Out of the domain of the tan
// x!=pi*(n+.5)" gives "tan x!=pi*(n+.5)"), or "-".
std::string domain_of(const law* l) {
    std::string code = std::string("LAW_") + l->symbol(law_symbol_default);
    static const char lead[] = "Out of the domain of the ";
    for (int i = 0; i < lawutil_main_law_errmod.count(); ++i) {
        const message_list* m = lawutil_main_law_errmod.entry(i);
        if (m && m->code_name && code == m->code_name &&
            std::strncmp(m->message, lead, sizeof lead - 1) == 0)
            return m->message + sizeof lead - 1;
    }
    return "-";
}

std::string padded(std::string s, size_t width) {
    if (s.size() < width) s.resize(width, ' ');
    return s;
}

}  // namespace

void run_functions(const tool_streams& io) {
    std::string out = padded("NAME", 13) + padded("KIND", 15) + padded("ARGS", 6) +
                      padded("MEANING", 27) + "RAISES OUTSIDE\n";
    for (const law_list* p = law_list::head(); p; p = p->fnext()) {
        const law* l = p->fthis();
        const char* sym = l->symbol(law_symbol_default);
        if (!sym || !*sym) continue;
        std::string meaning = meaning_of(l), domain = domain_of(l);
        // The message names the function again: "natural log x>0" lists as "x>0".
        if (domain.compare(0, meaning.size() + 1, meaning + " ") == 0)
            domain.erase(0, meaning.size() + 1);
        out += padded(sym, 13) + padded(kind_of(l), 15) + padded(arity_of(l), 6) +
               padded(meaning, 27) + domain + "\n";
    }
    std::fputs(out.c_str(), io.out);
}
