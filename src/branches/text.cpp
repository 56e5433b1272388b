// Results as text, for people: numbers short, the one value that a bifurcation is located in long.
#include "branches/text.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

#include "branches/access.hpp"

namespace trajex {

namespace {

constexpr int short_digits = 6;  // of states and eigenvalues
constexpr int long_digits = 12;  // of the parameters of a special point

std::string complex_text(std::complex<double> value, int digits) {
    if (value.imag() == 0) return number_text(value.real(), digits);
    const char* sign = value.imag() < 0 ? " - " : " + ";
    return number_text(value.real(), digits) + sign + number_text(std::abs(value.imag()), digits) +
           "i";
}

/// "X = 1, Y = 2"
std::string assignments(const std::vector<std::string>& names, const std::vector<double>& values,
                        int digits) {
    std::string text;
    for (std::size_t i = 0; i < names.size() && i < values.size(); ++i) {
        text += (i > 0 ? ", " : "") + names[i] + " = " + number_text(values[i], digits);
    }
    return text;
}

std::string varied_parameters(const PointData& point, const std::vector<std::size_t>& vary) {
    std::string text;
    for (const std::size_t p : vary) {
        text += (text.empty() ? "" : ", ") + point.model->parameters[p] + " = " +
                number_text(point.description.parameters[p], long_digits);
    }
    return text;
}

/// The exponent nearest to the border of stability: what decides, or has just decided.
const Exponent* critical_exponent(const Spectrum& spectrum) {
    const auto nearest =
        std::min_element(spectrum.begin(), spectrum.end(), [](const auto& a, const auto& b) {
            return std::abs(a.value.real()) < std::abs(b.value.real());
        });
    return nearest == spectrum.end() ? nullptr : &*nearest;
}

/// The eigenvalue or, of a cycle, the multiplier nearest to the border of stability.
std::string critical_text(const PointData& point) {
    const Exponent* critical = critical_exponent(point.spectrum);
    if (critical == nullptr) return "";
    const auto index = static_cast<std::size_t>(critical - point.spectrum.data());
    const bool cycle = point.kind != SolutionKind::equilibrium;
    std::complex<double> value = cycle ? point.multipliers[index] : critical->value;
    if (cycle && !std::isfinite(value.real()))  // not within a double
        return (value.real() < 0 ? "-e^" : "e^") +
               number_text(critical->value.real(), short_digits);
    if (critical->kind == Exponent::Kind::pair) value.imag(std::abs(value.imag()));
    // What is zero to rounding is printed as zero.
    const double scale = std::abs(value);
    if (!cycle && std::abs(value.real()) < 1e-9 * std::max(scale, 1e-3)) value.real(0);
    std::string text = complex_text(value, short_digits);
    const auto sign = text.find(" + ");
    if (critical->kind == Exponent::Kind::pair && sign != std::string::npos) {
        text.replace(sign, 3, " +- ");  // the conjugate goes with it
    }
    return text;
}

std::string verdict(const SpecialData& special) {
    const Finding& finding = special.finding;
    std::string text = finding.criticality;
    if (!finding.subtype.empty()) text += (text.empty() ? "" : " ") + finding.subtype;
    if (finding.status != "located") text += (text.empty() ? "" : ", ") + finding.status;
    if (!finding.reason.empty()) text += ": " + finding.reason;
    return text;
}

std::string_view stability(std::size_t unstable) {
    return unstable == 0 ? "stable" : "unstable";
}

}  // namespace

std::string number_text(double value, int digits) {
    char text[40];
    const auto end = digits > 0 ? std::to_chars(text, text + sizeof text, value,
                                                std::chars_format::general, digits)
                                : std::to_chars(text, text + sizeof text, value);
    return {text, end.ptr};
}

std::string point_text(const PointData& point) {
    constexpr const char* kinds[] = {"equilibrium", "cycle", "forced cycle"};
    const Model& model = *point.model;
    std::string text = kinds[static_cast<int>(point.kind)];
    if (point.status != "found") return text + " " + point.status + ": " + point.reason;
    const std::string parameters =
        assignments(model.parameters, point.description.parameters, short_digits);
    if (!parameters.empty()) text += " at " + parameters;
    text += ": " + assignments(model.states, point.state, short_digits);
    if (point.description.period > 0) {
        text += ", period " + number_text(point.description.period, short_digits);
    }
    const std::size_t unstable = unstable_exponents(point.spectrum);
    text += "; ";
    text += stability(unstable);
    if (unstable > 0) text += " (" + std::to_string(unstable) + ")";
    return text;
}

std::string special_text(const SpecialData& special, const BranchData& branch) {
    const PointData& point = special.point;
    std::string text = special.id + "  " + varied_parameters(point, branch.vary) + "  (" +
                       assignments(point.model->states, point.state, short_digits) + ")";
    if (point.description.period > 0) {
        text += "  period " + number_text(point.description.period, short_digits);
    }
    for (const Finding::Coefficient& coefficient : special.finding.coefficients) {
        text += "  " + coefficient.name + " = " + number_text(coefficient.value, short_digits);
    }
    const std::string words = verdict(special);
    return words.empty() ? text : text + "  " + words;
}

std::string branch_text(const BranchData& branch) {
    std::string text = branch.id.empty() ? branch.kind : branch.id + "  " + branch.kind;
    text += " in";
    for (std::size_t k = 0; k < branch.vary.size(); ++k) {
        text += (k > 0 ? ", " : " ") + branch.vary_names[k];
        if (branch.size() == 0) continue;
        const std::vector<double>& column = branch.columns[1 + k];
        text += " from " + number_text(column.front(), short_digits) + " to " +
                number_text(column.back(), short_digits);
    }
    text += "; " + std::to_string(branch.size()) + " points";
    if (!branch.parent.empty()) text += "; from " + branch.parent;
    text += "; ends: ";
    text.append(branch.stop[0].text()).append(", ").append(branch.stop[1].text());
    for (std::size_t i = 0; i < branch.specials.size(); ++i) {
        text += (i > 0 ? ", " : "; ") + branch.specials[i].id;
    }
    return text;
}

// ---- Table of a diagram ----

namespace {

using Row = std::vector<std::string>;

/// The parameters that vary on any branch, in the order of the system.
std::vector<std::size_t> all_varied(const std::vector<tx::Branch>& branches) {
    std::vector<std::size_t> all;
    for (const tx::Branch& branch : branches) {
        for (const std::size_t p : tx::Access::data(branch).vary) {
            if (std::find(all.begin(), all.end(), p) == all.end()) all.push_back(p);
        }
    }
    return all;
}

/// One row: name, parameters, period, what is critical, verdict.
Row row_of(const PointData& point, const std::vector<std::size_t>& varied, std::string name,
           std::string words) {
    Row row{std::move(name)};
    for (const std::size_t p : varied) {
        row.push_back(number_text(point.description.parameters[p], long_digits));
    }
    const double period = point.description.period;
    row.push_back(period > 0 ? number_text(period, short_digits) : "");
    row.push_back(critical_text(point));
    row.push_back(std::move(words));
    return row;
}

std::string end_words(const BranchData& branch, int end, const PointData& point) {
    std::string text(branch.stop[end].text());
    if (!branch.stop_detail[end].empty()) text += ": " + branch.stop_detail[end];
    if (point.spectrum.empty()) return text;
    return text + ", " + std::string(stability(unstable_exponents(point.spectrum)));
}

/// A branch: its name, then its first end, its special points, its last end.
void append_rows(const BranchData& branch, const std::vector<std::size_t>& varied,
                 std::vector<Row>& rows) {
    Row title{branch.id, branch.kind};
    if (!branch.parent.empty()) title[1] += " from " + branch.parent;
    rows.push_back(std::move(title));
    if (branch.size() == 0) {
        rows.push_back({"  none", branch.stop_detail[0]});
        return;
    }
    const auto end_row = [&](int end) {
        const PointData point = point_of(branch, end == 0 ? 0 : branch.size() - 1);
        rows.push_back(row_of(point, varied, "  EP", end_words(branch, end, point)));
    };
    end_row(0);
    for (const SpecialData& special : branch.specials) {
        rows.push_back(row_of(special.point, varied, "  " + special.id, verdict(special)));
    }
    end_row(1);
}

/// Columns as wide as their widest entry; a row of two entries is a title and not aligned.
std::string aligned(const std::vector<Row>& rows) {
    std::vector<std::size_t> widths(rows.front().size());
    for (const Row& row : rows) {
        if (row.size() < widths.size()) continue;
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    std::string text;
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            const std::size_t width = row.size() < widths.size() ? row[i].size() : widths[i];
            line.append(width - row[i].size() + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    }
    return text;
}

}  // namespace

std::string diagram_text(const tx::Diagram& diagram) {
    if (diagram.branches().empty()) {
        std::string text = "no branches\n";
        for (const std::string& line : diagram.log()) text += line + '\n';
        return text;
    }
    const std::vector<std::size_t> varied = all_varied(diagram.branches());
    const Model& model = *tx::Access::data(diagram.branches().front()).model;
    std::vector<Row> rows{{"point"}};
    for (const std::size_t p : varied) rows[0].push_back(model.parameters[p]);
    rows[0].insert(rows[0].end(), {"period", "critical", "verdict"});
    for (const tx::Branch& branch : diagram.branches()) {
        append_rows(tx::Access::data(branch), varied, rows);
    }
    std::string text = aligned(rows);
    for (const std::string& line : diagram.log()) text += line + '\n';
    return text;
}

}  // namespace trajex
