// Special points of curves of equilibria.
#include "branches/codimension_two.hpp"

#include <algorithm>
#include <cmath>
#include <string>

#include "branches/normal_forms.hpp"

namespace trajex {
namespace {

void add(Finding& finding, const char* name, const Estimate& estimate) {
    finding.coefficients.push_back({name, estimate.value, estimate.error});
}

void judge(Finding& finding, bool determined, const char* coefficients) {
    finding.subtype = determined ? "generic" : "undetermined";
    if (!determined) finding.reason = std::string(coefficients) + " vanishes within its error";
}

}  // namespace

void name_cusp(Forms& forms, Finding& finding) {
    const ZeroForm form = cusp_form(forms);
    add(finding, "c", form.c);
    add(finding, "a", form.a);
    finding.null_vectors = {form.q, form.p};
    judge(finding, form.c.determined(), "c");
}

void name_takens_bogdanov(Forms& forms, Finding& finding) {
    const TakensBogdanovForm form = takens_bogdanov_form(forms);
    add(finding, "a", form.a);
    add(finding, "b", form.b);
    finding.null_vectors = {form.q0, form.q1, form.p0, form.p1};
    judge(finding, form.a.determined() && form.b.determined(), "a or b");
}

void name_bautin(Forms& forms, double omega, Finding& finding) {
    const BautinForm form = bautin_form(forms, omega);
    add(finding, "l2", form.l2);
    add(finding, "Re c2", form.re_c2);
    if (form.l2.determined()) {
        finding.subtype = form.l2.value < 0 ? "supercritical" : "subcritical";
        return;
    }
    finding.subtype = "undetermined";
    finding.reason =
        std::isnan(form.l2.value)
            ? "l2 needs derivatives of fifth order, which a generic right-hand side has"
            : "l2 vanishes within its error";
}

double least_frequency(const Spectrum& spectrum) {
    const Exponent* best = nullptr;
    for (const Exponent& e : spectrum) {
        if (e.kind != Exponent::Kind::pair) continue;
        if (best == nullptr || std::abs(e.value.real()) < std::abs(best->value.real())) best = &e;
    }
    return best == nullptr ? 0 : std::abs(best->value.imag());
}

void remove_zero(Spectrum& spectrum) {
    if (spectrum.empty()) return;
    const auto smaller = [](const Exponent& a, const Exponent& b) {
        return std::abs(a.value) < std::abs(b.value);
    };
    const auto zero = std::min_element(spectrum.begin(), spectrum.end(), smaller);
    const Exponent gone = *zero;
    spectrum.erase(zero);
    const auto other = std::min_element(spectrum.begin(), spectrum.end(), smaller);
    if (other == spectrum.end()) return;
    const bool partner = gone.kind == Exponent::Kind::pair;
    if (!partner && other->kind != Exponent::Kind::real) return;
    other->value = other->value.real() + gone.value.real();
    other->kind = Exponent::Kind::real;
}

}  // namespace trajex
