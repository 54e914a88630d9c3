// The law: an immutable, reference-counted function object from take_dim() reals to
// return_dim() reals.
//
// Ownership: a law is created with a use count of 1 owned by its creator; every holder
// calls add() when it keeps a pointer and remove() when it drops it; the last remove()
// destroys the law.  Every function that returns a law* hands the caller one reference.
// A pointer that a law keeps to *itself* in one of its caches (simplified form, inverse,
// a derivative slot, the compiled form it owns once evaluated often) is never counted, or
// the law would keep itself alive.
//
// A law never changes its meaning after construction.  Only its caches fill in later,
// through const operations; they are the mutable fields below.  A law tree is used by
// one thread at a time.
#pragma once

#include <atomic>

#include "base/errors.hpp"
#include "base/lists.hpp"
#include "base/memory.hpp"
#include "base/null_ref.hpp"
#include "base/position.hpp"
#include "lawutil/main_law_err.hpp"

namespace vorx {
class interval;
class matrix;
class transf;
class complex_number;
class nvector;
}  // namespace vorx

namespace lawutil {

class law;
class law_data;
class law_data_node;
class law_polynomial;
class law_program;
class pointer_map;

// Selects a spelling when printing: 0 is the library's own upper-case syntax (the one
// str_to_law reads); any other value is the Maple spelling.
enum law_symbol_type { law_symbol_default = 0, law_symbol_maple = 1 };

// The next type number of the library-wide counter (the first is 1).
int new_law_id();

// Live law_tiering_off scopes (law_tier.hpp), read by evaluateM_R.
extern std::atomic<int> law_tiering_off_scopes;

// Declares a class's type identity: its static id() (a type number drawn lazily from
// new_law_id), isa() answering its own id and then its base's, type() and class_name().
// Pair it with LAWUTIL_TYPE_DEF(cls) in the class's source file.  Leaves access public.
#define LAWUTIL_TYPE_DECL(cls, base_cls)           \
  public:                                          \
    static int id();                               \
    int isa(int t) const override {                \
        return t == cls::id() || base_cls::isa(t); \
    }                                              \
    int type() const override {                    \
        return cls::id();                          \
    }                                              \
    const char* class_name() const override {      \
        return #cls;                               \
    }

// Declares a class's singularities override (the list is documented at law::singularities).
#define LAWUTIL_SINGULARITIES_DECL                                          \
    int singularities(double** where, int** type, double start, double end, \
                      double** period = nullptr) const override;

#define LAWUTIL_TYPE_DEF(cls)                                   \
    int cls::id() {                                             \
        static const int type_number = ::lawutil::new_law_id(); \
        return type_number;                                     \
    }

class law : public vorx::VORX_OBJECT {
  public:
    // Count of live laws (registered prototypes are not counted).
    static std::atomic<int> how_many_laws;

    law();
    // Used only inside subclass copies: copies every field word for word.
    law(const law& other);
    law& operator=(const law& other);

    // Reference counting.  Member calls need a live object: C++ gives a call through a
    // null pointer no meaning, so add() and remove() do not test `this`.  The null-safe
    // forms are the free functions law_add and law_remove (and law_holder).
    void add() const { ++use_count; }
    void remove() const;
    int ref_count() const { return use_count; }

    static int id();

    // Equality: the same object, or the same type and same() says so.
    int operator==(const law& other) const;
    int operator!=(const law& other) const { return !(*this == other); }

  protected:
    // ---- virtual operations, in slot order ----
    // 0: the symbolic derivative in input `which`, or null when the class has none.
    virtual law* deriv(int which) const;
    // 1: the inverse function, or null.
    virtual law* sub_inverse() const;
    // 2, 3: the dimensions, computed (cached by take_dim/return_dim).
    virtual int take_size() const;
    virtual int return_size() const;
    // 4
    virtual ~law() noexcept(false);

