// Values and derivatives of an application's right-hand side: Jacobians that were given; Taylor
// numbers of first order, four columns at a time; or differences. Blocks of points are handed on in
// one call where the application can take them.
#include "model/compiled_equations.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "core/simd.hpp"
#include "linalg/vectors.hpp"
#include "model/differences.hpp"
#include "model/scratch.hpp"

namespace trajex {

namespace {

/// Vectors up to this length are on the stack.
constexpr std::size_t stack_length = 192;
/// Doubles that blocks of points are cut into, of one array.
constexpr std::size_t block_length = 4096;

using Vector = Scratch<double, stack_length>;
template <class Number>
using Numbers = Scratch<Number, stack_length>;
using Block = Scratch<double, block_length>;

/// States, values and parameters as numbers of one kind; the parameters are set.
template <class Number>
struct Arguments {
    Arguments(std::size_t states, std::size_t parameters, const double* values)
        : numbers(2 * states + parameters), x(numbers.data()), f(x + states), c(f + states) {
        for (std::size_t j = 0; j < parameters; ++j) c[j] = values[j];
    }

    Numbers<Number> numbers;
    Number* x;
    Number* f;
    Number* c;
};

/// Calls visit(first, count) for consecutive pieces of `count` points, each of at most
/// `block_length` doubles at `width` doubles a point, and at least one point.
template <class Visit>
void in_pieces(std::size_t count, std::size_t width, const Visit& visit) {
    const std::size_t most =
        std::max<std::size_t>(1, block_length / std::max<std::size_t>(1, width));
    for (std::size_t first = 0; first < count; first += most) {
        visit(first, std::min(most, count - first));
    }
}

/// to[j rows + i] = from[i columns + j].
void transpose(const double* from, std::size_t rows, std::size_t columns, double* to) {
    for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = 0; j < columns; ++j) to[j * rows + i] = from[i * columns + j];
    }
}

class CompiledEquations final : public Equations {
  public:
    explicit CompiledEquations(std::shared_ptr<const RightHandSide> rhs)
        : Equations(rhs->states(), rhs->parameters()),
          rhs_(std::move(rhs)),
          differentiable_(rhs_->generic() && !rhs_->has_jacobian()) {}

    void values(std::size_t count, const double* t, const double* x, const double* c,
                double* f) const override;
    void jacobians(std::size_t count, const double* t, const double* x, const double* c, double* f,
                   double* jacobian) const override;
    void derivatives(std::size_t count, const double* t, const double* x, const double* c,
                     std::span<const std::size_t> vary, double* f, double* jacobian,
                     double* f_c) const override;
    void parameter_derivatives(std::size_t count, const double* t, const double* x, const double* c,
                               std::size_t j, double* f_c) const override;
    bool taylor(int order, double t, const double* x, const double* v, const double* c,
                const double* d, double* coefficients) const override;
    void along_directions(double t, const Directions* x, const double* c, const Directions* numbers,
                          Directions* f) const override;
    bool has_exact_jacobian() const override { return rhs_->has_jacobian() || rhs_->generic(); }

  private:
    using Gradient = RightHandSide::Gradient;

    void value(double t, const double* x, const double* c, double* f) const {
        rhs_->value({t, x, c, f});
    }
    void values_in_blocks(std::size_t count, const double* t, const double* x, const double* c,
                          double* f) const;
    void jacobians_in_blocks(std::size_t count, const double* t, const double* x, const double* c,
                             double* jacobian) const;
    void multiply_directions(double t, const Directions* x, const double* c, Directions* f) const;
    void gradients(double t, const double* x, const double* c, std::span<const std::size_t> vary,
                   double* f, double* jacobian, double* f_c, std::size_t stride) const;
    template <class Number>
    void gradients_in(double t, const double* x, const double* c, std::span<const std::size_t> vary,
                      double* f, double* jacobian, double* f_c, std::size_t stride) const;
    void gradient_of_parameter(double t, const double* x, const double* c, std::size_t j,
                               double* f_c) const;
    void difference_jacobians(std::size_t count, const double* t, const double* x, const double* c,
                              double* jacobian) const;
    template <class Shifted>
    void difference_columns(std::size_t count, double* h, const Shifted& shifted, double* out,
                            std::size_t point_stride, std::size_t stride) const;
    template <int K>
    bool series(int order, double t, const double* x, const double* v, const double* c,
                const double* d, double* coefficients) const;

