#include "base/options.hpp"

#include <cstring>
#include <mutex>

namespace vorx {

namespace {
constexpr int max_options = 256;
struct option_registry {
    std::mutex mutex;
    option_header* options[max_options] = {};
};
option_registry& registry() {
    static option_registry r;
    return r;
}
}  // namespace

option_header::option_header(const char* name, int value)
    : name_(name), default_(value), value_(value) {
    option_registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (auto& o : r.options)
        if (!o) {
            o = this;
            break;
        }
}

option_header::~option_header() {
    option_registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (auto& o : r.options)
        if (o == this) o = nullptr;
}

option_header* find_option(const char* name) {
    if (!name) return nullptr;
    option_registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (option_header* o : r.options)
        if (o && std::strcmp(o->name(), name) == 0) return o;
    return nullptr;
}

option_guard::option_guard(const char* name, int value) : opt_(find_option(name)), saved_(0) {
    if (opt_) {
        saved_ = opt_->count();
        opt_->set(value);
    }
}

option_guard::~option_guard() {
    if (opt_) opt_->set(saved_);
}

}  // namespace vorx
