// The guided showcase behind `lawtool demo` (and `make demo`).  Every step runs a real
// command line through lawtool_run and shows it as it would be typed, so the transcript
// is exactly what the user gets by typing the same commands.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "lawutil/global_names.hpp"
#include "lawutil/law_base.hpp"
#include "tools/lawtool/lawtool.hpp"

namespace {

struct step {
    const char* needs;  // a law symbol the step needs, or null
    const char* note;   // shown before the command, or null
    std::vector<std::string> args;
};

struct section {
    const char* title;
    std::vector<step> steps;
};

// The library grows family by family: a step whose law is not registered yet is left out
// rather than shown failing.
bool has_symbol(const char* symbol) {
    for (law_list* p = law_list::head(); p; p = p->fnext())
        if (std::string(p->fthis()->symbol(law_symbol_default)) == symbol) return true;
    return false;
}

// The argument as a POSIX shell would need it typed.
std::string shell_quoted(const std::string& arg) {
    bool plain = !arg.empty();
    for (char c : arg)
        if (!std::isalnum((unsigned char)c) && !std::strchr("._,:/=+-", c)) plain = false;
    if (plain) return arg;
    std::string q = "'";
    for (char c : arg) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

const std::vector<section>& tour() {
    static const std::vector<section> sections = {
        {"Reading and printing",
         {{nullptr, nullptr, {"print", "x^2+sin(x)"}},
          {nullptr, nullptr, {"print", "x^2+sin(x)", "--maple"}}}},
        {"Evaluating: 16 significant digits, one line per point",
         {{nullptr, nullptr, {"eval", "x^2+sin(x)", "0.5", "1"}},
          {nullptr,
           "a law of two inputs takes points with two coordinates",
           {"eval", "x*y+1", "2,3"}},
          {nullptr, "a CSV table over a range", {"eval", "x^2+sin(x)", "--range", "0:1:5"}}}},
        {"Differentiating",
         {{nullptr, nullptr, {"diff", "x^2+sin(x)"}},
          {nullptr, nullptr, {"diff", "x^2+sin(x)", "--order", "2", "--at", "0.5"}},
          {nullptr, nullptr, {"diff", "x^2*y", "--var", "y"}}}},
        {"Simplifying",
         {{nullptr, nullptr, {"simplify", "0*y + x*3 + 2^3"}},
          {nullptr,
           "the trace shows each rule as it fires",
           {"simplify", "x*3+0", "--trace", "1"}}}},
        {"Inspecting", {{nullptr, nullptr, {"info", "x^2+sin(x)"}}}},
        {"Vector laws",
         {{"VEC", nullptr, {"eval", "vec(cos(t),sin(t),t)", "0", "pi/2"}},
          {"VEC", nullptr, {"diff", "vec(cos(t),sin(t),t)"}},
          {"VEC", nullptr, {"print", "vec(cos(t),sin(t),t)", "--maple"}}}},
        {"Errors: a message, a non-zero exit status, and nothing else",
         {{"LN", "outside the domain of a function", {"eval", "ln(x)", "-1"}},
          {nullptr, "a text that does not read", {"eval", "x + $", "1"}},
          {nullptr, "a point that does not fit the law", {"eval", "x*y", "1"}}}},
    };
    return sections;
}

}  // namespace

int run_demo(const tool_streams& io) {
    std::fputs(
        "lawtool demo: a short tour of the command-line front end of lawutil.\n"
        "Each command below runs exactly as shown; type it yourself to try variations.\n",
        io.out);
    for (const section& s : tour()) {
        std::vector<const step*> shown;
        for (const step& st : s.steps)
            if (!st.needs || has_symbol(st.needs)) shown.push_back(&st);
        if (shown.empty()) continue;
        std::fprintf(io.out, "\n== %s\n", s.title);
        for (const step* st : shown) {
            if (st->note) std::fprintf(io.out, "\n# %s\n", st->note);
            std::string line = "$ lawtool";
            for (const std::string& a : st->args) line += " " + shell_quoted(a);
            std::fprintf(io.out, "%s%s\n", st->note ? "" : "\n", line.c_str());
            std::fflush(io.out);
            // Errors go to the same stream, so the transcript reads in order.
            int status = lawtool_run(st->args, tool_streams{io.out, io.out});
            if (status != status_ok) std::fprintf(io.out, "[exit status %d]\n", status);
        }
    }
    std::fputs("\nMore: lawtool --help, lawtool COMMAND --help.\n", io.out);
    return status_ok;
}
