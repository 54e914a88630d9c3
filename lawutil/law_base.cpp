#include "lawutil/law_base.hpp"

#include <cstring>
#include <exception>
#include <unordered_map>

#include "base/output.hpp"
#include "lawutil/law_data.hpp"
#include "lawutil/main_law.hpp"

using namespace vorx;

namespace lawutil {

std::atomic<int> law::how_many_laws{0};

namespace {
std::atomic<int> law_id_counter{0};
}

int new_law_id() {
    return ++law_id_counter;
}

int law::id() {
    static const int type_number = new_law_id();
    return type_number;
}

// ---------------------------------------------------------------- life cycle

law::law()
    : use_count(1),
      property_level(0),
      non_property_level(0),
      simplified(nullptr),
      simplify_level(-1),
      dlaw_cache(nullptr),
      dlaw_cache_size(0),
      inverse_law(nullptr),
      take_dim_cache(-1),
      return_dim_cache(-1) {
    int n = ++how_many_laws;
    if (law_mem_check_on())
        vorx_fprintf(debug_file_ptr, "Create %x %d\n", (unsigned)(size_t)this, n);
}

law::law(const law& other) : VORX_OBJECT(other) {
    *this = other;
    int n = ++how_many_laws;
    if (law_mem_check_on())
        vorx_fprintf(debug_file_ptr, "Create %x %d\n", (unsigned)(size_t)this, n);
}

law& law::operator=(const law& other) {
    use_count = other.use_count;
    property_level = other.property_level;
    non_property_level = other.non_property_level;
    simplified = other.simplified;
    simplify_level = other.simplify_level;
    dlaw_cache = other.dlaw_cache;
    dlaw_cache_size = other.dlaw_cache_size;
    inverse_law = other.inverse_law;
    take_dim_cache = other.take_dim_cache;
    return_dim_cache = other.return_dim_cache;
    leaf_kind = other.leaf_kind;
    leaf_index = other.leaf_index;
    leaf_value = other.leaf_value;
    return *this;
}

void law::remove() const {
    // Catches removal of a destroyed or corrupt law.
    if (use_count < 0 || use_count > 1000000000) sys_error(BAD_LAW_USE_COUNT);
    if (--use_count != 0) return;
    int n = --how_many_laws;
    if (law_mem_check_on())
        vorx_fprintf(debug_file_ptr, "Delete %x %d\n", (unsigned)(size_t)this, n);
    destroy_released(this);
}

namespace {
// Laws whose last reference went while another law was being destroyed.  Destroying
// them from one loop, instead of from inside their parent's destructor, keeps the stack
// flat however deep the tree is (a chain of a million laws is released in one frame).
thread_local const law* dead_head = nullptr;
thread_local bool destroying = false;
}  // namespace

void law::destroy_released(const law* l) {
    if (destroying) {
        l->next_dead = dead_head;
        dead_head = l;
        return;
    }
    struct drain_scope {
        drain_scope() { destroying = true; }
        ~drain_scope() { destroying = false; }
    } scope;
    delete l;
    while (dead_head) {
        const law* next = dead_head;
        dead_head = next->next_dead;
        delete next;
    }
}

law::~law() noexcept(false) {
    release_tier();
    for (int i = 0; i < dlaw_cache_size; ++i) release_cached(dlaw_cache[i]);
    VORX_FREE(dlaw_cache);
    dlaw_cache = nullptr;
    dlaw_cache_size = 0;
    release_cached(simplified);
    release_cached(inverse_law);
    // Reported last, so the caches above are released whatever happens; never while
    // another error is already unwinding.
    if (use_count != 0 && std::uncaught_exceptions() == 0) {
        use_count = 0;
        sys_error(BAD_LAW_USE_COUNT);
    }
}

void law::store_cached(law*& slot, law* l) const {
    if (l && l != this) l->add();
    law* old = slot;
    slot = l;
    if (old && old != this) old->remove();
}

void law::release_cached(law*& slot) const {
    law* old = slot;
    slot = nullptr;
    if (old && old != this) old->remove();
}

// ---------------------------------------------------------------- identity and equality

int law::isa(int t) const {
    return t == law::id();
}
int law::type() const {
    return law::id();
}
const char* law::class_name() const {
    return "law";
}

int law::operator==(const law& other) const {
    if (this == &other) return 1;
    if (other.type() != type()) return 0;
    return same(this, &other) ? 1 : 0;
}

int law::same(const law*, const law*) const {
    return 0;
}

// ---------------------------------------------------------------- base behaviour

law* law::deriv(int) const {
    return nullptr;
}
law* law::sub_inverse() const {
    return nullptr;
}
int law::take_size() const {
    return 1;
}
int law::return_size() const {
    return 1;
}

void law::evaluate(const double*, double*) const {
    sys_error(LAW_EVAL);
}
void law::evaluate_with_side(const double* x, double* y, const int*) const {
    evaluate(x, y);
}
void law::evaluate_with_guess(const double* x, double* y, const double*) const {
    evaluate(x, y);
}

int law::return_dim() const {
    if (return_dim_cache < 0) return_dim_cache = return_size();
    return return_dim_cache;
}

int law::take_dim() const {
    if (take_dim_cache < 0) take_dim_cache = take_size();
    return take_dim_cache;
}

const char* law::symbol(law_symbol_type) const {
    sys_error(LAW_SYMBOL);
}

int law::precedence() const {
    return 8;
}

char* law::string(law_symbol_type, int&, law_data_node*&) const {
    return VORX_STRDUP("<null>");
}

int law::date() const {
    return 20200;
}

law* law::deep_copy(pointer_map*) const {
    sys_error(LAW_DEEP_COPY);
}

law_polynomial* law::polynomial(law*) const {
    return nullptr;
}

int law::term_domain(int, interval&) const {
    return 0;
}

int law::in_domain(const double*) const {
    return 1;
}

int law::singularities(double** where, int** type, double, double, double** period) const {
    // No law of the core knows a singularity; laws that do override this.
    if (where) *where = nullptr;
    if (type) *type = nullptr;
    if (period) *period = nullptr;
    return 0;
}

// law::set_domain lives beside the domain laws it builds, in law_logic.cpp.
law* law::set_range(interval*, int) const {
    return nullptr;
}
law* law::sub_simplify(int, const char*&) const {
    return nullptr;
}
law* law::enable_branching() const {
    return nullptr;
}
int law::branches() const {
    return 0;
}

void law::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self && !acc.addSize(this, sizeof(law), __FILE__, __LINE__)) return;
    if (simplified && simplified != this) simplified->full_size(acc, 1);
    if (dlaw_cache) {
        acc.addSize(dlaw_cache, (unsigned)(sizeof(law*) * dlaw_cache_size), __FILE__, __LINE__);
        for (int i = 0; i < dlaw_cache_size; ++i)
            if (dlaw_cache[i] && dlaw_cache[i] != this) dlaw_cache[i]->full_size(acc, 1);
    }
}

