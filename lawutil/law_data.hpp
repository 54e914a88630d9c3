// Non-law arguments of laws: curves, surfaces, transforms, wrapped laws, ...  A law_data
// is reference counted like a law.  It cannot be written as text: a printed law shows it
// as a numbered placeholder and hands it back beside the string (law::string_and_data).
#pragma once

#include "base/d3_stream.hpp"
#include "lawutil/law_base.hpp"

namespace lawutil {

class law_data : public vorx::VORX_OBJECT {
  public:
    law_data();
    law_data(const law_data&) = delete;
    law_data& operator=(const law_data&) = delete;

    void add() const { ++use_count; }
    // No range check, unlike law::remove.
    void remove() const;
    int ref_count() const { return use_count; }

    static int id();
    virtual int isa(int type_id) const;
    virtual int type() const;
    virtual const char* class_name() const;

  protected:
    // 0
    virtual ~law_data() noexcept(false);

  public:
    // 1, 2
    virtual void save(int& version) const = 0;
    virtual law_data* restore() const;
    // 3, 4, 5
    virtual const char* symbol(law_symbol_type type) const = 0;
    virtual char* string(law_symbol_type type = law_symbol_default,
                         int& counter = vorx::null_out_ref<int>(),
                         law_data_node*& list = vorx::null_out_ref<law_data_node*>()) const;
    virtual int date() const;
    // 6, 7, 8
    virtual law_data* deep_copy(pointer_map* pm = nullptr) const = 0;
    virtual law_data* set_domain(vorx::interval* dom) const;
    virtual void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const;
    // 9, 10
    virtual void input(vorx::D3_istream& in) = 0;
    virtual void print(vorx::D3_ostream& out) const = 0;

  protected:
    mutable int use_count;

  private:
    friend class law_data_list;
};

inline void law_data_add(const law_data* d) {
    if (d) d->add();
}
inline void law_data_remove(const law_data* d) {
    if (d) d->remove();
}

using law_data_holder = counted_ref<law_data>;
using law_data_array = counted_array<law_data>;

// A law passed where data is expected.
class law_law_data : public law_data {
    LAWUTIL_TYPE_DECL(law_law_data, law_data)
    explicit law_law_data(law* l);
    law* data_law() const { return law_; }

    void save(int&) const override {}
    const char* symbol(law_symbol_type) const override { return "LAW"; }
    // Prints as the wrapped law's text, without a placeholder number.
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    int date() const override;
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const override;
    void input(vorx::D3_istream&) override {}
    void print(vorx::D3_ostream&) const override {}

  protected:
    ~law_law_data() noexcept(false) override;

  private:
    law* law_;
};

// A node of the list of data arguments collected while printing.  Holds a reference on
// its data; destroying a node destroys the rest of the chain.
class law_data_node : public vorx::VORX_OBJECT {
  public:
    law_data_node(law_data* d, law_data_node* next, int& counter);
    ~law_data_node();
    law_data_node(const law_data_node&) = delete;
    law_data_node& operator=(const law_data_node&) = delete;
    law_data* data() const { return data_; }
    law_data_node* next() const { return next_; }

  private:
    law_data* data_;
    law_data_node* next_;
};

// One node of the library-wide list of registered data prototypes.  Registering sets the
// prototype's use count to 0: it is a static object never destroyed by counting.
class law_data_list {
  public:
    explicit law_data_list(law_data* d);
    law_data* fthis() const { return data_; }
    law_data_list* fnext() const { return next_; }
    static law_data_list* head();

  private:
    law_data* data_;
    law_data_list* next_;
};

// Registers one data prototype of T, built in static storage at load time.
template <class T>
class law_data_prototype {
  public:
    template <class... Args>
    explicit law_data_prototype(Args... args)
        : node_(::new (static_cast<void*>(storage_)) T(args...)) {}
    T* get() const { return static_cast<T*>(node_.fthis()); }

  private:
    alignas(T) unsigned char storage_[sizeof(T)];
    law_data_list node_;
};

// One cached sample of a law of one parameter with three outputs: the parameter t and
// the value and first three derivatives there, the derivatives scaled by powers of a
// scale (the length of the range a caller caches over, so they are per unit of that
// range).  The root section of the thread context holds four of them as work records.
class derivs_data {
  public:
    derivs_data() = default;

    // Stores t; P = L(t), D1 = scale*L'(t), D2 = scale^2*L''(t), D3 = scale^3*L'''(t).
    // An output left as null_out_ref<vector>() is not computed.
    void eval(const law* L, double t, double scale,
              vorx::vector& P = vorx::null_out_ref<vorx::vector>(),
              vorx::vector& D1 = vorx::null_out_ref<vorx::vector>(),
              vorx::vector& D2 = vorx::null_out_ref<vorx::vector>(),
              vorx::vector& D3 = vorx::null_out_ref<vorx::vector>());
    // eval into the sample's own four vectors.
    void set(const law* L, double t, double scale);
    // -1 when the stored parameter exceeds t by more than resmch (a later sample of an
    // ascending list cannot match either); 0 when it differs from t by resmch or more;
    // 1, with the wanted outputs copied, when it lies within resmch of t.
    int get(double t, vorx::vector& P = vorx::null_out_ref<vorx::vector>(),
            vorx::vector& D1 = vorx::null_out_ref<vorx::vector>(),
            vorx::vector& D2 = vorx::null_out_ref<vorx::vector>(),
            vorx::vector& D3 = vorx::null_out_ref<vorx::vector>()) const;
    double param() const { return t_; }

  private:
    double t_ = 0.0;
    vorx::vector p_, d1_, d2_, d3_;
};

}  // namespace lawutil
