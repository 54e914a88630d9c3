// Reading a law from the command line and printing one back.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "lawutil/global_names.hpp"
#include "lawutil/law_base.hpp"

// The law that `text` describes, with one reference for the caller.  A text that does not
// read gives a read_error whose message says why (read_law's reason) and shows the text
// with a caret under the column read_law gives back.
law* read_law_text(const std::string& text);

// The column (from 0) at which the character at byte `at` of `text` is shown: a UTF-8
// character of several bytes takes one column.
size_t display_column(const std::string& text, size_t at);

// `headline`, then the text on a line of its own with a caret under index `at`.
std::string caret_message(const std::string& headline, const std::string& text, size_t at);

// The law's text in the library's own spelling or in Maple's.
std::string law_text(const law* l, law_symbol_type type = law_symbol_default);

// Refuses, as a read_error with a caret, a text that the reader would take otherwise than
// its writer meant: an empty text, a group or number juxtaposed with a group (the reader
// drops it), an unmatched parenthesis, an operator without its operand (read as 0), a
// number followed by E and digits (read as a product with the variable E3), a name the
// reader would split into pieces (XY reads as Y) and a function name it does not know.
void check_law_text(const std::string& text);

// When set (--lenient), read_law_text skips check_law_text and takes the library's
// reading of every text it accepts.
void set_lenient_reading(bool lenient);

// Up to four known names nearest `name` (upper case) by edit distance, nearest first.
std::vector<std::string> nearest_names(const std::string& name);