    std::shared_ptr<const RightHandSide> rhs_;
    bool differentiable_;  // derivatives come from the callable alone
};

void CompiledEquations::values(std::size_t count, const double* t, const double* x, const double* c,
                               double* f) const {
    if (count > 1 && rhs_->has_block()) return values_in_blocks(count, t, x, c, f);
    for (std::size_t k = 0; k < count; ++k) value(t[k], x + k * states(), c, f + k * states());
}

void CompiledEquations::values_in_blocks(std::size_t count, const double* t, const double* x,
                                         const double* c, double* f) const {
    const std::size_t n = states();
    in_pieces(count, n, [&](std::size_t first, std::size_t K) {
        Block by_component(K * n);
        Block result(K * n);
        transpose(x + first * n, K, n, by_component.data());
        rhs_->block(K, t + first, by_component.data(), c, result.data());
        transpose(result.data(), n, K, f + first * n);
    });
}

void CompiledEquations::jacobians_in_blocks(std::size_t count, const double* t, const double* x,
                                            const double* c, double* jacobian) const {
    const std::size_t n = states();
    in_pieces(count, n * n, [&](std::size_t first, std::size_t K) {
        Block by_component(K * n);
        Block result(K * n * n);
        transpose(x + first * n, K, n, by_component.data());
        rhs_->block_jacobian(K, t + first, by_component.data(), c, result.data());
        transpose(result.data(), n * n, K, jacobian + first * n * n);
    });
}

void CompiledEquations::jacobians(std::size_t count, const double* t, const double* x,
                                  const double* c, double* f, double* jacobian) const {
    const std::size_t n = states();
    if (differentiable_) {
        for (std::size_t k = 0; k < count; ++k) {
            gradients(t[k], x + k * n, c, {}, f + k * n, jacobian + k * n * n, nullptr, 0);
        }
        return;
    }
    values(count, t, x, c, f);
    if (!rhs_->has_jacobian()) return difference_jacobians(count, t, x, c, jacobian);
    if (count > 1 && rhs_->has_block_jacobian()) {
        return jacobians_in_blocks(count, t, x, c, jacobian);
    }
    for (std::size_t k = 0; k < count; ++k) {
        rhs_->jacobian(t[k], x + k * n, c, jacobian + k * n * n);
    }
}

/// f and its Jacobian at one point by Taylor numbers of first order, as many columns at a time as
/// they have directions.
// The unit vectors of the variables, then those of the parameters that vary, a few at a time. The
// derivatives by different parameters are `stride` apart.
template <class Number>
void CompiledEquations::gradients_in(double t, const double* x, const double* c,
                                     std::span<const std::size_t> vary, double* f, double* jacobian,
                                     double* f_c, std::size_t stride) const {
    const std::size_t n = states();
    const std::size_t all = n + vary.size();
    const Arguments<Number> g(n, parameters(), c);
    for (std::size_t i = 0; i < n; ++i) g.x[i] = x[i];
    const auto number = [&](std::size_t k) -> Number& { return k < n ? g.x[k] : g.c[vary[k - n]]; };
    for (std::size_t first = 0; first < all; first += Number::directions) {
        const std::size_t last = std::min<std::size_t>(first + Number::directions, all);
        for (std::size_t k = first; k < last; ++k) number(k).set(1, static_cast<int>(k - first), 1);
        rhs_->evaluate({t, g.x, g.c, g.f});
        for (std::size_t k = first; k < last; ++k) {
            const int m = static_cast<int>(k - first);
            for (std::size_t i = 0; i < n; ++i)
                (k < n ? jacobian[i * n + k] : f_c[(k - n) * stride + i]) =
                    g.f[i].coefficient(1, m);
            number(k).set(1, m, 0);
        }
    }
    for (std::size_t i = 0; i < n; ++i) f[i] = g.f[i].value();
}

void CompiledEquations::gradients(double t, const double* x, const double* c,
                                  std::span<const std::size_t> vary, double* f, double* jacobian,
                                  double* f_c, std::size_t stride) const {
    if (states() + vary.size() <= Directions::directions)
        gradients_in<Directions>(t, x, c, vary, f, jacobian, f_c, stride);
    else
        gradients_in<Gradient>(t, x, c, vary, f, jacobian, f_c, stride);
}

