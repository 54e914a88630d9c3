// Every root of a scalar law of one input on [a, b], each said for what it is.
//
// Nroot (root.hpp) keeps its long-standing behaviour, which other modules depend on.
// Nroot_classified is the finder to use when nothing may be missed: it also finds
// tangencies (no sign change), separates roots that lie close together, and reports the
// sign changes that are not roots (poles, jumps) as such instead of as roots.
//
// Error model, in short (the design note of root_all.cpp has the long form): the law is
// replaced piece by piece by Chebyshev interpolants accurate to about 1e-12 of the
// piece's largest value; every candidate is then polished and classified on the law
// itself, with its symbolic derivatives.  A simple root comes out to a few units in the
// last place; a multiple root is polished as a simple root of the derivative that
// vanishes there singly, so it comes out nearly as well.  Two roots closer than about
// 1e-7 of their piece are reported as one root of even multiplicity.  A touching point is
// a root when |f| there is at most 1e-11 of the piece's largest value.
#pragma once

namespace lawutil {

class law;

// What a reported point is.
enum root_kind {
    root_simple = 1,         // f crosses zero with a non-zero slope
    root_even_multiple = 2,  // f touches zero without crossing (a tangency, or a kink: ABS)
    root_odd_multiple = 3,   // f crosses zero and is flat there (multiplicity 3, 5, ...)
    root_pole = 4,           // f changes sign through infinity: not a root
    root_jump = 5,           // f changes sign by a jump: not a root
    root_everywhere = 6      // f is zero on the whole stretch [x, x_end]
};

// True for the kinds that are zeros of the law (not poles or jumps).
inline bool is_root_kind(root_kind k) {
    return k != root_pole && k != root_jump;
}

// The kind as front ends show it: "simple", "even multiple", "odd multiple", "pole",
// "jump", "everywhere" ("unknown" for any other value).
inline const char* root_kind_name(root_kind k) {
    static const char* const names[] = {"unknown", "simple", "even multiple", "odd multiple",
                                        "pole",    "jump",   "everywhere"};
    return k >= root_simple && k <= root_everywhere ? names[k] : names[0];
}

struct classified_root {
    double x;
    double x_end;  // equal to x except for root_everywhere
    root_kind kind;
    int multiplicity;  // 1, 2, 3, or 4 for "4 or more"; 0 for poles, jumps and stretches
};

// What a search did.
struct root_search_info {
    int evaluations = 0;  // of the law and of its derivatives
    int pieces = 0;       // pieces of [a, b] resolved by an interpolant
    int unresolved = 0;   // pieces given up (evaluation bound reached, or narrower than
                          // 1e-5 of [a, b] and still not resolved): checked by sign only
};

// Every root, pole and jump of `f` on [a, b] (the ends may come in either order), in
// ascending order; the count goes to *n.  The array is allocated with VORX_ALLOC_ARRAY
// and belongs to the caller (VORX_FREE); it is null when nothing was found.
//
// Uses what the law knows of itself: derivative(0) up to the third, term_domain (the
// search is clipped to it), singularities (the interval is split there); points where the
// law raises an error or is not finite are treated as gaps of its domain.  At most
// `max_evaluations` evaluations are spent; past that the rest of the interval is given
// up and counted in info->unresolved.  Never raises for "no root".
//
// Errors, as Nroot raises them: LAW_EVAL for a null law, LAW_DIM for a law that does not
// map one input to one output, LAW_BAD_BOUNDS for an end that is NaN or infinite.
classified_root* Nroot_classified(law* f, double a, double b, int* n,
                                  root_search_info* info = nullptr, int max_evaluations = 20000);

}  // namespace lawutil
