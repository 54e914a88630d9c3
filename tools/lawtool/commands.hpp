// The subcommands of lawtool.  Each reads its law, does its work and writes to io.out.
// Failures are thrown: usage_error (exit 2), read_error (exit 1) and the library's
// vorx_exception (exit 1); the caller reports them.
#pragma once

#include <string>
#include <vector>

#include "lawutil/global_names.hpp"
#include "tools/lawtool/lawtool.hpp"

struct eval_options {
    std::string law;
    std::vector<std::string> points;
    std::string range;  // "A:B:N", empty when not given
};
// Each output at each POINT, one line per point, values separated by a space; or, with
// a range, a CSV table whose header names the inputs and the outputs (F, or F1, F2, ...).
void run_eval(const eval_options& o, const tool_streams& io);

struct print_options {
    std::string law;
    bool maple = false;
    bool force = false;  // exit 0 even when the Maple text holds what Maple cannot read
};
// The law's text; with --maple, a text that Maple cannot read is printed, then refused
// with a warning on io.err (exit 1) unless --force.
void run_print(const print_options& o, const tool_streams& io);

struct simplify_options {
    std::string law;
    int level = 1;
    int trace = 0;
};
// The simplifier's trace (when asked for) exactly as the library prints it, then the
// simplified law on a line of its own.
void run_simplify(const simplify_options& o, const tool_streams& io);

struct diff_options {
    std::string law;
    std::string var = "0";
    int order = 1;
    std::string at;  // a POINT, empty when not given
};
// The derivative law; with a POINT, its value there on the next line.
void run_diff(const diff_options& o, const tool_streams& io);

struct info_options {
    std::string law;
};
// Text, dimensions, classification, node count and the tree.
void run_info(const info_options& o, const tool_streams& io);

// Every function, operator and constant the reader knows, from the registry: name, kind,
// number of arguments, meaning and the domain outside which it raises an error.
void run_functions(const tool_streams& io);

// ---- numerical commands (numeric.cpp, plot.cpp).  A and B are texts read as POINTs of
// one coordinate, so constants such as pi/2 serve as ends.

struct roots_options {
    std::string law, a, b;
    bool json = false;
    bool prescribed = false;  // the library's Nroot instead of the classified search
    int max_evaluations = 20000;
};
// Every root, pole and jump on [A, B], one a line: position and kind.
void run_roots(const roots_options& o, const tool_streams& io);

struct extrema_options {
    std::string law, a, b;
    bool json = false;
    bool prescribed = false;  // the library's Nmax and Nmin only
};
// The local extrema inside [A, B] and the global ones over it (ends included).
void run_extrema(const extrema_options& o, const tool_streams& io);

struct integrate_options_cli {
    std::string law, a, b;
    bool json = false;
    bool romberg = false;  // Nintegrate, the larger tolerance its stopping difference
    double rel_tol = 1e-10;
    double abs_tol = 1e-14;
    int max_evaluations = 20000;
};
// The integral over [A, B] with its error estimate, evaluations and status.
void run_integrate(const integrate_options_cli& o, const tool_streams& io);

struct plot_options {
    std::string law, a, b;
    std::string output;  // file name, "-" for stdout
    bool json = false;
    bool roots = false;
    bool extrema = false;
    int width = 640, height = 400;
};
// An SVG plot of the law over [A, B].
void run_plot(const plot_options& o, const tool_streams& io);
