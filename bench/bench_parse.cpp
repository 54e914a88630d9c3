// Reading time against text length, 1 KB to 1 MB, for each shape of text.
//
// "Balanced": a sum of terms grouped in parentheses two by two, so the law tree stays
// shallow (depth about log2 of the number of terms) however long the text.  "Flat": the
// left-nested chain T+T+...+T, whose tree is as deep as it has terms; the reader refuses
// nesting deeper than 2,500, so flat sums stop at 2,000 terms (16 KB).  "Deep": up to
// 2,000 parenthesised levels (((C+1)+1)...+1) around a balanced core C that makes up the
// rest of the length.  "Args": one call MAX(T1,T2,...) with as many arguments as fit.
// "Nested": up to 2,000 nested calls SIN(MAX(X,COS(...C...))) around a balanced core.
// The native side is one pass that upper-cases the text into a buffer, the least any
// reader of it does; `x_native` is reading time over that pass's time.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <string>
#include <vector>

#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

const char* const terms[] = {"SIN(X)*1.25", "X^2", "COS(Y)/3", "EXP(-X)", "2*X+1"};

// A parenthesised sum of terms first..first+n-1.
void balanced(std::string& out, int first, int n) {
    if (n == 1) {
        out += terms[first % 5];
        return;
    }
    out += '(';
    balanced(out, first, n / 2);
    out += '+';
    balanced(out, first + n / 2, n - n / 2);
    out += ')';
}

std::string balanced_text(size_t bytes) {
    int n = 1;
    std::string s;
    do {
        n *= 2;
        s.clear();
        balanced(s, 0, n);
    } while (s.size() < bytes);
    return s;
}

std::string flat_text(size_t bytes) {
    std::string s = terms[0];
    for (int k = 1; s.size() < bytes && k < 2000; ++k) (s += '+') += terms[k % 5];
    return s;
}

// `levels` levels of open and close around a balanced core that fills the rest of `bytes`.
std::string wrapped_text(size_t bytes, const char* const open[], const char* const close[],
                         int kinds) {
    size_t levels = std::min<size_t>(2000, bytes / 32);
    std::string head, tail;
    for (size_t k = 0; k < levels; ++k) {
        head += open[k % kinds];
        tail.insert(0, close[k % kinds]);
    }
    return head + balanced_text(bytes - std::min(bytes, head.size() + tail.size())) + tail;
}

std::string deep_text(size_t bytes) {
    const char* const open[] = {"("};
    const char* const close[] = {"+1)"};
    return wrapped_text(bytes, open, close, 1);
}

std::string nested_text(size_t bytes) {
    const char* const open[] = {"SIN(", "MAX(X,", "COS("};
    const char* const close[] = {")", ")", ")"};
    return wrapped_text(bytes, open, close, 3);
}

std::string args_text(size_t bytes) {
    std::string s = "MAX(";
    for (int k = 0; s.size() < bytes; ++k) (s += terms[k % 5]) += ',';
    s.back() = ')';
    return s;
}

double native_seconds(const std::string& text) {
    std::vector<char> buf(text.size() + 1);
    auto start = std::chrono::steady_clock::now();
    for (int r = 0; r < 20; ++r) {
        for (size_t i = 0; i < text.size(); ++i)
            buf[i] = (char)std::toupper((unsigned char)text[i]);
        benchmark::DoNotOptimize(buf.data());
        benchmark::ClobberMemory();
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / 20;
}

void run(benchmark::State& state, const std::string& text) {
    initialize_law();
    double seconds = 0;
    long reads = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        law_holder l(str_to_law(text.c_str()));
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        ++reads;
        if (!l) state.SkipWithError("not read");
    }
    state.counters["bytes"] = (double)text.size();
    state.counters["x_native"] = seconds / reads / native_seconds(text);
    state.SetBytesProcessed((int64_t)(reads * text.size()));
    terminate_law();
}

void BM_ReadBalanced(benchmark::State& state) {
    run(state, balanced_text(state.range(0)));
}
void BM_ReadFlat(benchmark::State& state) {
    run(state, flat_text(state.range(0)));
}
void BM_ReadDeep(benchmark::State& state) {
    run(state, deep_text(state.range(0)));
}
void BM_ReadArgs(benchmark::State& state) {
    run(state, args_text(state.range(0)));
}
void BM_ReadNested(benchmark::State& state) {
    run(state, nested_text(state.range(0)));
}

}  // namespace

BENCHMARK(BM_ReadBalanced)
    ->RangeMultiplier(4)
    ->Range(1 << 10, 1 << 20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadFlat)->RangeMultiplier(2)->Range(1 << 10, 1 << 14)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadDeep)->RangeMultiplier(4)->Range(1 << 10, 1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadArgs)->RangeMultiplier(4)->Range(1 << 10, 1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadNested)
    ->RangeMultiplier(4)
    ->Range(1 << 10, 1 << 20)
    ->Unit(benchmark::kMillisecond);
