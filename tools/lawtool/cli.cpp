// The command line: CLI11 reads it, the commands do the work, and every failure ends
// here as a message on io.err and an exit status.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>

#include "base/errors.hpp"
#include "base/output.hpp"
#include "lawutil/global_names.hpp"
#include "tools/lawtool/commands.hpp"
#include "tools/lawtool/law_text.hpp"
#include "tools/lawtool/lawtool.hpp"

#ifndef LAWTOOL_VERSION
#define LAWTOOL_VERSION "unknown"
#endif

namespace {

struct command_usage {
    const char* name;
    const char* usage;
};

const command_usage usages[] = {
    {"eval", "lawtool eval LAW [POINT ...] [--range A:B:N]"},
    {"print", "lawtool print LAW [--maple] [--force]"},
    {"simplify", "lawtool simplify LAW [--level N] [--trace N]"},
    {"diff", "lawtool diff LAW [--var I] [--order N] [--at POINT]"},
    {"info", "lawtool info LAW"},
    {"roots", "lawtool roots LAW A B [--prescribed] [--json]"},
    {"extrema", "lawtool extrema LAW A B [--prescribed] [--json]"},
    {"integrate", "lawtool integrate LAW A B [--rel-tol E] [--abs-tol E] [--romberg] [--json]"},
    {"plot", "lawtool plot LAW A B -o FILE.svg [--roots] [--extrema] [--size WxH] [--json]"},
    {"functions", "lawtool functions"},
    {"demo", "lawtool demo"},
};

const command_usage* find_usage(const std::string& name) {
    for (const command_usage& u : usages)
        if (name == u.name) return &u;
    return nullptr;
}

void put(FILE* f, const std::string& s) {
    std::fputs(s.c_str(), f);
}

// The message, the usage of the command (or of every command) and where to read more.
int report_usage(const std::string& command, const std::string& message, const tool_streams& io) {
    const command_usage* u = find_usage(command);
    put(io.err, (u ? "lawtool " + command : std::string("lawtool")) + ": " + message + "\n");
    if (u) {
        put(io.err, std::string("usage: ") + u->usage + "\n");
    } else {
        const char* lead = "usage: ";
        for (const command_usage& each : usages) {
            put(io.err, std::string(lead) + each.usage + "\n");
            lead = "       ";
        }
    }
    put(io.err,
        "Run '" + (u ? "lawtool " + command : std::string("lawtool")) + " --help' for more.\n");
    return status_usage;
}

// Whole numbers >= 0 for --level, --trace and --order; CLI11's own range check would print
// its bound as a 300-digit number.
CLI::Validator whole_number() {
    return CLI::Validator(
        [](std::string& s) -> std::string {
            bool ok = !s.empty() && s.size() < 7 &&
                      std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
            return ok ? std::string() : "'" + s + "' is not a whole number >= 0";
        },
        "");
}

const char* const main_footer =
    "A LAW is a text such as 'x^2+sin(x)' or 'vec(cos(t),sin(t),t)' (case does not matter;\n"
    "X, Y, Z are the inputs 1 to 3, T and U also name X, V names Y).  A POINT gives one value\n"
    "per input, separated by commas: 0.5 or 0.5,1.2; a coordinate may also be a constant\n"
    "such as pi/2 (nothing else: '1 2' or '2(3)' is refused with the column of the fault).\n"
    "Put '--' before a LAW that begins with '-': lawtool eval -- -x 2.\n"
    "\n"
    "A LAW the reader would take otherwise than written is refused with what happened and\n"
    "how to write it: an empty text, '2(x+1)' or '(x+1)(x-1)' (write *), an unmatched\n"
    "parenthesis or a missing operand (read as 0), '1.5e3' (read as 1.5*E3: write 1.5e+3),\n"
    "'x y' or 'xy' (read as Y), an unknown function.  --lenient takes the reader's reading.\n"
    "\n"
    "Exit status: 0 success, 1 a law that does not read or an error while evaluating,\n"
    "2 a command line that does not make sense.";

const char* const eval_footer =
    "Prints each output with 16 significant digits, one line per POINT, the outputs of a\n"
    "law of several outputs separated by a space.  With --range, prints CSV: a header\n"
    "naming the inputs and the outputs (F, or F1, F2, ...), then one row per point.\n"
    "A POINT must give exactly one coordinate per input of the law.\n"
    "With --range, a point where the law raises an error gets nan for its outputs and a\n"
    "note on stderr, and the range goes on (exit 0).\n"
    "\n"
    "Examples:\n"
    "  lawtool eval 'x^2+sin(x)' 0.5 1\n"
    "  lawtool eval 'x*y' 2,3\n"
    "  lawtool eval 'sin(x)' --range 0:pi:5\n"
    "  lawtool eval 'x*y' --range 0,0:1,2:3";

const char* const print_footer =
    "Examples:\n"
    "  lawtool print 'x^2+sin(x)'            prints X^2+SIN(X)\n"
    "  lawtool print 'x^2+sin(x)' --maple    prints the same law for Maple\n"
    "\n"
    "With --maple, a text that Maple cannot read (a law with no Maple spelling, log[2]X)\n"
    "is printed with a warning and exit status 1, unless --force.";

const char* const simplify_footer =
    "Prints the simplified law; with --trace, the simplifier's trace first, as the library\n"
    "prints it.\n"
    "\n"
    "Examples:\n"
    "  lawtool simplify 'x*3+0'\n"
    "  lawtool simplify 'x*3+0' --trace 1";

const char* const diff_footer =
    "Prints the derivative law; with --at, its value at the POINT on the next line.\n"
    "\n"
    "Examples:\n"
    "  lawtool diff 'x^2+sin(x)'\n"
    "  lawtool diff 'x^2+sin(x)' --order 2 --at 0.5\n"
    "  lawtool diff 'x^2*y' --var y";

const char* const info_footer =
    "Prints the law's text, its numbers of inputs and outputs, whether it is constant,\n"
    "linear (its derivative in the first input is constant) and identically zero, its\n"
    "number of nodes, and its tree, one node a line with its class name.\n"
    "\n"
    "Example:\n"
    "  lawtool info 'x^2+sin(x)'";

const char* const roots_footer =
    "Prints every root of the law on [A, B] and every pole and jump where it changes sign,\n"
    "one a line in ascending order: the position and its kind (simple, even multiple, odd\n"
    "multiple, pole, jump, or everywhere to the end of a stretch where the law is zero),\n"
    "with the multiplicity when above 1.  A and B are numbers or constants such as pi/2.\n"
    "With --prescribed, the library's Nroot: positions where |f| < 1e-7, no kinds.\n"
    "Finding nothing is an answer: no lines, exit 0.\n"
    "\n"
    "Examples:\n"
    "  lawtool roots 'x^2-2' -2 2\n"
    "  lawtool roots 'tan(x)' -2 2 --json";

const char* const extrema_footer =
    "Prints the local maxima and minima inside [A, B] (where the derivative changes sign,\n"
    "corners such as that of abs(x) included), then the global max and min over [A, B]\n"
    "among the ends and the local extrema.  With --prescribed, the library's Nmax and Nmin.\n"
    "\n"
    "Example:\n"
    "  lawtool extrema 'x^3-3*x' -3 3";

const char* const integrate_footer =
    "Prints the integral over [A, B], its estimated absolute error, the evaluations spent\n"
    "and the status (converged, evaluation limit, resolution limit; a warning on stderr\n"
    "when not converged).  The adaptive rule cuts at the law's kinks and poles and handles\n"
    "integrable end singularities such as 1/sqrt(x) at 0.  With --romberg, the library's\n"
    "Romberg rule, the larger tolerance its stopping difference: the value and the number\n"
    "of levels (0: not converged in 10 levels; no error estimate).\n"
    "\n"
    "Examples:\n"
    "  lawtool integrate 'x^2' 0 1\n"
    "  lawtool integrate '1/sqrt(x)' 0 1 --json";

const char* const plot_footer =
    "Writes an SVG plot of the law over [A, B] to FILE (- for stdout) and says how many\n"
    "samples and polylines it holds.  The curve is sampled adaptively and broken where the\n"
    "law has no finite value, at the poles and jumps it reports and at steep jumps found by\n"
    "sampling.  The axes carry ticks at 1, 2 or 5 times a power of ten.  --roots marks the\n"
    "roots, --extrema the local extrema.  The file is the same on every run.\n"
    "\n"
    "Examples:\n"
    "  lawtool plot 'sin(x)' 0 2*pi -o sine.svg --roots --extrema\n"
    "  lawtool plot 'tan(x)' -3 3 -o tan.svg";

// CLI11 takes every word that begins with '-' and a character other than a digit for an
// option, so the points -.5 and -inf would be refused.  lawtool's only short options are -h and -o:
// any other such word is marked as a value before parsing and unmarked after.
const char value_mark = '\x1f';

bool looks_like_value(const std::string& a) {
    return a.size() > 1 && a[0] == '-' && a[1] != '-' && a != "-h" && a != "-o";
}

void unmark(std::string& s) {
    if (!s.empty() && s[0] == value_mark) s.erase(0, 1);
}

struct command_line {
    CLI::App app{
        "lawtool: read, evaluate, differentiate, simplify, inspect, solve, integrate and plot "
        "laws.",
        "lawtool"};
    eval_options eval;
    print_options print;
    simplify_options simplify;
    diff_options diff;
    info_options info;
    roots_options roots;
    extrema_options extrema;
    integrate_options_cli integrate;
    plot_options plot;
    std::string plot_size;
    CLI::App* roots_cmd;
    CLI::App* extrema_cmd;
    CLI::App* integrate_cmd;
    CLI::App* plot_cmd;
    CLI::App* eval_cmd;
    CLI::App* print_cmd;
    CLI::App* simplify_cmd;
    CLI::App* diff_cmd;
    CLI::App* info_cmd;
    CLI::App* demo_cmd;
    CLI::App* functions_cmd;
    bool lenient = false;

