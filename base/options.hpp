// Named run-time options with integer values.  Each is a static option_header made when
// its library is loaded; hosts and tests find one by name and read or set it.
#pragma once

#include <atomic>

namespace vorx {

class option_header {
  public:
    option_header(const char* name, int value);
    ~option_header();
    option_header(const option_header&) = delete;
    option_header& operator=(const option_header&) = delete;

    const char* name() const { return name_; }
    int count() const { return value_.load(std::memory_order_relaxed); }
    int value() const { return count(); }
    int default_value() const { return default_; }
    void set(int v) { value_.store(v, std::memory_order_relaxed); }
    void reset() { set(default_); }
    bool on() const { return count() != 0; }

  private:
    const char* name_;
    int default_;
    std::atomic<int> value_;
};

// The option of that name, or null.
option_header* find_option(const char* name);

// Sets an option for the lifetime of the guard; restores the previous value afterwards.
class option_guard {
  public:
    option_guard(const char* name, int value);
    ~option_guard();
    option_guard(const option_guard&) = delete;
    option_guard& operator=(const option_guard&) = delete;

  private:
    option_header* opt_;
    int saved_;
};

}  // namespace vorx
