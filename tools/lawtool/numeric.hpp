// What the numerical commands (roots, extrema, integrate, plot) share: reading a scalar
// law and an interval, finding the local extrema, and writing JSON.
#pragma once

#include <string>
#include <vector>

#include "lawutil/global_names.hpp"
#include "lawutil/law_base.hpp"

// A law of one input (or none) and one output, with one reference for the caller; any
// other law is a usage_error that names `command`.
law* read_scalar_law(const std::string& text);

// One end of an interval: a number or a constant such as pi/2 (usage_error otherwise).
double parse_end(const std::string& text, const char* which);

// f at x, or NaN where f raises its own error or the value is not finite.
double value_or_nan(const law* f, double x);

struct extremum {
    double x;
    double value;
    bool maximum;
};
// The local extrema of f inside [a, b], ascending: the points where f' changes sign (its
// simple and odd roots, and the poles and jumps of f' where f itself is finite, such as
// the corner of ABS), told apart by the sign of f' just beside them.  `evaluations` gets
// those of the search on f'.
std::vector<extremum> local_extrema(law* f, double a, double b, int* evaluations);

// JSON spellings: a string with quotes and escapes; a number, or null when not finite.
std::string json_string(const std::string& s);
std::string json_number(double v);
