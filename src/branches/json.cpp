// Results as JSON (RFC 8259) and as CSV (RFC 4180). Numbers are the shortest that read back as the
// same double, never in the style of a locale; what is not finite has no JSON and is null.
#include "branches/json.hpp"

#include <array>
#include <cmath>
#include <complex>
#include <concepts>
#include <span>
#include <string_view>

#include "branches/access.hpp"
#include "branches/orbit.hpp"
#include "branches/text.hpp"

namespace trajex {

namespace {

/// Writes values one after another and the commas between them.
class JsonWriter {
  public:
    std::string take() { return std::move(text_); }

    /// Everything that `members` writes stands inside the braces.
    template <std::invocable Members>
    void object(Members members) {
        enclosed('{', members, '}');
    }
    template <std::invocable Items>
    void array(Items items) {
        enclosed('[', items, ']');
    }

    JsonWriter& key(std::string_view name) {
        separate();
        quote(name);
        text_ += ':';
        first_ = true;  // no comma between a name and its value
        return *this;
    }

    void value(double number) { raw(std::isfinite(number) ? number_text(number) : "null"); }
    void value(std::complex<double> z) { values(std::array{z.real(), z.imag()}); }
    void value(std::string_view text) {
        separate();
        quote(text);
    }
    void null() { raw("null"); }
    void integer(std::size_t number) { raw(std::to_string(number)); }

    /// An array of values, also of arrays.
    template <class Values>
    void values(const Values& list) {
        array([&] {
            for (const auto& item : list) {
                if constexpr (requires { this->value(item); }) {
                    value(item);
                } else {
                    values(item);
                }
            }
        });
    }

  private:
    template <class Contents>
    void enclosed(char open, Contents contents, char close) {
        separate();
        text_ += open;
        first_ = true;
        contents();
        text_ += close;
        first_ = false;
    }

    void raw(std::string_view text) {
        separate();
        text_ += text;
    }

    void separate() {
        if (!first_) text_ += ',';
        first_ = false;
    }

    void quote(std::string_view text) {
        constexpr const char* digits = "0123456789abcdef";
        text_ += '"';
        for (const char c : text) {
            const auto code = static_cast<unsigned char>(c);
            if (c == '"' || c == '\\') {
                text_ += '\\';
                text_ += c;
            } else if (code < 0x20) {
                text_ += "\\u00";
                text_ += digits[code >> 4U];
                text_ += digits[code & 15U];
            } else {
                text_ += c;
            }
        }
        text_ += '"';
    }

