// The Python module `lawutil`: laws read from text, printed, evaluated (one point, or
// NumPy arrays of points in one call), differentiated, simplified, and handed to the
// root finders, the extremum search, the adaptive integrator and the spline fitter.
//
// Ownership.  A Python Law holds one reference to its law (a law_holder) and releases it
// when Python drops the object; every law* the library hands back is adopted at once, so
// an error between a call and its wrapping leaks nothing.  A Law also keeps, once asked,
// the compiled programs of its law (law_program, rewrite and exact), which hold references
// of their own and go with it.  _live_laws() reports law::how_many_laws for leak tests.
//
// Errors.  Every vorx_exception becomes lawutil.LawError carrying the code, its code
// name and the message; a text that does not read gives the same class with the column
// and reason of read_law.  Bad Python arguments (a wrong point size, an unknown option)
// are ValueError.
//
// Threads.  The library runs one thread per law tree and its laws fill caches while they
// are evaluated, so the module keeps the GIL for every call: two Python threads never
// run the library at once.  A Law is still not meant to be shared between threads (the
// library is started on the importing thread; other threads use its quiet fallback
// context).
//
// Arrays.  An array of points is evaluated by law_program::evaluate_batch for laws of
// one output (no Python loop and no virtual call per node); laws of several outputs run
// the tree point by point in C++.  A point outside a domain gives NaN, or raises when
// asked (errors="raise").
#include <pybind11/eval.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cctype>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/errors.hpp"
#include "base/memory.hpp"
#include "lawutil/lawutil.hpp"

using namespace vorx;
using namespace lawutil;

namespace py = pybind11;

namespace {

// ---------------------------------------------------------------- errors

// LawError, made once at import and kept for the life of the process (never released,
// so no destructor runs after the interpreter is gone).
PyObject* law_error_type = nullptr;

// A text that read_law refused.
struct read_fault {
    int code;
    int column;
    std::string reason;
    std::string text;
};

// A point that failed when the caller asked arrays to raise.
struct point_fault {
    int code;
    long index;
};

// Raises LawError: `text` is what str() shows, `message` the library's text of the code.
void set_law_error(int code, const std::string& text, py::object column, py::object reason) {
    py::object type = py::reinterpret_borrow<py::object>(law_error_type);
    py::object error =
        type(text, code, find_message_name(code), find_message(code), column, reason);
    PyErr_SetObject(law_error_type, error.ptr());
}

std::string code_message(int code) {
    return std::string(find_message_name(code)) + ": " + find_message(code);
}

void translate_errors(std::exception_ptr p) {
    try {
        if (p) std::rethrow_exception(p);
    } catch (const vorx_exception& e) {
        set_law_error(e.code(), code_message(e.code()), py::none(), py::none());
    } catch (const read_fault& f) {
        std::string where = f.column > 0 ? " at column " + std::to_string(f.column) : "";
        set_law_error(f.code,
                      std::string(find_message_name(f.code)) + where + ": " + f.reason + " in '" +
                          f.text + "'",
                      f.column > 0 ? py::object(py::int_(f.column)) : py::none(),
                      py::str(f.reason));
    } catch (const point_fault& f) {
        set_law_error(f.code, code_message(f.code) + " (point " + std::to_string(f.index) + ")",
                      py::none(), py::none());
    }
}

// ---------------------------------------------------------------- the Law object

// Tracked scratch memory released when it goes, also when an error passes.
template <class T>
struct scratch {
    explicit scratch(size_t n) : p(VORX_ALLOC_ARRAY(T, n ? n : 1)) {}
    ~scratch() { VORX_FREE(p); }
    scratch(const scratch&) = delete;
    scratch& operator=(const scratch&) = delete;
    T* p;
};

class py_law : public VORX_OBJECT {
  public:
    explicit py_law(law* adopted) : law_(adopted) {}
    law* get() const { return law_.get(); }

