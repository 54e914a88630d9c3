// Numbers on the command line: printing values with 16 significant digits whatever the
// locale, and reading POINTs, ranges and variable names.
#pragma once

#include <string>
#include <vector>

// "%.16g" of `value` in the C locale's spelling (0.5 prints "0.5", 3 prints "3").
std::string format_number(double value);

// The values joined by `separator`, each printed by format_number.
std::string format_values(const std::vector<double>& values, const char* separator);

// A POINT: coordinates separated by commas ("0.5", "0.5,1.2").  A coordinate is a number
// or a constant law text such as PI/2 (commas inside parentheses do not split).  Throws
// usage_error when a coordinate is neither; errors raised while evaluating a constant
// text pass as vorx_exception.
std::vector<double> parse_point(const std::string& text);

// A range "A:B:N": N points evenly spaced on the segment from POINT A to POINT B, both
// ends included (N = 1 gives A alone).  A and B must have the same number of coordinates.
struct point_range {
    std::vector<double> from;
    std::vector<double> to;
    long count = 0;
    // Point i of count; the last one is exactly `to`.
    std::vector<double> at(long i) const;
};
point_range parse_range(const std::string& text);

// An input of a law named on the command line: a 0-based index ("1") or a variable name
// as the reader spells it ("X", "T", "Y", "Z", "X4" ...).  Throws usage_error.
int parse_variable(const std::string& text);