    command_line() {
        app.require_subcommand(1);
        app.set_version_flag("--version", std::string("lawtool ") + LAWTOOL_VERSION);
        app.footer(main_footer);

        eval_cmd = app.add_subcommand("eval", "Evaluate a law at points or over a range");
        eval_cmd->footer(eval_footer);
        eval_cmd->add_option("LAW", eval.law, "The law")->required();
        eval_cmd->add_option("POINT", eval.points, "Points to evaluate at: 0.5, or 0.5,1.2");
        eval_cmd
            ->add_option("--range", eval.range,
                         "CSV of N points evenly spaced from A to B; a point where the law "
                         "raises an error prints nan and the rest go on")
            ->type_name("A:B:N");

        print_cmd = app.add_subcommand("print", "Print a law in its own syntax or Maple's");
        print_cmd->footer(print_footer);
        print_cmd->add_option("LAW", print.law, "The law")->required();
        print_cmd->add_flag("--maple", print.maple, "Print the Maple spelling");
        print_cmd->add_flag("--force", print.force,
                            "With --maple, exit 0 even when Maple cannot read the text");

        simplify_cmd = app.add_subcommand("simplify", "Simplify a law");
        simplify_cmd->footer(simplify_footer);
        simplify_cmd->add_option("LAW", simplify.law, "The law")->required();
        simplify_cmd->add_option("--level", simplify.level, "1, or 2 to add factoring")
            ->check(CLI::Validator(
                [](std::string& s) -> std::string {
                    return s == "1" || s == "2" ? std::string()
                                                : "'" + s + "' is not a level: give 1 or 2";
                },
                ""))
            ->type_name("N")
            ->capture_default_str();
        simplify_cmd
            ->add_option("--trace", simplify.trace,
                         "1 the rules that fire, 2 and the counter, 3 and every node")
            ->check(whole_number())
            ->type_name("N")
            ->capture_default_str();

        diff_cmd = app.add_subcommand("diff", "Differentiate a law symbolically");
        diff_cmd->footer(diff_footer);
        diff_cmd->add_option("LAW", diff.law, "The law")->required();
        diff_cmd->add_option("--var", diff.var, "The input: an index from 0, or X, Y, Z, T, X4 ...")
            ->type_name("I")
            ->capture_default_str();
        diff_cmd->add_option("--order", diff.order, "The order of the derivative")
            ->check(whole_number())
            ->type_name("N")
            ->capture_default_str();
        diff_cmd->add_option("--at", diff.at, "Also print the derivative's value at the POINT")
            ->type_name("POINT");

        info_cmd = app.add_subcommand(
            "info", "Show a law's dimensions, classification, node count and tree");
        info_cmd->footer(info_footer);
        info_cmd->add_option("LAW", info.law, "The law")->required();

        roots_cmd = app.add_subcommand("roots", "Find every root of a law on an interval");
        roots_cmd->footer(roots_footer);
        add_interval(roots_cmd, roots.law, roots.a, roots.b);
        roots_cmd->add_flag("--prescribed", roots.prescribed, "Use the library's Nroot");
        roots_cmd->add_flag("--json", roots.json, "One JSON object for scripts");
        roots_cmd
            ->add_option("--max-evaluations", roots.max_evaluations,
                         "Bound on the evaluations of the search")
            ->check(whole_number())
            ->type_name("N")
            ->capture_default_str();

        extrema_cmd = app.add_subcommand("extrema", "Find the local and global extrema of a law");
        extrema_cmd->footer(extrema_footer);
        add_interval(extrema_cmd, extrema.law, extrema.a, extrema.b);
        extrema_cmd->add_flag("--prescribed", extrema.prescribed,
                              "Use the library's Nmax and Nmin");
        extrema_cmd->add_flag("--json", extrema.json, "One JSON object for scripts");

        integrate_cmd = app.add_subcommand("integrate", "Integrate a law with an error estimate");
        integrate_cmd->footer(integrate_footer);
        add_interval(integrate_cmd, integrate.law, integrate.a, integrate.b);
        integrate_cmd->add_option("--rel-tol", integrate.rel_tol, "Relative tolerance")
            ->type_name("E")
            ->capture_default_str();
        integrate_cmd->add_option("--abs-tol", integrate.abs_tol, "Absolute tolerance")
            ->type_name("E")
            ->capture_default_str();
        integrate_cmd
            ->add_option("--max-evaluations", integrate.max_evaluations, "Bound on the evaluations")
            ->check(whole_number())
            ->type_name("N")
            ->capture_default_str();
        integrate_cmd->add_flag("--romberg", integrate.romberg, "Use the library's Romberg rule");
        integrate_cmd->add_flag("--json", integrate.json, "One JSON object for scripts");

        plot_cmd = app.add_subcommand("plot", "Plot a law over an interval as an SVG file");
        plot_cmd->footer(plot_footer);
        add_interval(plot_cmd, plot.law, plot.a, plot.b);
        plot_cmd->add_option("-o,--output", plot.output, "The SVG file; - for stdout")
            ->type_name("FILE")
            ->required();
        plot_cmd->add_flag("--roots", plot.roots, "Mark the roots");
        plot_cmd->add_flag("--extrema", plot.extrema, "Mark the local extrema");
        plot_cmd->add_option("--size", plot_size, "Width and height in pixels (default 640x400)")
            ->type_name("WxH");
        plot_cmd->add_flag("--json", plot.json, "Say what was written as one JSON object");

        for (CLI::App* c : {eval_cmd, print_cmd, simplify_cmd, diff_cmd, info_cmd, roots_cmd,
                            extrema_cmd, integrate_cmd, plot_cmd})
            c->add_flag("--lenient", lenient,
                        "Take the reader's own reading of texts lawtool would refuse "
                        "(empty text, dropped groups, split names, 1.5e3)");

        functions_cmd = app.add_subcommand(
            "functions", "List every function, operator and constant a LAW may use");
        functions_cmd->footer(
            "One line each, from the library's registry: the name, its kind, its number of\n"
            "arguments (n: any number), its meaning and the domain outside which it raises an\n"
            "error (-: none stated).");

        demo_cmd = app.add_subcommand("demo", "A short guided tour of the commands");
        demo_cmd->footer("The tour that `make demo` runs.");
    }