    // The compiled form, made on first use and kept.
    const law_program& program(bool exact) const {
        std::unique_ptr<law_program>& p = programs_[exact ? 1 : 0];
        if (!p)
            p.reset(VORX_NEW law_program(law_.get(),
                                         exact ? law_program::exact : law_program::rewrite));
        return *p;
    }

  private:
    law_holder law_;
    // Declared after law_ so they go first: each holds a reference to it.
    mutable std::unique_ptr<law_program> programs_[2];
};

// The law a text describes (adopted), or null for "NULL".
law* read_text(const std::string& text) {
    law_read_result r = read_law(text.c_str());
    law_holder held(r.value);
    if (!r.ok()) throw read_fault{r.code, r.column, r.reason ? r.reason : "", text};
    return held.release();
}

py_law* wrap(law* adopted) {
    law_holder held(adopted);
    return VORX_NEW py_law(held.release());
}

std::string text_of(const law* l, law_symbol_type type) {
    char* s = l->string(type);
    std::string text = s ? s : "";
    VORX_FREE(s);
    return text;
}

// ---------------------------------------------------------------- evaluation

bool raise_on_error(const std::string& errors) {
    if (errors == "nan") return false;
    if (errors == "raise") return true;
    throw py::value_error("errors must be \"nan\" or \"raise\", not \"" + errors + "\"");
}

// f(x, y, ...) at one point: a float, or a tuple for a law of several outputs.
py::object evaluate_point(const py_law& self, py::args args) {
    const law* l = self.get();
    int k = l->take_dim(), m = l->return_dim();
    int given = (int)args.size();
    if (given != k && !(k == 0 && given <= 1))
        throw py::value_error("the law takes " + std::to_string(k) + " inputs, not " +
                              std::to_string(given));
    scratch<double> x((size_t)std::max(k, 1));
    x.p[0] = 0.0;
    for (int i = 0; i < k; ++i) {
        py::handle a = args[i];
        if (py::isinstance<py::array>(a) ||
            (py::isinstance<py::sequence>(a) && !py::isinstance<py::str>(a)))
            throw py::type_error(
                "f(x, y, ...) takes the numbers of one point; evaluate() "
                "takes arrays");
        x.p[i] = py::float_(py::reinterpret_borrow<py::object>(a)).cast<double>();
    }
    scratch<double> y((size_t)std::max(m, 1));
    l->evaluate(x.p, y.p);
    if (m == 1) return py::float_(y.p[0]);
    py::tuple out(m);
    for (int j = 0; j < m; ++j) out[j] = y.p[j];
    return out;
}

using point_array = py::array_t<double, py::array::c_style | py::array::forcecast>;

// Points as an array: for a law of at most one input every element is a point, else
// the last axis holds the k coordinates.  The result has the points' shape, with one
// more axis of return_dim() entries for a law of several outputs.
py::array evaluate_array(const py_law& self, py::object points, const std::string& errors,
                         bool exact) {
    bool raise = raise_on_error(errors);
    const law* l = self.get();
    int k = l->take_dim(), m = l->return_dim();
    point_array x = point_array::ensure(points);
    if (!x) throw py::value_error("points must be numbers or an array of numbers");
    std::vector<py::ssize_t> shape(x.shape(), x.shape() + x.ndim());
    if (k > 1) {
        if (shape.empty() || shape.back() != k)
            throw py::value_error("the law takes " + std::to_string(k) +
                                  " inputs: the last axis of the points must have " +
                                  std::to_string(k) + " entries");
        shape.pop_back();
    }
    long n = 1;
    for (py::ssize_t s : shape) n *= (long)s;
    if (m != 1) shape.push_back(m);
    py::array_t<double> y(shape);
    double* out = y.mutable_data();
    const double* in = x.data();
    int width = std::max(k, 1);
    if (m == 1) {
        // The batch takes structure of arrays (input i of every point together): points of
        // several inputs are transposed a chunk at a time, so scratch stays small and a
        // count past the batch's int range needs no special case.
        const long chunk = 8192;
        const law_program& program = self.program(exact);
        scratch<double> columns(k > 1 ? (size_t)chunk * k : 0);
        scratch<const double*> inputs((size_t)width);
        scratch<int> codes((size_t)chunk);
        for (long start = 0; start < n; start += chunk) {
            int count = (int)std::min(chunk, n - start);
            inputs.p[0] = in + start;
            for (int i = 0; k > 1 && i < k; ++i) {
                inputs.p[i] = columns.p + (size_t)i * chunk;
                for (int p = 0; p < count; ++p)
                    columns.p[(size_t)i * chunk + p] = in[(size_t)(start + p) * k + i];
            }
            // Error codes are only kept when they are to be raised.
            program.evaluate_batch(count, k > 0 ? inputs.p : nullptr, out + start,
                                   raise ? codes.p : nullptr);
            for (int p = 0; raise && p < count; ++p)
                if (codes.p[p]) throw point_fault{codes.p[p], start + p};
        }
        return std::move(y);
    }
    // Several outputs: the tree, point by point.
    scratch<double> zero(1);
    zero.p[0] = 0.0;
    for (long p = 0; p < n; ++p) {
        const double* at = k > 0 ? in + (size_t)p * (k > 1 ? k : 1) : zero.p;
        try {
            l->evaluate(at, out + (size_t)p * m);
        } catch (const vorx_exception& e) {
            if (raise) throw point_fault{e.code(), p};
            for (int j = 0; j < m; ++j) out[(size_t)p * m + j] = std::nan("");
        }
    }
    return std::move(y);
}

// ---------------------------------------------------------------- symbolic

// An input index, or a variable name as the reader spells it: X (U, T), Y (V), Z, or a
// letter with its number (X4 is input 3).
int input_index(py::object var) {
    if (py::isinstance<py::int_>(var)) {
        int i = var.cast<int>();
        if (i < 0) throw py::value_error("an input index is 0 or more");
        return i;
    }
    std::string s = var.cast<std::string>();
    for (char& c : s) c = (char)std::toupper((unsigned char)c);
    if (s.size() == 1 && std::strchr("XUT", s[0])) return 0;
    if (s.size() == 1 && std::strchr("YV", s[0])) return 1;
    if (s == "Z") return 2;
    if (s.size() > 1 && std::isupper((unsigned char)s[0]) &&
        s.find_first_not_of("0123456789", 1) == std::string::npos) {
        int n = std::atoi(s.c_str() + 1);
        if (n >= 1 && n <= law_max_variable) return n - 1;
    }
    throw py::value_error("unknown variable '" + var.cast<std::string>() +
                          "': use an index or X, Y, Z, X4, ...");
}

py_law* derivative(const py_law& self, py::object var, int order) {
    if (order < 0) throw py::value_error("the order is 0 or more");
    int which = input_index(var);
    law_holder d = law_holder::share(self.get());
    for (int k = 0; k < order; ++k) {
        d.reset(d->derivative(which));
        if (!d) sys_error(LAW_DERIV);
    }
    return wrap(d.release());
}

// ---------------------------------------------------------------- numerics

// Named tuples made in Python at import (see PYBIND11_MODULE), kept like LawError.
PyObject* root_type = nullptr;
PyObject* integral_type = nullptr;
PyObject* curve_type = nullptr;

py::object make(PyObject* type) {
    return py::reinterpret_borrow<py::object>(type);
}

py::list roots(const py_law& self, double a, double b, int max_evaluations) {
    int n = 0;
    classified_root* r = Nroot_classified(self.get(), a, b, &n, nullptr, max_evaluations);
    std::unique_ptr<classified_root, void (*)(classified_root*)> held(
        r, [](classified_root* p) { VORX_FREE(p); });
    py::list out;
    for (int i = 0; i < n; ++i)
        out.append(
            make(root_type)(r[i].x, r[i].x_end, root_kind_name(r[i].kind), r[i].multiplicity));
    return out;
}

py::list nroot(const py_law& self, double a, double b) {
    int n = 0;
    double* r = Nroot(self.get(), a, b, &n);
    std::unique_ptr<double, void (*)(double*)> held(r, [](double* p) { VORX_FREE(p); });
    py::list out;
    for (int i = 0; i < n; ++i) out.append(r[i]);
    return out;
}

py::object integrate(const py_law& self, double a, double b, double rel_tol, double abs_tol,
                     int max_evaluations, std::vector<double> splits) {
    integrate_options o;
    o.rel_tol = rel_tol;
    o.abs_tol = abs_tol;
    o.max_evaluations = max_evaluations;
    integrate_result r = Nintegrate_adaptive(self.get(), a, b, o, (int)splits.size(),
                                             splits.empty() ? nullptr : splits.data());
    return make(integral_type)(r.value, r.error, r.evaluations, integrate_status_name(r.status),
                               r.pieces);
}

py::object to_sw_curve(const py_law& self, double start, double end, double tolerance, int degree) {
    sw_curve_approx_options o;
    o.degree = degree;
    sw_curve_approx_report report;
    std::unique_ptr<sw_curve> c(law_to_sw_curve(self.get(), start, end, tolerance, o, &report));
    int n = c->get_num_control_points();
    py::array_t<double> knots(c->get_num_knots());
    std::copy(c->get_knots(), c->get_knots() + c->get_num_knots(), knots.mutable_data());
    py::array_t<double> points(std::vector<py::ssize_t>{n, 3});
    std::copy(c->get_control_points(), c->get_control_points() + 3 * n, points.mutable_data());
    py::object weights = py::none();
    if (c->get_polynomial() != 1) {
        py::array_t<double> w(n);
        std::copy(c->get_weights(), c->get_weights() + n, w.mutable_data());
        weights = std::move(w);
    }
    return make(curve_type)(c->get_degree(), knots, points, weights, report.max_error);
}

// ---------------------------------------------------------------- the Python side

// Python classes that are plainer in Python: the exception and the result tuples.
const char* python_side = R"(
import collections

class LawError(Exception):
    """An error raised by the law library.

    code       the library's error number
    code_name  its name, e.g. 'LAW_SYNTAX', 'LAW_SQRT'
    message    the library's text of that code
    column     where a text failed to read (from 1), else None
    reason     a short phrase saying why a text failed to read, else None
    """

