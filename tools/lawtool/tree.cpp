#include "tools/lawtool/tree.hpp"

#include "lawutil/global_names.hpp"
#include "lawutil/internal_law.hpp"
#include "lawutil/law_data.hpp"
#include "tools/lawtool/law_text.hpp"

namespace {

// A node of the drawing: a law or a data argument (at most one of the two is set; a null
// argument has neither).
struct node {
    const law* l = nullptr;
    const law_data* d = nullptr;
};

std::vector<node> children(const node& n) {
    std::vector<node> kids;
    auto add_law = [&kids](const law* l) { kids.push_back(node{l, nullptr}); };
    auto add_data = [&kids](const law_data* d) { kids.push_back(node{nullptr, d}); };
    if (const law* l = n.l) {
        if (l->isa(unary_law::id())) {
            add_law(static_cast<const unary_law*>(l)->fsub());
        } else if (l->isa(binary_law::id())) {
            add_law(static_cast<const binary_law*>(l)->fleft());
            add_law(static_cast<const binary_law*>(l)->fright());
        } else if (l->isa(multiple_law::id())) {
            const multiple_law* m = static_cast<const multiple_law*>(l);
            for (int i = 0; i < m->fsub_num(); ++i) add_law(m->fsub() ? m->fsub()[i] : nullptr);
        } else if (l->isa(unary_data_law::id())) {
            add_data(static_cast<const unary_data_law*>(l)->fsub());
        } else if (l->isa(multiple_data_law::id())) {
            const multiple_data_law* m = static_cast<const multiple_data_law*>(l);
            for (int i = 0; i < m->fsize(); ++i) add_data(m->fsubs() ? m->fsubs()[i] : nullptr);
        }
    } else if (const law_data* d = n.d) {
        if (d->isa(law_law_data::id())) add_law(static_cast<const law_law_data*>(d)->data_law());
    }
    return kids;
}

// The symbol of a law class, or "" for a class that has none (printing it would raise).
std::string safe_symbol(const law* l) {
    try {
        const char* s = l->symbol(law_symbol_default);
        return s ? s : "";
    } catch (const vorx_exception&) {
        return "";
    }
}

std::string label(const node& n, bool leaf) {
    std::string shown;
    std::string name;
    if (n.l) {
        name = n.l->class_name();
        if (leaf) {
            try {
                shown = law_text(n.l);
            } catch (const vorx_exception&) {
            }
        } else {
            shown = safe_symbol(n.l);
        }
    } else if (n.d) {
        name = n.d->class_name();
        if (!n.d->isa(law_law_data::id())) shown = n.d->symbol(law_symbol_default);
    } else {
        return "(null)";
    }
    return shown.empty() ? name : name + " (" + shown + ")";
}

void draw(const node& n, const std::string& lead, const std::string& branch, std::string& out) {
    std::vector<node> kids = children(n);
    out += lead + branch + label(n, kids.empty()) + "\n";
    // Below a "|-- " the parent's line goes on; below a "`-- " it has ended.
    std::string next = lead + (branch.empty() ? "" : branch == "|-- " ? "|   " : "    ");
    for (size_t i = 0; i < kids.size(); ++i)
        draw(kids[i], next, i + 1 < kids.size() ? "|-- " : "`-- ", out);
}

int count(const node& n) {
    int total = 1;
    for (const node& k : children(n)) total += count(k);
    return total;
}

void collect_names(const node& n, std::vector<std::string>& names) {
    if (n.l && n.l->isa(identity_law::id())) {
        const identity_law* x = static_cast<const identity_law*>(n.l);
        size_t i = (size_t)x->fwhich();
        if (i < names.size() && names[i].empty()) names[i] = law_text(x);
    }
    for (const node& k : children(n)) collect_names(k, names);
}

}  // namespace

std::string draw_tree(const law* l) {
    std::string out;
    draw(node{l, nullptr}, "", "", out);
    return out;
}

int count_nodes(const law* l) {
    return count(node{l, nullptr});
}

std::vector<std::string> input_names(const law* l) {
    int n = l->take_dim();
    std::vector<std::string> names((size_t)(n > 0 ? n : 1));
    collect_names(node{l, nullptr}, names);
    static const char* const plain[] = {"X", "Y", "Z"};
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i].empty()) names[i] = i < 3 ? plain[i] : "X" + std::to_string(i + 1);
    return names;
}
