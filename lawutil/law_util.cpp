#include "lawutil/law_util.hpp"

#include <cstring>

#include "lawutil/internal_law.hpp"
#include "lawutil/law_data.hpp"

using namespace vorx;

namespace lawutil {

law_data* get_law_data(const char* name) {
    law_data* found = nullptr;
    if (!name) return nullptr;
    for (law_data_list* n = law_data_list::head(); n; n = n->fnext())
        if (n->fthis() && std::strcmp(n->fthis()->symbol(law_symbol_default), name) == 0)
            found = n->fthis();
    return found;
}

int same_law_list(law** a, law** b, int n) {
    if (n < 1) return 1;
    char small[32];
    char* matched = n <= 32 ? small : VORX_ALLOC_ARRAY(char, n);
    std::memset(matched, 0, n);
    int result = 1;
    for (int i = 0; i < n && result; ++i) {
        int hit = -1;
        for (int j = 0; j < n && hit < 0; ++j)
            if (!matched[j] && a[i] && b[j] && *a[i] == *b[j]) hit = j;
        if (hit < 0)
            result = 0;
        else
            matched[hit] = 1;
    }
    if (matched != small) VORX_FREE(matched);
    return result;
}

namespace {
int count_asso(const law* l, int type) {
    if (!l || l->type() != type) return 1;
    const binary_law* b = static_cast<const binary_law*>(l);
    return count_asso(b->fleft(), type) + count_asso(b->fright(), type);
}

void fill_asso(law* l, int type, law** out, int& k) {
    if (!l || l->type() != type) {
        out[k++] = l;
        return;
    }
    binary_law* b = static_cast<binary_law*>(l);
    fill_asso(b->fleft(), type, out, k);
    fill_asso(b->fright(), type, out, k);
}
}  // namespace

law** get_asso_list(const binary_law* l, int* n) {
    int type = l->type();
    int total = count_asso(l, type);
    law** out = VORX_ALLOC_ARRAY(law*, total);
    int k = 0;
    fill_asso(const_cast<binary_law*>(l), type, out, k);
    if (n) *n = k;
    return out;
}

law* make_list_law(law** list, int n, const binary_law* prototype) {
    if (n < 2) {
        law_add(n == 1 ? list[0] : nullptr);
        return n == 1 ? list[0] : nullptr;
    }
    law_holder acc(prototype->make_one(list[0], list[1]));
    for (int i = 2; i < n; ++i) acc.reset(prototype->make_one(acc.get(), list[i]));
    return acc.release();
}

}  // namespace lawutil