void law::hasa(int type_id, VOID_LIST& list) const {
    if (isa(type_id)) list.add(const_cast<law*>(this));
}

// ---------------------------------------------------------------- registry

namespace {
// Constant-initialised, so registrations made during load see a valid head whatever the
// order in which the library's files are initialised.
law_list* law_list_head = nullptr;
}  // namespace

law_list::law_list(law* l) : law_(l), next_(law_list_head) {
    law_list_head = this;
    if (l) {
        l->use_count = 0;
        // A prototype is not a live law of the program.
        --law::how_many_laws;
    }
}

law_list* law_list::head() {
    return law_list_head;
}

// ---------------------------------------------------------------- pointer map

// Maps each source object (law or data) to its copy; holds one reference on each copy.
class pointer_map : public VORX_OBJECT {
  public:
    struct entry {
        void* copy;
        bool is_law;
    };
    std::unordered_map<const void*, entry, std::hash<const void*>, std::equal_to<const void*>,
                       vorx_std_allocator<std::pair<const void* const, entry>>>
        copies;

    ~pointer_map() {
        for (auto& kv : copies) {
            if (kv.second.is_law)
                static_cast<law*>(kv.second.copy)->remove();
            else
                static_cast<law_data*>(kv.second.copy)->remove();
        }
    }
};

namespace {

pointer_map* default_make_pointer_map() {
    return VORX_NEW pointer_map;
}

void default_destroy_pointer_map(pointer_map* pm) {
    delete pm;
}

law* default_pm_get_law(pointer_map* pm, const law* l) {
    if (!l) return nullptr;
    auto it = pm->copies.find(l);
    if (it != pm->copies.end()) {
        law* c = static_cast<law*>(it->second.copy);
        c->add();
        return c;
    }
    law_holder copy(l->deep_copy(pm));
    if (!copy) return nullptr;
    pm->copies.emplace(l, pointer_map::entry{copy.get(), true});
    copy->add();  // the map keeps one reference, the caller the other
    return copy.release();
}

law_data* default_pm_get_law_data(pointer_map* pm, const law_data* d) {
    if (!d) return nullptr;
    auto it = pm->copies.find(d);
    if (it != pm->copies.end()) {
        law_data* c = static_cast<law_data*>(it->second.copy);
        c->add();
        return c;
    }
    law_data_holder copy(d->deep_copy(pm));
    if (!copy) return nullptr;
    pm->copies.emplace(d, pointer_map::entry{copy.get(), false});
    copy->add();
    return copy.release();
}

std::atomic<make_pointer_map_func> make_pm_hook{nullptr};
std::atomic<destroy_pointer_map_func> destroy_pm_hook{nullptr};
std::atomic<pm_get_law_func> get_law_hook{nullptr};
std::atomic<pm_get_law_data_func> get_law_data_hook{nullptr};

}  // namespace

pointer_map* make_pointer_map() {
    make_pointer_map_func f = make_pm_hook.load();
    return f ? f() : default_make_pointer_map();
}

void destroy_pointer_map(pointer_map* pm) {
    if (!pm) return;
    destroy_pointer_map_func f = destroy_pm_hook.load();
    f ? f(pm) : default_destroy_pointer_map(pm);
}

law* pm_get_law(pointer_map* pm, const law* l) {
    pm_get_law_func f = get_law_hook.load();
    return f ? f(pm, l) : default_pm_get_law(pm, l);
}

law_data* pm_get_law_data(pointer_map* pm, const law_data* d) {
    pm_get_law_data_func f = get_law_data_hook.load();
    return f ? f(pm, d) : default_pm_get_law_data(pm, d);
}

void set_make_pointer_map_func(make_pointer_map_func f) {
    make_pm_hook.store(f);
}
void set_destroy_pointer_map_func(destroy_pointer_map_func f) {
    destroy_pm_hook.store(f);
}
void set_pm_get_law_func(pm_get_law_func f) {
    get_law_hook.store(f);
}
void set_pm_get_law_data_func(pm_get_law_data_func f) {
    get_law_data_hook.store(f);
}

}  // namespace lawutil
