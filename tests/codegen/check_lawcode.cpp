// Runs the generated rebuilding code: each rebuilt law must equal its original, print the
// same text, keep the original's sharing (as many distinct nodes), and nothing may leak.
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_set>

#include "lawcode_cases.hpp"

extern const int generated_law_count;
extern law* (*const generated_laws[])();
extern const char* const generated_law_texts[];

namespace {

// Distinct nodes of a law graph.
void count_nodes(const law* l, std::unordered_set<const law*>& seen) {
    if (!l || !seen.insert(l).second) return;
    if (l->isa(unary_law::id())) count_nodes(static_cast<const unary_law*>(l)->fsub(), seen);
    if (l->isa(binary_law::id())) {
        count_nodes(static_cast<const binary_law*>(l)->fleft(), seen);
        count_nodes(static_cast<const binary_law*>(l)->fright(), seen);
    }
    if (l->isa(multiple_law::id()))
        for (int i = 0; i < static_cast<const multiple_law*>(l)->fsub_num(); ++i)
            count_nodes(static_cast<const multiple_law*>(l)->fsub()[i], seen);
}

size_t nodes(const law* l) {
    std::unordered_set<const law*> seen;
    count_nodes(l, seen);
    return seen.size();
}

std::string text(const law* l) {
    char* s = l->string();
    std::string r = s;
    VORX_FREE(s);
    return r;
}

}  // namespace

int main() {
    initialize_law();
    int live_before = law::how_many_laws;
    int failures = 0;
    {
        std::vector<law*> cases;
        build_lawcode_cases(cases);
        if ((int)cases.size() != generated_law_count) {
            std::printf("%zu cases built, %d generated\n", cases.size(), generated_law_count);
            return 1;
        }
        for (int i = 0; i < generated_law_count; ++i) {
            law_holder original(cases[i]);
            law_holder rebuilt(generated_laws[i]());
            std::string t = text(original.get());
            const char* why = nullptr;
            if (!rebuilt || !(*rebuilt == *original))
                why = "not equal";
            else if (text(rebuilt.get()) != t || t != generated_law_texts[i])
                why = "prints differently";
            else if (nodes(rebuilt.get()) != nodes(original.get()))
                why = "sharing differs";
            else if (rebuilt->ref_count() != 1)
                why = "wrong use count";
            if (why) {
                std::printf("case %d (%s): %s\n", i, t.c_str(), why);
                ++failures;
            }
        }
    }
    if (law::how_many_laws != live_before) {
        std::printf("%d laws leaked\n", law::how_many_laws - live_before);
        ++failures;
    }
    terminate_law();
    std::printf("%d laws rebuilt from generated code, %d failures\n", generated_law_count,
                failures);
    return failures ? 1 : 0;
}