  public:
    // 5: the cached, simplified partial derivative in input `which`.
    virtual law* derivative(int which = 0) const;
    // 6-8: raw evaluation; `y` has return_dim() entries.
    virtual void evaluate(const double* x, double* y) const;
    virtual void evaluate_with_side(const double* x, double* y, const int* side) const;
    virtual void evaluate_with_guess(const double* x, double* y, const double* guess) const;
    // 9: evaluation into a newly allocated array of return_dim() values (null when 0).
    virtual void evaluateVAR(const double* x, double*& y, int& n) const;
    // 10-12
    virtual int isa(int type_id) const;
    virtual int type() const;
    virtual const char* class_name() const;
    // 13, 14: cached dimensions.
    virtual int return_dim() const;
    virtual int take_dim() const;
    // 15-18: text form.
    virtual const char* symbol(law_symbol_type type = law_symbol_default) const;
    virtual int precedence() const;
    virtual int same(const law* a, const law* b) const;
    virtual char* string(law_symbol_type type = law_symbol_default,
                         int& counter = vorx::null_out_ref<int>(),
                         law_data_node*& list = vorx::null_out_ref<law_data_node*>()) const;
    // 19
    virtual int date() const;
    // 20: a copy with the same sharing as this tree; `pm` null starts a new map.
    virtual law* deep_copy(pointer_map* pm = nullptr) const;
    // 21: this law as a polynomial in `var` (null: in its own variable), a new
    // law_polynomial the caller deletes; null when it is not one (polylaw.hpp).
    virtual law_polynomial* polynomial(law* var) const;
    // 22-26: domains.
    virtual int term_domain(int which, vorx::interval& dom) const;
    virtual int in_domain(const double* x) const;
    // The isolated singular points of a law of one input over [start, end]: two parallel
    // arrays, positions ascending and a kind code each (law_singularity_kind, root.hpp):
    // -1 pole, 0 jump in value, 1 break where the value is continuous.  The arrays (and
    // `period`, a one-element array given only when a periodic list was cut to one period
    // because the range holds too many points) belong to the caller; null when empty.
    // Reported where it is cheap and exact, for arguments linear in the input:
    //   -1: TAN, SEC (argument a non-zero multiple of pi/2: they reduce by pi/2 steps),
    //       COT, CSC (at k*pi), COTH, CSCH (at 0),
    //       A/B at the zero of a linear B where A is not 0, B^c (c < 0 constant) at the
    //       zero of a linear B;
    //    0: FLOOR, CEIL (argument whole), A MOD c (A a multiple of c), the comparisons
    //       <, >, <=, >=, =, != of linear sides where they switch, STEP and PIECEWISE
    //       breaks whose sides differ there;
    //    1: ABS (argument 0), STEP and PIECEWISE breaks whose sides agree there.
    // Negation, sums, differences and products pass on their operands' points, AND / OR
    // their conditions', A/B and B^c their A's or B's, STEP and PIECEWISE those of the
    // part in force at the point.  Every other law reports none.
    virtual int singularities(double** where, int** type, double start, double end,
                              double** period = nullptr) const;
    virtual law* set_domain(vorx::interval* dom, int flag = 0) const;
    virtual law* set_range(vorx::interval* range, int flag = 0) const;
    // 27: one simplification step of this class's own rules, or null; `what` names it.
    virtual law* sub_simplify(int level, const char*& what) const;
    // 28, 29
    virtual law* enable_branching() const;
    virtual int branches() const;
    // 30, 31
    virtual void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const;
    virtual void hasa(int type_id, vorx::VOID_LIST& list) const;

    // ---- dimensions, read from the caches ----
    // The hot path asks for "one output" through this: a cache read, no virtual call
    // once the cache is filled.
    bool returns_scalar() const {
        return return_dim_cache >= 0 ? return_dim_cache == 1 : return_dim() == 1;
    }

