// The argument-holding bases from which nearly every concrete law derives, and the two
// leaves.  Each base holds counted references to its arguments, prints itself, compares
// itself, copies itself deeply and rebuilds a law of the same class from new arguments
// through make_one (which each concrete class overrides).
#pragma once

#include "lawutil/law_base.hpp"

namespace lawutil {

class unary_law : public law {
    LAWUTIL_TYPE_DECL(unary_law, law)
    explicit unary_law(law* sub);
    law* fsub() const { return sub_; }

    int same(const law* a, const law* b) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    int term_domain(int which, vorx::interval& dom) const override;
    int in_domain(const double* x) const override;
    void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const override;
    void hasa(int type_id, vorx::VOID_LIST& list) const override;
    // 32: a law of the same class over `sub`; null in the base.
    virtual unary_law* make_one(law* sub) const;

  protected:
    ~unary_law() noexcept(false) override;
    int take_size() const override;
    int return_size() const override;
    law* sub_;
};

class binary_law : public law {
    LAWUTIL_TYPE_DECL(binary_law, law)
    binary_law(law* left, law* right);
    law* fleft() const { return left_; }
    law* fright() const { return right_; }

    int same(const law* a, const law* b) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    int in_domain(const double* x) const override;
    void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const override;
    void hasa(int type_id, vorx::VOID_LIST& list) const override;
    // 32-34
    virtual int associative() const;
    virtual int commutative() const;
    virtual binary_law* make_one(law* left, law* right) const;

  protected:
    ~binary_law() noexcept(false) override;
    int take_size() const override;
    int return_size() const override;
    law* left_;
    law* right_;
};

class multiple_law : public law {
    LAWUTIL_TYPE_DECL(multiple_law, law)
    // Copies the caller's array (a null array stays null and keeps the count).
    multiple_law(law** subs, int count);
    law** fsub() const { return subs_; }
    int fsub_num() const { return count_; }

    int same(const law* a, const law* b) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    int in_domain(const double* x) const override;
    void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const override;
    void hasa(int type_id, vorx::VOID_LIST& list) const override;
    // 32, 33
    virtual multiple_law* make_one(law** subs, int count) const;
    virtual int commutative() const;

  protected:
    ~multiple_law() noexcept(false) override;
    int take_size() const override;
    law** subs_;
    int count_;
};

class unary_data_law : public law {
    LAWUTIL_TYPE_DECL(unary_data_law, law)
    explicit unary_data_law(law_data* data);
    law_data* fsub() const { return data_; }

    // The same data object, or wrapped laws that are equal.
    int same(const law* a, const law* b) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const override;
    // 32
    virtual unary_data_law* make_one(law_data* data) const;

  protected:
    ~unary_data_law() noexcept(false) override;
    law_data* data_;
};

class multiple_data_law : public law {
    LAWUTIL_TYPE_DECL(multiple_data_law, law)
    multiple_data_law(law_data** data, int count);
    law_data** fsubs() const { return data_; }
    int fsize() const { return count_; }

    // Entry by entry as unary_data_law::same.
    int same(const law* a, const law* b) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const override;
    // 32
    virtual multiple_data_law* make_one(law_data** data, int count) const;

  protected:
    ~multiple_data_law() noexcept(false) override;
    law_data** data_;
    int count_;
};

// Two constants are the same law when their values differ by less than 1e-14.  While an
// exact_constants_scope lives on the thread, they are the same only when their values are
// equal.  The simplifier matches like terms this way: taking 1 and 0.99999999999999 for
// "the same A" would turn 1-0.99999999999999 into 0.
class exact_constants_scope {
  public:
    exact_constants_scope();
    ~exact_constants_scope();
    exact_constants_scope(const exact_constants_scope&) = delete;
    exact_constants_scope& operator=(const exact_constants_scope&) = delete;

  private:
    bool saved_;
};

class constant_law : public law {
    LAWUTIL_TYPE_DECL(constant_law, law)
    explicit constant_law(double value);
    double value() const { return value_; }

    void evaluate(const double*, double* y) const override { *y = value_; }
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int same(const law* a, const law* b) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    law_polynomial* polynomial(law* var) const override;
    // 32: a new constant of this class (the named constants ignore the value).
    virtual constant_law* make_one(double value) const;

  protected:
    law* deriv(int which) const override;
    int take_size() const override { return 0; }
    int return_size() const override { return 1; }
    double value_;
};

class identity_law : public law {
    LAWUTIL_TYPE_DECL(identity_law, law)
    // `index` is the 0-based input read; `letter` only affects printing.
    explicit identity_law(int index = 0, char letter = 'X');
    int fwhich() const { return index_; }
    char fletter() const { return letter_; }

    void evaluate(const double* x, double* y) const override { *y = x[index_]; }
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int same(const law* a, const law* b) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    law* deep_copy(pointer_map* pm = nullptr) const override;
    law_polynomial* polynomial(law* var) const override;

  protected:
    law* deriv(int which) const override;
    law* sub_inverse() const override;
    int take_size() const override { return index_ + 1; }
    int return_size() const override { return 1; }
    int index_;
    char letter_;
};

// The text of a number: "%.16g" (0.5 prints "0.5", 3 prints "3").  The caller frees it.
char* number_string(double value);

}  // namespace lawutil