    std::string text_;
    bool first_ = true;
};

void write_optional(JsonWriter& json, const std::string& text) {
    text.empty() ? json.null() : json.value(text);
}

void write_parameters(JsonWriter& json, const std::vector<std::string>& names,
                      const std::vector<double>& values) {
    json.object([&] {
        for (std::size_t i = 0; i < names.size(); ++i) json.key(names[i]).value(values[i]);
    });
}

void write_system(JsonWriter& json, const Model& model) {
    json.object([&] {
        json.key("states").values(model.states);
        write_parameters(json.key("parameters"), model.parameters, model.values);
        write_optional(json.key("equations"), model.text);
    });
}

/// The name of an orbit: branch and number of the point.
std::string orbit_name(const BranchData& branch, std::size_t point) {
    return branch.id + "_o" + std::to_string(point);
}

/// The nodes of an orbit: scaled times and states.
void write_orbit(JsonWriter& json, const std::string& name, std::size_t point, const Orbit& orbit) {
    json.object([&] {
        json.key("name").value(name);
        json.key("point").integer(point);
        json.key("T").value(orbit.period);
        json.key("t0").value(orbit.t0);
        json.key("m").integer(orbit.m);
        json.key("mesh").values(orbit.mesh);
        json.key("tau").array([&] {
            for (std::size_t k = 0; k < orbit.nodes(); ++k) json.value(orbit.time_of_node(k));
        });
        json.key("x").array([&] {
            for (std::size_t k = 0; k < orbit.nodes(); ++k) {
                json.values(std::span(&orbit.x[k * orbit.states], orbit.states));
            }
        });
    });
}

void write_special(JsonWriter& json, const SpecialData& special) {
    const PointData& point = special.point;
    const Finding& finding = special.finding;
    const bool equilibrium = point.kind == SolutionKind::equilibrium;
    json.object([&] {
        json.key("id").value(special.id);
        json.key("type").value(finding.type);
        json.key("subtype").value(finding.subtype);
        write_optional(json.key("criticality"), finding.criticality);
        json.key("status").value(finding.status);
        write_optional(json.key("reason"), finding.reason);
        write_parameters(json.key("parameters"), point.model->parameters,
                         point.description.parameters);
        json.key("state").values(point.state);
        json.key("norm").value(point.description.norm);
        json.key("period");
        equilibrium ? json.null() : json.value(point.description.period);
        if (equilibrium) {
            json.key("eigenvalues").values(point.exponents);
        } else {
            json.key("multipliers").values(point.multipliers);
            json.key("log_multipliers").values(point.exponents);
            json.key("min").values(point.description.low);
            json.key("max").values(point.description.high);
        }
        json.key("coefficients").object([&] {
            for (const auto& one : finding.coefficients) json.key(one.name).value(one.value);
        });
        json.key("coefficient_errors").object([&] {
            for (const auto& one : finding.coefficients) json.key(one.name).value(one.error);
        });
        json.key("error").value(finding.error);
        json.key("bracket").values(finding.bracket);
        json.key("tangent").values(finding.tangent);
        json.key("null_vectors").values(finding.null_vectors);
        json.key("after").integer(special.after);
    });
}

void write_branch(JsonWriter& json, const BranchData& branch, bool orbits_inline) {
    json.object([&] {
        json.key("id").value(branch.id);
        json.key("kind").value(branch.kind);
        json.key("vary").values(branch.vary_names);
        write_optional(json.key("parent"), branch.parent);
        write_optional(json.key("image"), branch.image);
        json.key("stop").values(std::array{branch.stop[0].text(), branch.stop[1].text()});
        json.key("stop_detail").values(branch.stop_detail);
        write_parameters(json.key("parameters"), branch.model->parameters, branch.model->values);
        json.key("columns").object([&] {
            for (std::size_t i = 0; i < branch.columns.size(); ++i) {
                json.key(branch.column_names[i]).values(branch.columns[i]);
            }
        });
        json.key("spectrum").values(branch.exponents);
        json.key("specials").array([&] {
            for (const SpecialData& special : branch.specials) write_special(json, special);
        });
        json.key("orbits").array([&] {
            for (std::size_t i = 0; i < branch.orbits.size(); ++i) {
                if (branch.orbits[i] == nullptr) continue;
                if (orbits_inline) {
                    write_orbit(json, orbit_name(branch, i), i, *branch.orbits[i]);
                } else {
                    json.value(orbit_name(branch, i));
                }
            }
        });
    });
}

std::string csv_field(std::string_view text) {
    if (text.find_first_of(",\"\n\r") == std::string_view::npos) return std::string(text);
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"') quoted += '"';
        quoted += c;
    }
    return quoted + '"';
}

}  // namespace

std::string branch_json(const BranchData& branch, bool orbits_inline) {
    JsonWriter json;
    write_branch(json, branch, orbits_inline);
    return json.take();
}

std::string diagram_json(const tx::Diagram& diagram) {
    const std::vector<tx::Branch>& branches = diagram.branches();
    JsonWriter json;
    json.object([&] {
        json.key("format").value(std::string_view("tx-diagram"));
        json.key("version").integer(1);
        json.key("system");
        if (branches.empty()) {
            json.null();
        } else {
            write_system(json, *tx::Access::data(branches.front()).model);
        }
        json.key("branches").array([&] {
            for (const tx::Branch& branch : branches) {
                write_branch(json, tx::Access::data(branch), true);
            }
        });
        json.key("log").values(diagram.log());
    });
    return json.take() + '\n';
}

std::string branch_csv(const BranchData& branch) {
    std::string text;
    const std::size_t last = branch.columns.size() - 1;
    for (std::size_t i = 0; i <= last; ++i) {
        text += csv_field(branch.column_names[i]) + (i < last ? "," : "\n");
    }
    for (std::size_t row = 0; row < branch.size(); ++row) {
        for (std::size_t i = 0; i <= last; ++i) {
            const double value = branch.columns[i][row];
            if (std::isfinite(value)) text += number_text(value);
            text += i < last ? ',' : '\n';
        }
    }
    return text;
}

}  // namespace trajex
