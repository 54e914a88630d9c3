// Optional reference arguments.  Where an optional `const T&` is absent, callers pass
// NULL_REF(T): a reference to one well-defined sentinel object per type, never a reference
// bound to null.  is_null_ref tells the callee the argument was left out.
#pragma once

namespace vorx {

template <class T>
const T& null_ref() {
    static const T sentinel{};
    return sentinel;
}

template <class T>
bool is_null_ref(const T& r) {
    return &r == &null_ref<T>();
}

// Pointer form: null when the reference is the sentinel, else its address.
template <class T>
const T* null_ref_ptr(const T& r) {
    return is_null_ref(r) ? nullptr : &r;
}

#define NULL_REF(T) ::vorx::null_ref<T>()

// Sentinel for an optional *output* reference (`int&`, `T*&`).  A callee that finds the
// sentinel uses a local object instead and never writes through it.
template <class T>
T& null_out_ref() {
    static T sentinel{};
    return sentinel;
}

template <class T>
bool is_null_out_ref(const T& r) {
    return &r == &null_out_ref<T>();
}

}  // namespace vorx