    // LAW A B, the operands of every numerical command.
    static void add_interval(CLI::App* c, std::string& law, std::string& a, std::string& b) {
        c->add_option("LAW", law, "The law: one input, one output")->required();
        c->add_option("A", a, "Start of the interval")->required();
        c->add_option("B", b, "End of the interval")->required();
    }

    // The deepest command that was read, or "" for none.
    std::string active() const {
        std::vector<CLI::App*> subs = app.get_subcommands();
        return subs.empty() ? std::string() : subs.back()->get_name();
    }

    int dispatch(const tool_streams& io) {
        set_lenient_reading(lenient);
        for (std::string* s :
             {&eval.law,  &eval.range,  &print.law,   &simplify.law, &diff.law,      &diff.at,
              &diff.var,  &info.law,    &roots.a,     &roots.b,      &roots.law,     &extrema.a,
              &extrema.b, &extrema.law, &integrate.a, &integrate.b,  &integrate.law, &plot.a,
              &plot.b,    &plot.law,    &plot.output})
            unmark(*s);
        for (std::string& s : eval.points) unmark(s);
        if (eval_cmd->parsed()) run_eval(eval, io);
        if (print_cmd->parsed()) run_print(print, io);
        if (simplify_cmd->parsed()) run_simplify(simplify, io);
        if (diff_cmd->parsed()) run_diff(diff, io);
        if (info_cmd->parsed()) run_info(info, io);
        if (roots_cmd->parsed()) run_roots(roots, io);
        if (extrema_cmd->parsed()) run_extrema(extrema, io);
        if (integrate_cmd->parsed()) run_integrate(integrate, io);
        if (plot_cmd->parsed()) {
            if (!plot_size.empty()) {
                unmark(plot_size);
                int w = 0, h = 0;
                char rest = 0;
                if (std::sscanf(plot_size.c_str(), "%dx%d%c", &w, &h, &rest) != 2)
                    throw usage_error("--size takes WxH such as 640x400, not '" + plot_size + "'");
                plot.width = w;
                plot.height = h;
            }
            run_plot(plot, io);
        }
        if (functions_cmd->parsed()) run_functions(io);
        if (demo_cmd->parsed()) return run_demo(io);
        return status_ok;
    }
};

int parse_and_run(const std::vector<std::string>& given, const tool_streams& io) {
    std::vector<std::string> args = given;
    bool options_end = false;
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--") options_end = true;
        if (!options_end && looks_like_value(args[i])) args[i].insert(0, 1, value_mark);
    }
    command_line cl;
    if (args.empty()) return report_usage("", "no command given", io);
    // CLI11 would only say that a command is required.
    const std::string& first = args[0];
    if (first[0] != '-' && !find_usage(first))
        return report_usage("", "unknown command '" + first + "'", io);
    if (first[0] == '-' && first != "-h" && first != "--help" && first != "--version")
        return report_usage("", "unknown option '" + first + "'", io);
    try {
        std::vector<std::string> reversed(args.rbegin(), args.rend());  // CLI11 reads from the back
        cl.app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        std::string command = cl.active();
        std::string help =
            command.empty() ? cl.app.help() : cl.app.get_subcommand(command)->help("lawtool");
        if (help.empty() || help.back() != '\n') help += '\n';
        put(io.out, help);
        return status_ok;
    } catch (const CLI::CallForVersion& e) {
        put(io.out, std::string(e.what()) + "\n");
        return status_ok;
    } catch (const CLI::ParseError& e) {
        // CLI11 numbers its parse errors from 100; to the shell they are all usage errors.
        if (e.get_exit_code() == 0) return status_ok;
        std::string what = e.what();
        what.erase(std::remove(what.begin(), what.end(), value_mark), what.end());
        return report_usage(cl.active(), what, io);
    }

