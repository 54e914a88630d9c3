#include "lawutil/law_data.hpp"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(law_law_data)

int law_data::id() {
    static const int type_number = new_law_id();
    return type_number;
}
int law_data::isa(int t) const {
    return t == law_data::id();
}
int law_data::type() const {
    return law_data::id();
}
const char* law_data::class_name() const {
    return "law_data";
}

law_data::law_data() : use_count(1) {}

law_data::~law_data() noexcept(false) {
    if (use_count != 0 && std::uncaught_exceptions() == 0) {
        use_count = 0;
        sys_error(BAD_LAW_DATA_USE_COUNT);
    }
}

void law_data::remove() const {
    if (--use_count == 0) delete this;
}

law_data* law_data::restore() const {
    return nullptr;
}

char* law_data::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    char suffix[16] = "";
    if (!is_null_out_ref(counter) && counter >= 0) {
        std::snprintf(suffix, sizeof suffix, "%d", counter + 1);
        // Without a caller's list the node has nowhere to live: the numbering still holds.
        if (!is_null_out_ref(list))
            list = VORX_NEW law_data_node(const_cast<law_data*>(this), list, counter);
        else
            ++counter;
    }
    const char* s = symbol(type);
    size_t n = std::strlen(s) + std::strlen(suffix) + 1;
    char* r = VORX_ALLOC_ARRAY(char, n);
    std::snprintf(r, n, "%s%s", s, suffix);
    return r;
}

int law_data::date() const {
    return 20200;
}

law_data* law_data::set_domain(interval*) const {
    add();
    return const_cast<law_data*>(this);
}

void law_data::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self && !acc.addSize(this, sizeof(*this), __FILE__, __LINE__)) return;
}

// ---------------------------------------------------------------- law_law_data

law_law_data::law_law_data(law* l) : law_(l) {
    law_add(law_);
}

law_law_data::~law_law_data() noexcept(false) {
    law_remove(law_);
}

char* law_law_data::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    return law_ ? law_->string(type, counter, list) : VORX_STRDUP("<null>");
}

int law_law_data::date() const {
    return law_ ? law_->date() : law_data::date();
}

law_data* law_law_data::deep_copy(pointer_map* pm) const {
    pointer_map_scope scope(pm);
    law_holder copy(pm_get_law(scope.get(), law_));
    return VORX_NEW law_law_data(copy.get());
}

void law_law_data::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self && !acc.addSize(this, sizeof(*this), __FILE__, __LINE__)) return;
    if (law_) law_->full_size(acc, 1);
}

// ---------------------------------------------------------------- law_data_node

law_data_node::law_data_node(law_data* d, law_data_node* next, int& counter)
    : data_(d), next_(next) {
    ++counter;
    law_data_add(data_);
}

law_data_node::~law_data_node() {
    law_data_remove(data_);
    // Iteratively, so a long chain cannot exhaust the stack.
    law_data_node* n = next_;
    next_ = nullptr;
    while (n) {
        law_data_node* after = n->next_;
        n->next_ = nullptr;
        delete n;
        n = after;
    }
}

// ---------------------------------------------------------------- registry

namespace {
law_data_list* law_data_list_head = nullptr;
}

law_data_list::law_data_list(law_data* d) : data_(d), next_(law_data_list_head) {
    law_data_list_head = this;
    if (d) d->use_count = 0;
}

law_data_list* law_data_list::head() {
    return law_data_list_head;
}

// ---------------------------------------------------------------- derivs_data

void derivs_data::eval(const law* L, double t, double scale, vector& P, vector& D1, vector& D2,
                       vector& D3) {
    t_ = t;
    if (!is_null_out_ref(P)) P = L->evaluateR_V(t);
    vector* derivs[3] = {&D1, &D2, &D3};
    double factor = 1.0;
    for (int n = 1; n <= 3; ++n) {
        factor *= scale;
        if (!is_null_out_ref(*derivs[n - 1])) *derivs[n - 1] = L->evaluateDR_V(t, n) * factor;
    }
}

void derivs_data::set(const law* L, double t, double scale) {
    eval(L, t, scale, p_, d1_, d2_, d3_);
}

int derivs_data::get(double t, vector& P, vector& D1, vector& D2, vector& D3) const {
    if (t_ - t > resmch) return -1;
    if (std::fabs(t_ - t) >= resmch) return 0;
    if (!is_null_out_ref(P)) P = p_;
    if (!is_null_out_ref(D1)) D1 = d1_;
    if (!is_null_out_ref(D2)) D2 = d2_;
    if (!is_null_out_ref(D3)) D3 = d3_;
    return 1;
}

}  // namespace lawutil