    // ---- evaluation (input form _ output form) ----
    double evaluateM_R(const double* x, const int* side = nullptr,
                       const double* guess = nullptr) const {
        // A law evaluated often runs its program's machine code, called from here: it
        // never raises (a point it does not take goes to this law's tree, tree_value).
        if (tier_native && !side && !guess &&
            law_tiering_off_scopes.load(std::memory_order_relaxed) == 0)
            return tier_native(x);
        // Constants and variables, half the nodes of a typical tree, are read here
        // without a virtual call.
        if (leaf_kind == leaf_constant) return leaf_value;
        if (leaf_kind == leaf_variable) return x[leaf_index];
        if (!returns_scalar()) raise_not_scalar();
        // The arithmetic and function laws hand their value back in a register, with no
        // store and reload and no second call through dispatch.  Counted: one evaluated
        // often runs its compiled form from then on (tier_value, law_tier.cpp).
        if (leaf_kind == node_direct && !side && !guess) {
            if (__builtin_expect(--tier_countdown < 0, 0)) return tier_value(x);
            return scalar_value(x);
        }
        double y;
        dispatch(x, &y, side, guess);
        return y;
    }
    // One output, checked first as evaluateM_R does (LAW_EVALS); then one input: a law
    // that reads more than one cannot be fed (LAW_DIM).
    double eval(double x, const int& side = vorx::null_ref<int>(),
                const double& guess = vorx::null_ref<double>()) const {
        if (!returns_scalar()) raise_not_scalar();
        if (take_dim_cache > 1 || (take_dim_cache < 0 && take_dim() > 1)) raise_bad_dim();
        return evaluateM_R(&x, vorx::null_ref_ptr(side), vorx::null_ref_ptr(guess));
    }
    double evaluateC_R(const vorx::complex_number& z, const int* side = nullptr,
                       const double* guess = nullptr) const;
    double evaluateNV_R(const vorx::nvector& x, const int* side = nullptr,
                        const double* guess = nullptr) const;
    vorx::vector evaluateR_V(double x, const int& side = vorx::null_ref<int>(),
                             const double& guess = vorx::null_ref<double>()) const;
    vorx::unit_vector evaluateR_UV(double x, const int& side = vorx::null_ref<int>(),
                                   const double& guess = vorx::null_ref<double>()) const;
    vorx::vector evaluateM_V(const double* x, const int* side = nullptr,
                             const double* guess = nullptr) const;
    vorx::position evaluateR_P(double x, const int& side = vorx::null_ref<int>(),
                               const double& guess = vorx::null_ref<double>()) const;
    vorx::position evaluateM_P(const double* x, const int* side = nullptr,
                               const double* guess = nullptr) const;
    vorx::position evaluateP_P(const vorx::position& p, const int* side = nullptr,
                               const double* guess = nullptr) const;
    vorx::position evaluateNV_P(const vorx::nvector& x, const int* side = nullptr,
                                const double* guess = nullptr) const;
    vorx::vector evaluateNV_V(const vorx::nvector& x, const int* side = nullptr,
                              const double* guess = nullptr) const;
    vorx::par_pos evaluateM_PP(const double* x, const int* side = nullptr,
                               const double* guess = nullptr) const;
    vorx::par_pos evaluateP_PP(const vorx::position& p, const int* side = nullptr,
                               const double* guess = nullptr) const;
    vorx::position evaluatePP_P(const vorx::par_pos& uv, const int* side = nullptr,
                                const double* guess = nullptr) const;
    vorx::vector evaluatePP_V(const vorx::par_pos& uv, const int* side = nullptr,
                              const double* guess = nullptr) const;
    vorx::matrix evaluateM_MAT(const double* x) const;
    vorx::transf evaluateM_T(const double* x) const;

    // Values of derivatives in the first input.
    double evaluateDM_R(const double* x, int n, const int* side = nullptr,
                        const double* guess = nullptr) const;
    void evaluateDM(const double* x, double* y, int n, const int* side = nullptr,
                    const double* guess = nullptr) const;
    double evaluateDR_R(double t, int n, const int& side = vorx::null_ref<int>(),
                        const double& guess = vorx::null_ref<double>()) const;
    vorx::vector evaluateDR_V(double t, int n, const int& side = vorx::null_ref<int>(),
                              const double& guess = vorx::null_ref<double>()) const;

    // The value at x of a law with one output, without side or guess: what evaluate
    // stores.  Only called on laws whose constructor set leaf_kind to node_direct, which
    // override it (a class deriving from them keeps their evaluation).
    virtual double scalar_value(const double* x) const {
        double y;
        evaluate(x, &y);
        return y;
    }

    // Evaluation with the side/guess rule: side alone, guess alone, else plain.
    void dispatch(const double* x, double* y, const int* side, const double* guess) const {
        if (side && !guess)
            evaluate_with_side(x, y, side);
        else if (guess && !side)
            evaluate_with_guess(x, y, guess);
        else
            evaluate(x, y);
    }

    // ---- tiered evaluation (law_tier.cpp) ----
    // Plain scalar evaluations through evaluateM_R after which a law of the arithmetic
    // and function families compiles itself (law_evaluator's threshold).
    static constexpr int tier_after = 512;
    // The law's own compiled form once it has compiled itself; null before, and for a
    // law that stays on its tree (for tests and benchmarks).
    const law_program* tier_program() const { return own_program; }
    // The value at x by the law's tree alone, never its own program: where that program's
    // machine code does not take a point (a domain test, a zero-over-zero division, a
    // call-back that raised), the tree gives the value or raises its own exception.  Only
    // for laws of the arithmetic and function families.
    double tree_value(const double* x) const;