    def __init__(self, text, code=0, code_name='', message='', column=None, reason=None):
        super().__init__(text)
        self.message = message
        self.code = code
        self.code_name = code_name
        self.column = column
        self.reason = reason

Root = collections.namedtuple('Root', 'x x_end kind multiplicity')
Integral = collections.namedtuple('Integral', 'value error evaluations status pieces')
SwCurve = collections.namedtuple('SwCurve', 'degree knots control_points weights max_error')
)";

PyObject* kept(py::dict& ns, const char* name) {
    py::object o = ns[name];
    o.attr("__module__") = "lawutil";
    return o.release().ptr();
}

}  // namespace

PYBIND11_MODULE(lawutil, m) {
    m.doc() =
        "Laws: functions from take_dim reals to return_dim reals, read from text.\n"
        "Not for sharing one Law between Python threads.";
    // The library's per-thread context on the importing thread, kept for the process.
    initialize_law();

    py::dict ns;
    ns["__name__"] = "lawutil";
    py::exec(python_side, ns);
    law_error_type = kept(ns, "LawError");
    root_type = kept(ns, "Root");
    integral_type = kept(ns, "Integral");
    curve_type = kept(ns, "SwCurve");
    m.attr("LawError") = py::handle(law_error_type);
    m.attr("Root") = py::handle(root_type);
    m.attr("Integral") = py::handle(integral_type);
    m.attr("SwCurve") = py::handle(curve_type);
    py::register_exception_translator(&translate_errors);

    m.def(
        "parse",
        [](const std::string& text) -> py::object {
            law_holder l(read_text(text));
            if (!l) return py::none();
            return py::cast(wrap(l.release()), py::return_value_policy::take_ownership);
        },
        py::arg("text"),
        "The law a text describes (None for 'NULL'); LawError with the column and reason "
        "when it does not read.");
    m.def(
        "_live_laws", [] { return (int)law::how_many_laws; },
        "Laws alive in the library (for leak tests).");
    m.def(
        "_live_bytes", [] { return vorx_live_bytes(); },
        "Bytes alive in the library's tracked memory (for leak tests).");

    py::class_<py_law>(m, "Law")
        .def(py::init([](const std::string& text) {
                 law_holder l(read_text(text));
                 if (!l) throw py::value_error("'" + text + "' reads as no law");
                 return wrap(l.release());
             }),
             py::arg("text"))
        .def("__str__", [](const py_law& s) { return text_of(s.get(), law_symbol_default); })
        .def(
            "__repr__",
            [](const py_law& s) {
                return "Law(" +
                       py::repr(py::str(text_of(s.get(), law_symbol_default))).cast<std::string>() +
                       ")";
            })
        .def(
            "maple", [](const py_law& s) { return text_of(s.get(), law_symbol_maple); },
            "The text in Maple's spelling ('no_maple(...)' where a law has none).")
        .def(
            "__eq__", [](const py_law& a, const py_law& b) { return (*a.get() == *b.get()) != 0; },
            py::is_operator())
        .def_property_readonly("take_dim", [](const py_law& s) { return s.get()->take_dim(); })
        .def_property_readonly("return_dim", [](const py_law& s) { return s.get()->return_dim(); })
        .def("__call__", &evaluate_point,
             "The value at one point, f(x) or f(x, y, ...): a float, or a tuple for several "
             "outputs.  A point outside the domain raises LawError.")
        .def("evaluate", &evaluate_array, py::arg("points"), py::arg("errors") = "nan",
             py::arg("exact") = false,
             "The values at an array of points (NumPy), in one call.  errors='nan' gives NaN "
             "where a point leaves a domain, 'raise' raises LawError.  exact=True gives the "
             "tree's values bit for bit (no Horner or vector-math rewrites).")
        .def("derivative", &derivative, py::arg("var") = 0, py::arg("order") = 1,
             "The symbolic derivative in an input (index or name: 'X', 'Y', ...), of an order.")
        .def(
            "simplify",
            [](const py_law& s, int level) { return wrap(law_simplify(s.get(), level)); },
            py::arg("level") = 1)
        .def("roots", &roots, py::arg("a"), py::arg("b"), py::arg("max_evaluations") = 20000,
             "Every root, pole and jump on [a, b] (Nroot_classified): a list of Root(x, x_end, "
             "kind, multiplicity), kind one of 'simple', 'even multiple', 'odd multiple', "
             "'pole', 'jump', 'everywhere'.")
        .def("nroot", &nroot, py::arg("a"), py::arg("b"),
             "The roots on [a, b] found by Nroot, ascending.")
        .def(
            "nmin", [](const py_law& s, double a, double b) { return Nmin(s.get(), a, b); },
            py::arg("a"), py::arg("b"), "Where the law is smallest on [a, b] (Nmin).")
        .def(
            "nmax", [](const py_law& s, double a, double b) { return Nmax(s.get(), a, b); },
            py::arg("a"), py::arg("b"), "Where the law is largest on [a, b] (Nmax).")
        .def("integrate", &integrate, py::arg("a"), py::arg("b"), py::arg("rel_tol") = 1e-10,
             py::arg("abs_tol") = 1e-14, py::arg("max_evaluations") = 20000,
             py::arg("splits") = std::vector<double>(),
             "The integral over [a, b] (Nintegrate_adaptive): Integral(value, error, "
             "evaluations, status, pieces).")
        .def("to_sw_curve", &to_sw_curve, py::arg("start"), py::arg("end"), py::arg("tolerance"),
             py::arg("degree") = 3,
             "The law over [start, end] as a B-spline within the tolerance "
             "(law_to_sw_curve): SwCurve(degree, knots, control_points (n x 3), weights or "
             "None, max_error).");
}