void CompiledEquations::derivatives(std::size_t count, const double* t, const double* x,
                                    const double* c, std::span<const std::size_t> vary, double* f,
                                    double* jacobian, double* f_c) const {
    if (!differentiable_ || rhs_->has_parameter_jacobian())
        return Equations::derivatives(count, t, x, c, vary, f, jacobian, f_c);
    const std::size_t n = states();
    for (std::size_t k = 0; k < count; ++k) {
        gradients(t[k], x + k * n, c, vary, f + k * n, jacobian + k * n * n, f_c + k * n,
                  count * n);
    }
}

void CompiledEquations::along_directions(double t, const Directions* x, const double* c,
                                         const Directions* numbers, Directions* f) const {
    if (differentiable_)
        rhs_->evaluate({t, x, numbers, f});
    else
        multiply_directions(t, x, c, f);
}

/// The Jacobian times the directions.
void CompiledEquations::multiply_directions(double t, const Directions* x, const double* c,
                                            Directions* f) const {
    constexpr std::size_t length = 1 + Directions::directions;
    constexpr std::size_t pairs = Directions::directions / width<Pair>;
    static_assert(sizeof(Directions) == length * sizeof(double));
    const std::size_t n = states();
    Vector point(2 * n);
    Vector A(n * n);
    double* const value_at = point.data() + n;
    for (std::size_t i = 0; i < n; ++i) point[i] = x[i].value();
    if (rhs_->jacobian(t, point.data(), c, A.data()))
        value(t, point.data(), c, value_at);
    else
        jacobians(1, &t, point.data(), c, value_at, A.data());

    const double* const given = reinterpret_cast<const double*>(x) + 1;
    const double* element = A.data();
    auto* to = reinterpret_cast<double*>(f);
    for (std::size_t i = 0; i < n; ++i, to += length) {
        to[0] = value_at[i];
        Pair sums[pairs]{};
        const double* v = given;
        for (std::size_t j = 0; j < n; ++j, ++element, v += length) {
            for (std::size_t k = 0; k < pairs; ++k) {
                Pair pair;
                load(pair, v + k * width<Pair>);
                sums[k] += *element * pair;
            }
        }
        for (std::size_t k = 0; k < pairs; ++k) store(sums[k], to + 1 + k * width<Pair>);
    }
}

void CompiledEquations::gradient_of_parameter(double t, const double* x, const double* c,
                                              std::size_t j, double* f_c) const {
    const std::size_t n = states();
    const Arguments<Directions> g(n, parameters(), c);
    for (std::size_t i = 0; i < n; ++i) g.x[i] = x[i];
    g.c[j].set(1, 0, 1);
    rhs_->evaluate({t, g.x, g.c, g.f});
    for (std::size_t i = 0; i < n; ++i) f_c[i] = g.f[i].coefficient(1);
}

/// One column of derivatives at `count` points. shifted(multiple, f) evaluates f at all points with
/// the variable raised by multiple h[k] at point k. Element i of point k goes to out[k point_stride
/// + i stride].
template <class Shifted>
void CompiledEquations::difference_columns(std::size_t count, double* h, const Shifted& shifted,
                                           double* out, std::size_t point_stride,
                                           std::size_t stride) const {
    const std::size_t n = states();
    Block at_shifts(4 * count * n);
    Vector derivative(n);
    Scratch<double, block_length / 4> best(count);
    std::fill_n(best.data(), count, std::numeric_limits<double>::max());
    for (int attempt = 0; attempt < differences::attempts; ++attempt) {
        constexpr double multiples[] = {1, -1, 2, -2};
        for (std::size_t m = 0; m < 4; ++m) {
            shifted(multiples[m], at_shifts.data() + m * count * n);
        }
        bool small_enough = true;
        for (std::size_t k = 0; k < count; ++k) {
            const double* const f = at_shifts.data() + k * n;
            const double* const rows[] = {f, f + count * n, f + 2 * count * n, f + 3 * count * n};
            const double apart = differences::combine(n, h[k], rows, derivative.data());
            if (apart < best[k] || attempt == 0) {
                best[k] = apart;
                for (std::size_t i = 0; i < n; ++i)
                    out[k * point_stride + i * stride] = derivative[i];
            }
            if (best[k] <= differences::tolerance) continue;
            small_enough = false;
            h[k] *= differences::shrink;
        }
        if (small_enough) return;
    }
}