    // ---- derivative and inverse caches ----
    int cached_derivative(int which) const;
    int has_derivative(int which) const;
    int set_derivative(int which, law* d, int share = 1) const;
    void reset_derivative(int which) const;
    law* nth_derivative(int n) const;
    law* uv_partials(int nu, int nv) const;
    law* inverse() const;
    void set_inverse(law* l) const;

    // ---- simplification (cached per law) ----
    law* simplify(int level = 1, int trace = 0) const;

    // ---- classification, cached in property_level/non_property_level ----
    int zero(double tol = 0.0) const;
    int integer() const;
    int constant() const;
    int linear() const;

    // Text with the data arguments in placeholder order (the caller owns the text, the
    // array and one reference on each element).
    char* string_and_data(law_data*** data, int* count,
                          law_symbol_type type = law_symbol_default) const;

  protected:
    // Fields, in this order.
    mutable int use_count;
    mutable int property_level;
    mutable int non_property_level;
    mutable law* simplified;
    mutable int simplify_level;
    mutable law** dlaw_cache;
    mutable int dlaw_cache_size;
    mutable law* inverse_law;
    mutable int take_dim_cache;
    mutable int return_dim_cache;

    // Evaluation shortcut of the two leaf classes and of the laws with a scalar_value
    // of their own (set by their constructors; a class deriving from them keeps their
    // evaluation).
    enum : signed char { leaf_none = 0, leaf_constant = 1, leaf_variable = 2, node_direct = 3 };
    signed char leaf_kind = leaf_none;
    // The arithmetic node kinds that arith_evaluator (main_law_arith.cpp) evaluates
    // without a virtual call, set by their constructors; op_none for every other law.
    enum : signed char {
        op_none = 0,
        op_plus = 1,
        op_minus = 2,
        op_times = 3,
        op_divide = 4,
        op_power = 5,
        op_negate = 6,
        // The one-argument functions that the same evaluator computes in place, with
        // their own checks and codes (law_unary.cpp), when their argument returns one value.
        op_sqrt = 7,
        op_ln = 8,
        op_exp = 9,
        op_sin = 10,
        op_cos = 11,
        op_sinh = 12,
        op_cosh = 13,
        op_tanh = 14,
        op_abs = 15
    };
    signed char arith_op = op_none;
    // How arith_evaluator evaluates an arithmetic node (0: not decided yet): decided at
    // its first scalar evaluation from its kind, its operands' shapes (the dimensions are
    // caches that fill in lazily) and its constant operands, and kept, since a law never
    // changes.
    mutable signed char eval_form = 0;
    // How a function node of the evaluator reads its argument (a variable, c*V, V/c, V*W
    // or any other law), decided with eval_form.
    mutable signed char arg_form = 0;
    // Plain scalar evaluations left before tier_value is called (see law_tier.cpp).
    mutable int tier_countdown = tier_after;
    // Link of the list of laws waiting to be destroyed (see destroy_released).
    mutable const law* next_dead = nullptr;
    int leaf_index = 0;
    // Whether the law has decided on compiling itself (it is not asked again).
    mutable bool tier_decided = false;
    double leaf_value = 0.0;
    // The compiled form that evaluateM_R runs, owned by the law (law_tier.cpp), and its
    // machine code where it has some.
    mutable law_program* own_program = nullptr;
    mutable double (*tier_native)(const double*) = nullptr;

    // Stores `l` in a cache slot: counted unless it is this law itself.
    void store_cached(law*& slot, law* l) const;
    void release_cached(law*& slot) const;

