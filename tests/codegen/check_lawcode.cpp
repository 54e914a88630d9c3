// Runs the generated rebuilding code: each rebuilt law must equal its original, print the
// same text, keep the original's sharing (as many distinct nodes), and nothing may leak.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_set>

#include "lawcode_cases.hpp"

extern const int generated_law_count;
extern law* (*const generated_laws[])();
extern const char* const generated_law_texts[];
extern const int generated_eval_count;
extern const generated_eval generated_evals[];

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

bool close(double a, double b, double tol) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    if (std::isinf(a) || std::isinf(b)) return a == b;
    return std::fabs(a - b) <= tol * (1.0 + std::fabs(b));
}

// The generated function against the tree at every sample point: the same status where
// the tree raises (a 0/0 the tree resolves is reported as LAW_LHOSPITAL), the same value
// and the symbolic derivatives where it does not.
int check_eval(int i, const law* l) {
    int failures = 0;
    int n = l->take_dim();
    for (int k = 0; k < c_function_point_count; ++k) {
        const double* x = c_function_points[k];
        double tree = 0, value = 0, alone = 0, gradient[3] = {0, 0, 0};
        int code = 0;
        try {
            l->evaluate(x, &tree);
        } catch (const vorx_exception& e) {
            code = e.code();
        }
        int status = generated_evals[i].with_gradient(x, &value, gradient);
        int status_alone = generated_evals[i].value_only(x, &alone);
        const char* why = nullptr;
        if (status != status_alone)
            why = "status differs without the gradient";
        else if (status && law_c_status_error(status) == LAW_LHOSPITAL)
            continue;
        else if (law_c_status_error(status) != code)
            why = "status differs from the tree's error";
        else if (!code && (!close(value, tree, 1e-12) || !close(alone, tree, 1e-12)))
            why = "value differs";
        for (int j = 0; !why && !code && j < n; ++j) {
            double d;
            try {
                law_holder dl(l->derivative(j));
                d = dl->evaluateM_R(x);
            } catch (const vorx_exception&) {
                continue;
            }
            if (!close(gradient[j], d, 1e-9)) why = "derivative differs";
        }
        if (why) {
            std::printf(
                "eval case %d (%s) at (%g, %g, %g): %s: status %d, value %.17g, tree %.17g\n", i,
                text(l).c_str(), x[0], x[1], x[2], why, status, value, tree);
            ++failures;
        }
    }
    return failures;
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
        std::vector<law*> evals;
        build_c_function_cases(evals);
        if ((int)evals.size() != generated_eval_count) {
            std::printf("%zu evaluation cases built, %d generated\n", evals.size(),
                        generated_eval_count);
            return 1;
        }
        for (int i = 0; i < generated_eval_count; ++i) {
            law_holder l(evals[i]);
            failures += check_eval(i, l.get());
        }
    }
    if (law::how_many_laws != live_before) {
        std::printf("%d laws leaked\n", law::how_many_laws - live_before);
        ++failures;
    }
    terminate_law();
    std::printf("%d laws rebuilt and %d evaluated from generated code, %d failures\n",
                generated_law_count, generated_eval_count, failures);
    return failures ? 1 : 0;
}
