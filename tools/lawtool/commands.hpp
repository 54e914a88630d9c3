// The subcommands of lawtool.  Each reads its law, does its work and writes to io.out.
// Failures are thrown: usage_error (exit 2), read_error (exit 1) and the library's
// vorx_exception (exit 1); the caller reports them.
#pragma once

#include <string>
#include <vector>

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