  private:
    friend class law_list;
    friend class arith_evaluator;
    [[noreturn]] void raise_not_scalar() const;
    double tier_value(const double* x) const;
    double tier_raised(const double* x) const;
    [[gnu::noinline]] double tier_decide(const double* x) const;
    void release_tier() const;
    static void destroy_released(const law* l);
    [[noreturn]] void raise_bad_dim() const;
    void set_dlaw_cache(int which) const;
};

// Null-safe reference counting.
inline void law_add(const law* l) {
    if (l) l->add();
}
inline void law_remove(const law* l) {
    if (l) l->remove();
}

// Holds one reference to a counted object (a law or a law_data) and releases it when it
// goes, also when an error passes.  It adopts a reference handed to it (adopt) or takes
// one of its own (share).
template <class T>
class counted_ref {
  public:
    counted_ref() noexcept : p_(nullptr) {}
    // Adopts the reference the caller was handed (from make_one, derivative, ...).
    explicit counted_ref(T* adopted) noexcept : p_(adopted) {}
    static counted_ref share(const T* p) {
        if (p) p->add();
        return counted_ref(const_cast<T*>(p));
    }
    counted_ref(const counted_ref& o) : p_(o.p_) {
        if (p_) p_->add();
    }
    counted_ref(counted_ref&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
    counted_ref& operator=(counted_ref o) noexcept {
        T* t = p_;
        p_ = o.p_;
        o.p_ = t;
        return *this;
    }
    ~counted_ref() {
        if (p_) p_->remove();
    }

    T* get() const noexcept { return p_; }
    T* operator->() const noexcept { return p_; }
    T& operator*() const noexcept { return *p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

    // Hands the reference to the caller.
    T* release() noexcept {
        T* t = p_;
        p_ = nullptr;
        return t;
    }
    // Adopts `adopted` and drops the old reference (in that order: they may be related).
    void reset(T* adopted = nullptr) {
        T* old = p_;
        p_ = adopted;
        if (old) old->remove();
    }
    // A copy of the pointer with a reference of its own for the caller.
    T* share_out() const {
        if (p_) p_->add();
        return p_;
    }

  private:
    T* p_;
};

using law_holder = counted_ref<law>;

// A scratch array of counted references: each slot adopts what is stored in it, and the
// references and the array are released when it goes, also when an error passes.
template <class T>
class counted_array {
  public:
    explicit counted_array(int n) : n_(n > 0 ? n : 0), items_(VORX_ALLOC_ARRAY(T*, n_ ? n_ : 1)) {
        for (int i = 0; i < n_; ++i) items_[i] = nullptr;
    }
    ~counted_array() {
        for (int i = 0; i < n_; ++i)
            if (items_[i]) items_[i]->remove();
        VORX_FREE(items_);
    }
    counted_array(const counted_array&) = delete;
    counted_array& operator=(const counted_array&) = delete;

    void set(int i, T* adopted) {
        T* old = items_[i];
        items_[i] = adopted;
        if (old) old->remove();
    }
    T* operator[](int i) const { return items_[i]; }
    T** get() const { return items_; }
    int size() const { return n_; }

  private:
    int n_;
    T** items_;
};

using law_array = counted_array<law>;

// One node of the library-wide list of registered law prototypes, searched by the parser.
// Registering a prototype sets its use count to 0: it is never destroyed by counting.
class law_list {
  public:
    explicit law_list(law* l);
    law* fthis() const { return law_; }
    law_list* fnext() const { return next_; }
    static law_list* head();

  private:
    law* law_;
    law_list* next_;
};

// Registers one prototype of T, built in static storage at load time and never destroyed.
template <class T>
class law_prototype {
  public:
    template <class... Args>
    explicit law_prototype(Args... args) : node_(::new (static_cast<void*>(storage_)) T(args...)) {}
    T* get() const { return static_cast<T*>(node_.fthis()); }

  private:
    alignas(T) unsigned char storage_[sizeof(T)];
    law_list node_;
};

// ---- deep copy: the pointer map hooks ----
// The map records, per source object, the copy made of it, so shared sub-trees stay
// shared in the copy.  The library installs a default map; a host may install its own.
typedef pointer_map* (*make_pointer_map_func)();
typedef void (*destroy_pointer_map_func)(pointer_map*);
typedef law* (*pm_get_law_func)(pointer_map*, const law*);
typedef law_data* (*pm_get_law_data_func)(pointer_map*, const law_data*);

pointer_map* make_pointer_map();
void destroy_pointer_map(pointer_map* pm);
law* pm_get_law(pointer_map* pm, const law* l);
law_data* pm_get_law_data(pointer_map* pm, const law_data* d);
// A null function restores the library's default.
void set_make_pointer_map_func(make_pointer_map_func f);
void set_destroy_pointer_map_func(destroy_pointer_map_func f);
void set_pm_get_law_func(pm_get_law_func f);
void set_pm_get_law_data_func(pm_get_law_data_func f);

// A pointer map owned for the duration of a deep copy: made when the caller passed none,
// destroyed on the way out, also when an error passes.
class pointer_map_scope {
  public:
    explicit pointer_map_scope(pointer_map* given)
        : pm_(given ? given : make_pointer_map()), owned_(given == nullptr) {}
    ~pointer_map_scope() {
        if (owned_) destroy_pointer_map(pm_);
    }
    pointer_map_scope(const pointer_map_scope&) = delete;
    pointer_map_scope& operator=(const pointer_map_scope&) = delete;
    pointer_map* get() const { return pm_; }

  private:
    pointer_map* pm_;
    bool owned_;
};

}  // namespace lawutil
