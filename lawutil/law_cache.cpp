// The caches of a law: partial derivatives, inverse, and the zero/integer/constant/linear
// classification.  Each is filled once, through const operations, and kept for the life
// of the law.
#include <cmath>
#include <cstring>

#include "base/interval.hpp"
#include "lawutil/internal_law.hpp"
#include "lawutil/law_data.hpp"
#include "lawutil/simplfy.hpp"

using namespace vorx;

namespace lawutil {

// ---------------------------------------------------------------- derivatives

void law::set_dlaw_cache(int which) const {
    if (which + 1 <= dlaw_cache_size) return;
    law** grown = VORX_ALLOC_ARRAY(law*, which + 1);
    for (int i = 0; i < which + 1; ++i) grown[i] = i < dlaw_cache_size ? dlaw_cache[i] : nullptr;
    VORX_FREE(dlaw_cache);
    dlaw_cache = grown;
    dlaw_cache_size = which + 1;
}

law* law::derivative(int which) const {
    if (which < 0) sys_error(LAW_DERIV);
    set_dlaw_cache(which);
    if (!dlaw_cache[which]) {
        derivative_build build;
        law_holder d(deriv(which));
        law_holder s(d ? d->simplify(1, 0) : nullptr);
        if (!s) sys_error(LAW_DERIV);
        // Equal subtrees of the new derivative become one object: the next derivative
        // is built from this one, and the simplifier meets each shared part once.
        s.reset(share_equal_subtrees(s.get(), 1));
        store_cached(dlaw_cache[which], s.get());
        derivative_build::note_cache(this);
    }
    law* r = dlaw_cache[which];
    r->add();
    return r;
}

int law::cached_derivative(int which) const {
    return which >= 0 && which < dlaw_cache_size && dlaw_cache[which] != nullptr;
}

int law::has_derivative(int which) const {
    law_holder d(deriv(which));
    return d ? 1 : 0;
}

int law::set_derivative(int which, law* d, int share) const {
    if (which < 0) return 0;
    set_dlaw_cache(which);
    if (share || !d || d == this)
        store_cached(dlaw_cache[which], d);
    else {
        law_holder copy(d->deep_copy(nullptr));
        store_cached(dlaw_cache[which], copy.get());
    }
    return 1;
}

void law::reset_derivative(int which) const {
    if (which >= 0 && which < dlaw_cache_size && dlaw_cache[which])
        release_cached(dlaw_cache[which]);
}

law* law::nth_derivative(int n) const {
    derivative_build build;
    law_holder cur = law_holder::share(this);
    for (int i = 0; i < n; ++i) cur.reset(cur->derivative(0));
    return cur.release();
}

law* law::uv_partials(int nu, int nv) const {
    derivative_build build;
    law_holder cur = law_holder::share(this);
    for (int i = 0; i < nu; ++i) cur.reset(cur->derivative(0));
    for (int i = 0; i < nv; ++i) cur.reset(cur->derivative(1));
    return cur.release();
}

// ---------------------------------------------------------------- inverse

law* law::inverse() const {
    if (!inverse_law) {
        law_holder inv(sub_inverse());
        if (inv) store_cached(inverse_law, inv.get());
    }
    law_add(inverse_law);
    return inverse_law;
}

void law::set_inverse(law* l) const {
    store_cached(inverse_law, l);
}

// ---------------------------------------------------------------- classification

int law::zero(double tol) const {
    if (non_property_level >= 1) return 0;
    if (property_level == 1) return 1;
    if (constant() && return_dim() == 1) {
        double probe = 0.112334;
        interval dom;
        if (term_domain(0, dom) && dom.finite()) probe = dom.mid_pt();
        double v = evaluateM_R(&probe);
        if (std::fabs(v) <= tol) {
            property_level = 1;
            return 1;
        }
    }
    non_property_level = 1;
    return 0;
}

int law::integer() const {
    if (non_property_level >= 2) return 0;
    if (property_level == 1 || property_level == 2) return 1;
    if (constant()) {
        double one = 1.0;
        double v = return_dim() == 1 ? evaluateM_R(&one) : 0.5;
        if (std::fabs(v) < 2147483647.0 && v == (double)(int)v) {
            property_level = 2;
            return 1;
        }
    }
    non_property_level = 2;
    return 0;
}

int law::constant() const {
    if (non_property_level >= 3) return 0;
    if (property_level >= 1 && property_level <= 3) return 1;
    // A law that reads no input does not depend on it.  The simplified form is asked, so
    // X-X counts as constant once the simplifier has reduced it.
    law_holder s(simplify(1, 0));
    if (s && s->take_dim() == 0) {
        property_level = 3;
        return 1;
    }
    non_property_level = 3;
    return 0;
}

int law::linear() const {
    if (non_property_level >= 4) return 0;
    if (property_level >= 1 && property_level <= 4) return 1;
    {
        law_holder probe(deriv(0));
        if (!probe) return 0;
    }
    law_holder d(derivative(0));
    law_holder s(d->simplify(1, 0));
    if (s && s->constant()) {
        property_level = 4;
        return 1;
    }
    non_property_level = 4;
    return 0;
}

// ---------------------------------------------------------------- text with its data

char* law::string_and_data(law_data*** data, int* count, law_symbol_type type) const {
    int counter = 0;
    law_data_node* list = nullptr;
    struct list_guard {
        law_data_node*& l;
        ~list_guard() { delete l; }
    } guard{list};
    char* text = string(type, counter, list);
    law_data** arr = VORX_ALLOC_ARRAY(law_data*, counter > 0 ? counter : 1);
    // The head holds the data numbered last.
    int i = counter;
    for (law_data_node* n = list; n && i > 0; n = n->next()) {
        arr[--i] = n->data();
        arr[i]->add();
    }
    if (data)
        *data = arr;
    else {
        for (int k = 0; k < counter; ++k) arr[k]->remove();
        VORX_FREE(arr);
    }
    if (count) *count = counter;
    return text;
}

}  // namespace lawutil