void CompiledEquations::difference_jacobians(std::size_t count, const double* t, const double* x,
                                             const double* c, double* jacobian) const {
    const std::size_t n = states();
    in_pieces(count, 4 * n, [&](std::size_t first, std::size_t K) {
        const double* const base = x + first * n;
        Scratch<double, block_length / 4> points(K * n);
        Scratch<double, block_length / 4> h(K);
        std::copy_n(base, K * n, points.data());
        for (std::size_t j = 0; j < n; ++j) {
            for (std::size_t k = 0; k < K; ++k) {
                const double* const at = base + k * n;
                h[k] = differences::relative_step * differences::scale(at[j], largest(at, n));
            }
            const auto shifted = [&](double multiple, double* f) {
                for (std::size_t k = 0; k < K; ++k) {
                    h[k] = differences::representable(base[k * n + j], h[k]);
                    points[k * n + j] = base[k * n + j] + multiple * h[k];
                }
                values(K, t + first, points.data(), c, f);
            };
            difference_columns(K, h.data(), shifted, jacobian + first * n * n + j, n * n, n);
            for (std::size_t k = 0; k < K; ++k) points[k * n + j] = base[k * n + j];
        }
    });
}

void CompiledEquations::parameter_derivatives(std::size_t count, const double* t, const double* x,
                                              const double* c, std::size_t j, double* f_c) const {
    const std::size_t n = states();
    const std::size_t m = parameters();
    if (rhs_->has_parameter_jacobian()) {
        Block all(n * m);
        for (std::size_t k = 0; k < count; ++k) {
            rhs_->parameter_jacobian(t[k], x + k * n, c, all.data());
            for (std::size_t i = 0; i < n; ++i) f_c[k * n + i] = all[i * m + j];
        }
    } else if (rhs_->generic()) {
        for (std::size_t k = 0; k < count; ++k) {
            gradient_of_parameter(t[k], x + k * n, c, j, f_c + k * n);
        }
    } else {
        in_pieces(count, 4 * n, [&](std::size_t first, std::size_t K) {
            Vector changed(m);
            std::copy_n(c, m, changed.data());
            Scratch<double, block_length / 4> h(K);
            const double step = differences::relative_step * differences::scale(c[j], 0);
            std::fill_n(h.data(), K, differences::representable(c[j], step));
            const auto shifted = [&](double multiple, double* f) {
                // One set of parameters serves all points: the smallest step of any.
                const double least = *std::min_element(h.data(), h.data() + K);
                std::fill_n(h.data(), K, differences::representable(c[j], least));
                changed[j] = c[j] + multiple * h[0];
                values(K, t + first, x + first * n, changed.data(), f);
            };
            difference_columns(K, h.data(), shifted, f_c + first * n, n, 1);
        });
    }
}

bool CompiledEquations::taylor(int order, double t, const double* x, const double* v,
                               const double* c, const double* d, double* coefficients) const {
    if (order < 0 || order > 5) return false;
    if (rhs_->taylor(order, t, x, v, c, d, coefficients)) return true;
    if (!rhs_->generic()) return false;
    if (order <= 2) return series<2>(order, t, x, v, c, d, coefficients);
    if (order == 3) return series<3>(order, t, x, v, c, d, coefficients);
    return series<5>(order, t, x, v, c, d, coefficients);
}

template <int K>
bool CompiledEquations::series(int order, double t, const double* x, const double* v,
                               const double* c, const double* d, double* coefficients) const {
    const std::size_t n = states();
    const Arguments<tx::Jet<K>> jets(n, parameters(), c);
    for (std::size_t i = 0; i < n; ++i) {
        jets.x[i] = x[i];
        jets.x[i].set(1, 0, v[i]);
    }
    for (std::size_t j = 0; d != nullptr && j < parameters(); ++j) jets.c[j].set(1, 0, d[j]);
    if (!rhs_->evaluate({t, jets.x, jets.c, jets.f})) return false;
    for (int k = 0; k <= order; ++k) {
        for (std::size_t i = 0; i < n; ++i) *coefficients++ = jets.f[i].coefficient(k);
    }
    return true;
}

}  // namespace

std::shared_ptr<const Equations> make_equations(std::shared_ptr<const RightHandSide> rhs) {
    return std::make_shared<CompiledEquations>(std::move(rhs));
}

}  // namespace trajex
