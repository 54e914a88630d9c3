// Errors of the kernel's base library.
//
// An error is a global number handed out by a message_module.  sys_error raises it as a
// C++ exception (vorx_exception) and never returns; the error-mark functions below are
// thin shims kept for code that brackets clean-up work, and resolve to nothing more than
// C++ unwinding plus a per-thread nesting count.
#pragma once

#include <exception>

#include "memory.hpp"

namespace vorx {

// One {message text, code name} entry of a module's table.  A table ends with an entry
// whose text is null.
struct message_list {
    const char* message;
    const char* code_name;
};

// A named table of messages.  Constructing it assigns the module a block of global error
// numbers; message_code(index) turns a local index into the global number.
class message_module {
  public:
    message_module(const char* name, const message_list* list);
    ~message_module();
    message_module(const message_module&) = delete;
    message_module& operator=(const message_module&) = delete;

    // The global number of entry `index`.  An index outside the table yields the base
    // library's VORX_BAD_MESSAGE_INDEX code, so a bad index still raises a clear error.
    int message_code(int index) const;
    int count() const { return count_; }
    const char* name() const { return name_; }
    const message_list* entry(int index) const;
    int first_code() const { return first_code_; }

  private:
    const char* name_;
    const message_list* list_;
    int count_;
    int first_code_;
};

// The text of a global error number; "Unknown error" for numbers no module owns.
const char* find_message(int code);
// The code name of a global error number (e.g. "LAW_TAN"); "UNKNOWN_ERROR" when unknown.
const char* find_message_name(int code);
// The module that owns a global error number, or null.
const message_module* find_message_module(int code);

// Detail attached to an error; reference counted.
class error_info : public VORX_OBJECT {
  public:
    error_info() = default;
    virtual ~error_info() = default;
    void add() { ++use_count_; }
    void remove() {
        if (--use_count_ == 0) delete this;
    }
    int ref_count() const { return use_count_; }

  private:
    int use_count_ = 1;
};

class vorx_exception : public std::exception {
  public:
    explicit vorx_exception(int code, error_info* info = nullptr);
    vorx_exception(const vorx_exception& other);
    vorx_exception& operator=(const vorx_exception& other);
    ~vorx_exception() override;
    int code() const noexcept { return code_; }
    const char* what() const noexcept override;
    const char* code_name() const noexcept { return find_message_name(code_); }
    error_info* info() const noexcept { return info_; }

  private:
    int code_;
    error_info* info_;
};

// Raise `code`; does not return.  The exception takes over the caller's reference to
// `info` (if any).
[[noreturn]] void sys_error(int code, error_info* info = nullptr);

// Record a warning and return.  Warnings accumulate per thread until cleared.
void sys_warning(int code);
int warning_count();
int warning_code(int i);
void clear_warnings();

// Error marks.  error_begin/error_end bracket a region; exception_save restores the
// region's nesting depth when it is left, normally or by an error.
struct error_save {
    int depth = 0;
};
error_save& get_error_mark();
void error_begin();
void error_end();
class exception_save {
  public:
    exception_save() : saved_(get_error_mark().depth) {}
    ~exception_save() { get_error_mark().depth = saved_; }
    exception_save(const exception_save&) = delete;
    exception_save& operator=(const exception_save&) = delete;

  private:
    int saved_;
};

// Polled by long loops; a host sets it to ask running work to stop.
bool vorx_interrupted();
void set_vorx_interrupted(bool on);

// The base library's own module.
extern message_module baseutil_errorbase_errmod;
#define VORX_BAD_MESSAGE_INDEX ::vorx::baseutil_errorbase_errmod.message_code(0)
#define VORX_INTERRUPTED ::vorx::baseutil_errorbase_errmod.message_code(1)
#define VORX_BAD_ARGUMENT ::vorx::baseutil_errorbase_errmod.message_code(2)

}  // namespace vorx
