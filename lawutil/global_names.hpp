// Opt-in: the library's names in the global namespace, for code written before the names
// moved into namespaces.  The base library's value types and services live in `vorx`, the
// laws and their routines in `lawutil`; a file that includes this header may spell them
// unqualified (`law`, `vector`, `str_to_law`).  The directives follow every later
// declaration of the two namespaces, so this header may come before or after the others.
// The library's own headers never include it: a file that also says `using namespace std;`
// meets two `vector`s.
#pragma once

namespace vorx {}
namespace lawutil {}

using namespace vorx;
using namespace lawutil;
