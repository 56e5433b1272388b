// Systems: every way to write a right-hand side gives the same values and derivatives; misuse is
// named.
#include "tx/system.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <span>
#include <stdexcept>

#include "model/model.hpp"
#include "tx/error.hpp"

namespace {

/// x' = p exp(y) - x^3, y' = x y + q sin(x).
template <class X, class C, class D>
void field(const X& x, const C& c, D& dx) {
    using std::exp, std::sin;
    dx[0] = c[0] * exp(x[1]) - x[0] * x[0] * x[0];
    dx[1] = x[0] * x[1] + c[1] * sin(x[0]);
}
void field_jacobian(const double* x, const double* c, double* A) {
    A[0] = -3 * x[0] * x[0];
    A[1] = c[0] * std::exp(x[1]);
    A[2] = x[1] + c[1] * std::cos(x[0]);
    A[3] = x[0];
}
constexpr tx::CFunctions::BlockFunction block = [](std::size_t K, const double*, const double* x,
                                                   const double* c, double* out, void* calls) {
    ++*static_cast<int*>(calls);
    for (std::size_t k = 0; k < K; ++k) {
        const double point[] = {x[k], x[K + k]};
        double f[2];
        field(point, c, f);
        out[k] = f[0];
        out[K + k] = f[1];
    }
};
constexpr tx::CFunctions::Function one_point = [](double, const double* x, const double* c,
                                                  double* out, void*) { field(x, c, out); };

constexpr tx::CFunctions::TaylorFunction along = [](int order, double, const double* x,
                                                    const double* v, const double* c,
                                                    const double* d, double* out, void*) {
    tx::Jet<5> at[] = {x[0], x[1]}, values[] = {c[0], c[1]}, f[2];
    for (std::size_t i = 0; i < 2; ++i) at[i].set(1, 0, v[i]), values[i].set(1, 0, d ? d[i] : 0);
    field(at, values, f);
    for (int k = 0; k <= order; ++k) {
        for (const tx::Jet<5>& component : f) *out++ = component.coefficient(k);
    }
};

const std::vector<std::string> names{"x", "y"};
const std::vector<tx::Parameter> parameters{{"p", 0.7}, {"q", 1.3}};

struct Form {
    const char* name;
    tx::System system;
    bool exact;
    bool taylor;
};

std::vector<Form> forms(int* calls) {
    const auto of_doubles = [](double, const double* x, const double* c, double* dx) {
        field(x, c, dx);
    };
    const auto jacobian = [](double, const auto& x, const auto& c, auto& A) {
        field_jacobian(x, c, A);
    };
    const auto by_parameters = [](double, const auto& x, const auto&, auto& A) {
        A[0] = std::exp(x[1]);
        A[1] = A[2] = 0;
        A[3] = std::sin(x[0]);
    };
    using Span = std::span<const double>;
    using In = tx::View<const double>;
    return {
        {"auto&",
         {names, parameters, [](auto, auto& x, auto& c, auto& dx) { field(x, c, dx); }},
         true,
         true},
        {"const auto&",
         {names, parameters,
          [](double, const auto& x, const auto& c, auto&& dx) { field(x, c, dx); }},
         true,
         true},
        {"auto",
         {names, parameters, [](auto, auto x, auto c, auto dx) { field(x, c, dx); }},
         true,
         true},
        {"const auto*",
         {names, parameters,
          [](double, const auto* x, const auto* c, auto* dx) { field(x, c, dx); }},
         true,
         true},
        {"const double*", {names, parameters, of_doubles}, false, false},
        {"span",
         {names, parameters, [](double, Span x, Span c, std::span<double> dx) { field(x, c, dx); }},
         false,
         false},
        {"View",
         {names, parameters, [](double, In x, In c, tx::View<double> dx) { field(x, c, dx); }},
         false,
         false},
        {"Jacobian", {names, parameters, of_doubles, jacobian}, true, false},
        {"both Jacobians", {names, parameters, of_doubles, jacobian, by_parameters}, true, false},
        {"C function", {names, parameters, {.f = one_point}}, false, false},
        {"C function, Taylor", {names, parameters, {.f = one_point, .taylor = along}}, false, true},
        {"C blocks", {names, parameters, {.block = block, .context = calls}}, false, false},
    };
}

TEST(System, IsTheSameHoweverItIsWritten) {
    constexpr std::size_t count = 5000;  // more than one block
    std::vector<double> t(count), x(2 * count), f(2 * count), A(4 * count), f_c(2 * count);
    for (std::size_t k = 0; k < count; ++k) {
        x[2 * k] = std::cos(0.1 * double(k));
        x[2 * k + 1] = k % 10 == 0 ? 0 : std::sin(0.3 * double(k));
    }
    const double c[] = {0.7, 1.3};
    int calls = 0;
    for (const Form& form : forms(&calls)) {
        SCOPED_TRACE(form.name);
        const trajex::Equations& equations = *form.system.model()->equations;
        EXPECT_EQ(equations.has_exact_jacobian(), form.exact);
        equations.jacobians(count, t.data(), x.data(), c, f.data(), A.data());
        equations.parameter_derivatives(count, t.data(), x.data(), c, 1, f_c.data());
        const double tolerance = form.exact ? 1e-14 : 2e-10;
        for (std::size_t k = 0; k < count; ++k) {
            const double* const at = x.data() + 2 * k;
            double value[2], exact[4];
            field(at, c, value);
            field_jacobian(at, c, exact);
            for (std::size_t i = 0; i < 2; ++i) ASSERT_DOUBLE_EQ(f[2 * k + i], value[i]);
            for (std::size_t i = 0; i < 4; ++i) ASSERT_NEAR(A[4 * k + i], exact[i], tolerance);
            ASSERT_NEAR(f_c[2 * k], 0, 1e-12);
            ASSERT_NEAR(f_c[2 * k + 1], std::sin(at[0]), 1e-11);
        }
        // f along x + s (1, 2), p + s: f_xx(v, v) / 2 + f_xp v.
        const double v[] = {1, 2}, d[] = {1, 0};
        double series[6];
        ASSERT_EQ(equations.taylor(2, 0, x.data() + 2, v, c, d, series), form.taylor);
        if (!form.taylor) continue;
        const double X = x[2], e = std::exp(x[3]);
        EXPECT_NEAR(series[4], 0.7 * e * 2 + 2 * e - 3 * X, 1e-14);
        EXPECT_NEAR(series[5], 2 - 1.3 * std::sin(X) / 2, 1e-14);
    }
    EXPECT_LT(calls, 200);  // pieces of 1000 points, not points
}

TEST(System, DifferencesFindTheirStep) {
    // Functions that bend within a thousandth of their argument, or end just beside it.
    const tx::System sharp({"x"}, {}, [](double, const double* x, const double*, double* dx) {
        dx[0] = std::tanh(2000 * (x[0] - 1)) + std::sqrt(x[0] - 0.9999);
    });
    EXPECT_NEAR(sharp.jacobian({1.0})[0], 2000 + 0.5 / std::sqrt(0.0001), 1e-3);
}

TEST(System, NamesMisuse) {
    const tx::System system(names, parameters,
                            [](auto, auto& x, auto& c, auto& dx) { field(x, c, dx); });
    const auto f = [](auto, auto&, auto&, auto&) {};
    const double nan = std::nan("");
    struct {
        std::function<void()> call;
        const char* text;
    } const cases[] = {
        {[&] { (void)system.with("rho", 1); }, "no parameter 'rho'; the system has p, q"},
        {[&] { (void)system.parameter(""); }, "no parameter ''; the system has p, q"},
        {[&] { (void)system.with("p", nan); }, "the value of 'p' is nan"},
        {[&] { (void)system.rhs({1}); },
         "the state has 1 numbers; the system has 2 variables: x, y"},
        {[&] {
             (void)system.equilibrium({1, nan});
         },
         "the guess: 'y' is nan"},
        {[&] {
             (void)system.equilibria({{0, 1}, {1, 1}});
         },
         "the window of 'y' is empty"},
        {[&] {
             (void)system.equilibria({{0, 1}});
         },
         "the box has 1 sides"},
        {[&] {
             (void)system.section({1, 1}, {.variable = "z"});
         },
         "no variable 'z'; the system has x, y"},
        {[&] {
             (void)system.integrate({1, 1}, nan);
         },
         "the end of time is nan"},
        {[&] { (void)system.forced({.frequency = "p", .fixed = 1}); }, "either a frequency"},
        {[&] { (void)system.forced({.period = "w"}); }, "no parameter 'w'"},
        {[&] {
             tx::System({"x", "x"}, {}, f);
         },
         "the name 'x' is given twice"},
        {[&] {
             tx::System({"x"}, {{"", 1}}, f);
         },
         "without a name"},
        {[&] {
             tx::System({}, {{"a", 1}}, f);
         },
         "without variables"},
        {[&] {
             tx::System({"x"}, {{"a", nan}}, f);
         },
         "the value of 'a' is nan"},
        {[&] { tx::System({"x"}, {}, tx::CFunctions{}); }, "neither f nor its block form"},
    };
    for (const auto& c : cases) {
        try {
            c.call();
            ADD_FAILURE() << "accepted: " << c.text;
        } catch (const tx::Error& error) {
            EXPECT_NE(std::string(error.what()).find(c.text), std::string::npos) << error.what();
        }
    }
    EXPECT_EQ(system.with({{"q", 2}, {"p", 3}}).parameter("p"), 3);
    EXPECT_EQ(system.parameter("p"), 0.7);
    EXPECT_DOUBLE_EQ(system.forced({.frequency = "p", .periods = 2}).period(), 4 * M_PI / 0.7);
}

TEST(System, LetsExceptionsOfCallbacksPass) {
    int left = 0;
    const tx::System system({"x"}, {}, [&left](double, const double* x, const double*, double* dx) {
        if (left-- == 0) throw std::runtime_error("callback");
        dx[0] = 1 - x[0] * x[0];
    });
    for (int calls = 0; calls < 20; ++calls) {
        left = calls;
        EXPECT_THROW((void)system.integrate({0}, 5), std::runtime_error);
        left = calls;
        EXPECT_THROW((void)system.equilibrium({3}), std::runtime_error);
    }
    left = -1;
    EXPECT_NEAR(system.equilibrium({3}).state()[0], 1, 1e-15);
}

}  // namespace