    try {
        return cl.dispatch(io);
    } catch (const usage_error& e) {
        std::string what = e.what();
        what.erase(std::remove(what.begin(), what.end(), value_mark), what.end());
        return report_usage(cl.active(), what, io);
    } catch (const read_error& e) {
        put(io.err, std::string(e.what()) + "\n");
    } catch (const vorx_exception& e) {
        put(io.err, std::string(e.code_name()) + ": " + e.what() + "\n");
    } catch (const std::exception& e) {
        put(io.err, std::string("lawtool: ") + e.what() + "\n");
    }
    return status_failed;
}

}  // namespace

int lawtool_run(const std::vector<std::string>& args, const tool_streams& io) {
    int status;
    std::string stray;
    {
        // Whatever the library prints that no command asked for is shown as a note
        // rather than mixed into the results.
        output_capture capture;
        status = parse_and_run(args, io);
        stray = capture.text();
    }
    for (size_t from = 0; from < stray.size();) {
        size_t end = std::min(stray.find('\n', from), stray.size());
        if (end > from) put(io.err, "lawtool: note: " + stray.substr(from, end - from) + "\n");
        from = end + 1;
    }
    for (int i = 0; i < warning_count(); ++i) {
        int code = warning_code(i);
        put(io.err, std::string("lawtool: warning: ") + find_message_name(code) + ": " +
                        find_message(code) + "\n");
    }
    clear_warnings();
    std::fflush(io.out);
    std::fflush(io.err);
    return status;
}
