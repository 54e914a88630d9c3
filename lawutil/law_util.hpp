// Reading laws from text, and the list helpers behind the associative and commutative
// comparisons.
#pragma once

#include "lawutil/law_base.hpp"

namespace lawutil {

class binary_law;

// The highest variable number a text may use: 'X4096' reads input 4095; a letter followed
// by a greater number ('X100000000') is bad syntax.
constexpr int law_max_variable = 4096;

// The law that `text` describes (use count 1, owned by the caller), or null.  `data`
// holds the arguments the text names as LAW1, LAW2, ... and by data-prototype symbols.
law* str_to_law(const char* text, law_data** data = nullptr, int count = 0);

// What read_law found: the law, or why there is none.
struct law_read_result {
    law* value = nullptr;          // use count 1, owned by the caller; null on a fault
    int code = 0;                  // 0, or a code of the lawutil message module (LAW_SYNTAX,
                                   // LAW_DATA_UNKNOWN, or the code a law raised on building)
    int column = 0;                // where the fault is in `text`, from 1 (in characters)
    const char* reason = nullptr;  // a short phrase, static ("bad syntax", ...)
    bool ok() const { return code == 0; }
};

// str_to_law that prints nothing and raises nothing: the same reading (the same law for
// every text), with a fault given back as a code, a column and a reason.  The text "NULL"
// is no fault: the result holds no law and code 0.  A law that refuses its arguments while
// being built (STEP(X,1)) gives back the code it raised, at column 0.
law_read_result read_law(const char* text, law_data** data = nullptr, int count = 0);

// The registered data prototype whose symbol is `name` (the earliest registered among
// equals), or null.
law_data* get_law_data(const char* name);

// 1 when the two arrays hold equal laws in any order.
int same_law_list(law** a, law** b, int n);

// The operands of a chain of one associative operation, flattened.  The array belongs to
// the caller (vorx_discard); its laws carry no extra references.
law** get_asso_list(const binary_law* l, int* n);

// The left-nested chain make_one(make_one(list[0], list[1]), list[2]) ... built with the
// prototype's make_one.
law* make_list_law(law** list, int n, const binary_law* prototype);

}  // namespace lawutil
