// Simplification.  The rule phases arrive with the simplifier; until then a law is its
// own simplified form, cached like any other.
#include "lawutil/law_base.hpp"

law* law::simplify(int level, int) const {
    if (!simplified || simplify_level < level) {
        store_cached(simplified, const_cast<law*>(this));
        simplify_level = level;
    }
    simplified->add();
    return simplified;
}
