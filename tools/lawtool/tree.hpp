// The shape of a law tree: its nodes, drawn one a line with their class names.
#pragma once

#include <string>
#include <vector>

namespace lawutil {
class law;
}  // namespace lawutil
using lawutil::law;

// The tree of `l`, one node a line, children indented under their parent with ASCII
// branches ("|-- ", "`-- ").  A node shows its class name and, in parentheses, its symbol,
// or its text for a leaf.  Data arguments appear as nodes too; a law wrapped as data
// shows the law below it.  Every line ends in '\n'.
std::string draw_tree(const law* l);

// The number of lines draw_tree draws: every node, shared sub-trees once per use.
int count_nodes(const law* l);

// A name for each of the law's take_dim() inputs: the spelling the law itself uses for
// it (T in VEC(COS(T),SIN(T),T)), else X, Y, Z, X4, X5, ...  A law of no inputs is given
// one name, X, since a constant is also a law of X.
std::vector<std::string> input_names(const law* l);
