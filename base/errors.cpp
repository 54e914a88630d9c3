#include "base/errors.hpp"

#include <atomic>
#include <mutex>

namespace vorx {

namespace {

// Each module owns a block of global numbers starting at a multiple of this.
constexpr int module_block = 1000;
constexpr int max_modules = 64;

struct module_registry {
    std::mutex mutex;
    const message_module* modules[max_modules] = {};
    int next_block = 1;
};

module_registry& registry() {
    static module_registry r;
    return r;
}

thread_local int warnings[64];
thread_local int warnings_n = 0;
thread_local error_save error_mark;
std::atomic<bool> interrupted{false};

const message_list base_messages[] = {
    {"Message index out of range", "VORX_BAD_MESSAGE_INDEX"},
    {"Interrupted by the user", "VORX_INTERRUPTED"},
    {"Bad argument", "VORX_BAD_ARGUMENT"},
    {nullptr, nullptr},
};

}  // namespace

message_module baseutil_errorbase_errmod("baseutil", base_messages);

message_module::message_module(const char* name, const message_list* list)
    : name_(name), list_(list), count_(0), first_code_(0) {
    while (list_ && list_[count_].message) ++count_;
    module_registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    int blocks = count_ / module_block + 1;
    first_code_ = r.next_block * module_block;
    r.next_block += blocks;
    for (auto& m : r.modules)
        if (!m) {
            m = this;
            break;
        }
}

message_module::~message_module() {
    module_registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (auto& m : r.modules)
        if (m == this) m = nullptr;
}

int message_module::message_code(int index) const {
    if (index < 0 || index >= count_) {
        if (this == &baseutil_errorbase_errmod) return first_code_;
        return baseutil_errorbase_errmod.message_code(0);
    }
    return first_code_ + index;
}

const message_list* message_module::entry(int index) const {
    return (index >= 0 && index < count_) ? &list_[index] : nullptr;
}

const message_module* find_message_module(int code) {
    module_registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (const message_module* m : r.modules)
        if (m && code >= m->first_code() && code < m->first_code() + m->count()) return m;
    return nullptr;
}

const char* find_message(int code) {
    const message_module* m = find_message_module(code);
    return m ? m->entry(code - m->first_code())->message : "Unknown error";
}

const char* find_message_name(int code) {
    const message_module* m = find_message_module(code);
    return m ? m->entry(code - m->first_code())->code_name : "UNKNOWN_ERROR";
}

vorx_exception::vorx_exception(int code, error_info* info) : code_(code), info_(info) {}

vorx_exception::vorx_exception(const vorx_exception& other)
    : std::exception(other), code_(other.code_), info_(other.info_) {
    if (info_) info_->add();
}

vorx_exception& vorx_exception::operator=(const vorx_exception& other) {
    if (other.info_) other.info_->add();
    if (info_) info_->remove();
    code_ = other.code_;
    info_ = other.info_;
    return *this;
}

vorx_exception::~vorx_exception() {
    if (info_) info_->remove();
}

const char* vorx_exception::what() const noexcept {
    return find_message(code_);
}

void sys_error(int code, error_info* info) {
    throw vorx_exception(code, info);
}

void sys_warning(int code) {
    if (warnings_n < (int)(sizeof warnings / sizeof warnings[0])) warnings[warnings_n++] = code;
}
int warning_count() {
    return warnings_n;
}
int warning_code(int i) {
    return (i >= 0 && i < warnings_n) ? warnings[i] : 0;
}
void clear_warnings() {
    warnings_n = 0;
}

error_save& get_error_mark() {
    return error_mark;
}
void error_begin() {
    ++error_mark.depth;
}
void error_end() {
    if (error_mark.depth > 0) --error_mark.depth;
}

bool vorx_interrupted() {
    return interrupted.load(std::memory_order_relaxed);
}
void set_vorx_interrupted(bool on) {
    interrupted.store(on, std::memory_order_relaxed);
}

}  // namespace vorx
