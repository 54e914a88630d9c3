#include "lawcode_cases.hpp"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

void add_text(std::vector<law*>& out, const char* text) {
    if (law* l = str_to_law(text)) out.push_back(l);
}

// A law of the prototype's class over `a` and the constant 0.7, by make_one.
law* instance(const law* proto, law* a, law* c) {
    if (proto->isa(unary_law::id())) return static_cast<const unary_law*>(proto)->make_one(a);
    if (proto->isa(binary_law::id())) return static_cast<const binary_law*>(proto)->make_one(a, c);
    if (proto->isa(multiple_law::id())) {
        law* parts[2] = {a, c};
        return static_cast<const multiple_law*>(proto)->make_one(parts, 2);
    }
    if (proto->isa(constant_law::id()))
        return static_cast<const constant_law*>(proto)->make_one(0.0);
    return nullptr;
}

std::vector<const law*> prototypes() {
    std::vector<const law*> r;
    for (law_list* n = law_list::head(); n; n = n->fnext())
        if (!n->fthis()->isa(unary_data_law::id()) && !n->fthis()->isa(multiple_data_law::id()))
            r.push_back(n->fthis());
    std::sort(r.begin(), r.end(), [](const law* a, const law* b) {
        return std::strcmp(a->class_name(), b->class_name()) < 0;
    });
    return r;
}

}  // namespace

void build_lawcode_cases(std::vector<law*>& out) {
    std::vector<const law*> protos = prototypes();
    law_holder a(str_to_law("0.3*X+0.2"));
    law_holder c(VORX_NEW constant_law(0.7));
    for (const law* p : protos) {
        try {
            if (law* l = instance(p, a.get(), c.get())) out.push_back(l);
        } catch (const vorx_exception&) {
        }
    }
    const char* texts[] = {"X^2+SIN(X)",
                           "(X^3-2*X+1)/(X^2+1)",
                           "EXP(-(X^2))*COS(10*X)",
                           "SQRT(1+X^2)+LN(1+X^2)",
                           "1+2*X+3*X^2+4*X^3+5*X^4+6*X^5+7*X^6+8*X^7+9*X^8",
                           "SIN(X)*COS(X)+EXP(X/3)*SINH(X/2)",
                           "X^2*Y+SIN(X*Y)+Y^3",
                           "SIN(COS(SIN(COS(X+1)+2)+3)+4)*EXP(-ABS(X))",
                           "STEP(X,0.5,X*X,0.7,1-X)",
                           "PIECEWISE(X<0.5,X*X,SIN(X))",
                           "TERM(VEC(X,X*X,3),2)",
                           "DOT(VEC(X,2,X*X),VEC(1,X,3))",
                           "D(X^3+X,0)",
                           "INTEGRATE(X*Y+SIN(Y),0.2,X*X)",
                           "DOMAIN(X*X,0,1)",
                           "LOG(X+2,3)",
                           "ARCTAN(X+0.3,0.7)",
                           "SIN(X)O(X*X)",
                           "A1+B2*Z+T",
                           "0.1+1e-300*X-2.5e+300+(-0)*X",
                           "PI*E+TRUE-FALSE",
                           "MAX(X,Y,Z,1)"};
    size_t workload_end = out.size() + 8;
    for (const char* t : texts) add_text(out, t);
    // Derivatives and simplified forms share their nodes heavily.
    for (size_t i = workload_end - 8; i < workload_end && i < out.size(); ++i) {
        for (int n : {1, 2}) {
            if (law* d = out[i]->nth_derivative(n)) out.push_back(d);
        }
        out.push_back(out[i]->simplify(2));
    }

    // Random compositions: six steps over the four leaves, each taking its arguments from
    // the laws made before it (often the same one twice), so shared subtrees abound.
    law_holder leaves[4] = {
        law_holder(VORX_NEW identity_law(0, 'X')), law_holder(VORX_NEW identity_law(1, 'Y')),
        law_holder(VORX_NEW constant_law(2.5)), law_holder(VORX_NEW constant_law(-0.125))};
    unsigned state = 12345;
    auto next = [&state](size_t n) {
        state = state * 1103515245u + 12345u;
        return (state >> 16) % (unsigned)n;
    };
    for (int made = 0; made < 250; ++made) {
        std::vector<law_holder> pool;
        for (auto& leaf : leaves) pool.push_back(leaf);
        while (pool.size() < 10) {
            const law* p = protos[next(protos.size())];
            if (p->isa(constant_law::id())) continue;
            law* x = pool[pool.size() - 1 - next(3)].get();
            law* y = next(3) == 0 ? x : pool[next(pool.size())].get();
            try {
                if (law* l = instance(p, x, y)) pool.emplace_back(l);
            } catch (const vorx_exception&) {
            }
        }
        out.push_back(pool.back().share_out());
    }
}

const double c_function_points[][3] = {{-1.7, 0.7, 0.2},  {-0.6, 0.7, -1.1}, {0.0, 0.0, 0.0},
                                       {0.35, -0.4, 1.3}, {0.5, 0.5, 0.5},   {0.8, 1.9, -0.3},
                                       {2.3, 0.7, 2.0}};
const int c_function_point_count = sizeof c_function_points / sizeof c_function_points[0];

void build_c_function_cases(std::vector<law*>& out) {
    const char* texts[] = {
        "X^2+SIN(X)", "(X^3-2*X+1)/(X^2+1)", "EXP(-(X^2))*COS(10*X)", "SQRT(1+X^2)+LN(1+X^2)",
        "1+2*X+3*X^2+4*X^3+5*X^4+6*X^5+7*X^6+8*X^7+9*X^8", "SIN(X)*COS(X)+EXP(X/3)*SINH(X/2)",
        "X^2*Y+SIN(X*Y)+Y^3", "SIN(COS(SIN(COS(X+1)+2)+3)+4)*EXP(-ABS(X))",
        // one per rule, domain errors included
        "LN(X)", "SQRT(X-0.5)", "X^0.5", "X^-2", "X^0", "X^Y", "(-2)^Y", "X^1.5*Y",
        "(X-0.5)/(X-0.5)", "1/X", "TANH(X)*COSH(Y)-ABS(X-Y)", "PI*X^3-E", "(X^2+3*X)^3",
        "-(X-Z)*(Y+2)", "X^0+X^2+X", "X-X^2-(3-X)^2", "SQRT(X*X)+LN(2)*Z", "4", "Z^7-Z^6+Z/4"};
    for (const char* t : texts) add_text(out, t);

    // Random compositions of the baked classes over X, Y and Z.
    const char* unary[] = {"SIN", "COS", "EXP", "LN", "SQRT", "ABS", "SINH", "COSH", "TANH", "-"};
    const char* binary[] = {"+", "-", "*", "/", "^"};
    unsigned state = 777;
    auto next = [&state](size_t n) {
        state = state * 1103515245u + 12345u;
        return (state >> 16) % (unsigned)n;
    };
    for (int made = 0; made < 60; ++made) {
        std::vector<std::string> pool = {"X", "Y", "Z", "0.5", "2", "3"};
        for (int step = 0; step < 5; ++step) {
            const std::string& a = pool[pool.size() - 1 - next(3)];
            const std::string& b = next(3) == 0 ? a : pool[next(pool.size())];
            if (next(2))
                pool.push_back(std::string(unary[next(10)]) + "(" + a + ")");
            else
                pool.push_back("(" + a + ")" + binary[next(5)] + "(" + b + ")");
        }
        add_text(out, pool.back().c_str());
    }
}
