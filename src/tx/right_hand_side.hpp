// What an application gives as a right-hand side, and how the library calls it. Part of tx.hpp,
// which is what applications include.
#ifndef TX_RIGHT_HAND_SIDE_HPP
#define TX_RIGHT_HAND_SIDE_HPP

#include <concepts>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

#include "tx/jet.hpp"

namespace tx {

/// The numbers that a right-hand side sees as x, c and dx: indexable, iterable, and usable where a
/// pointer or a std::span is wanted.
template <class T>
class View {
  public:
    View(T* data, std::size_t size) : data_(data), size_(size) {}

    template <std::integral Index>
    T& operator[](Index i) const {
        return data_[static_cast<std::size_t>(i)];
    }
    std::size_t size() const { return size_; }
    T* data() const { return data_; }
    T* begin() const { return data_; }
    T* end() const { return data_ + size_; }
    operator T*() const { return data_; }  // NOLINT(google-explicit-constructor): stands for one

  private:
    T* data_;
    std::size_t size_;
};

/// A system given by C functions, which receive `context` as their last argument. Matrices are
/// row-major: out[i n + j] = df_i/dx_j, out[i m + j] = df_i/dc_j for n variables and m parameters.
/// The block forms evaluate K points in one call, component by component: x[i K + k] is component i
/// of point k, and so are t[k], out[i K + k] and (i n + j) K + k in Jacobians; c is the same for
/// all. `taylor` gives the coefficients of f(t, x + s v; c + s d) in powers of s, up to s^order
/// with order <= 5: out[k n + i] is that of s^k in f_i; d may be null, which stands for zeros. One
/// of `f` and `block` is needed, everything else is optional. The functions have to be usable from
/// different threads at once if the system is.
struct CFunctions {
    using Function = void (*)(double t, const double* x, const double* c, double* out,
                              void* context);
    using BlockFunction = void (*)(std::size_t K, const double* t, const double* x, const double* c,
                                   double* out, void* context);
    using TaylorFunction = void (*)(int order, double t, const double* x, const double* v,
                                    const double* c, const double* d, double* out, void* context);

    Function f = nullptr;
    Function jacobian = nullptr;
    Function parameter_jacobian = nullptr;
    BlockFunction block = nullptr;
    BlockFunction block_jacobian = nullptr;
    void* context = nullptr;
    std::shared_ptr<const void> owner{};  ///< kept for as long as the system is in use
    TaylorFunction taylor = nullptr;
};

}  // namespace tx

namespace trajex {

/// A right-hand side of n variables and m parameters as compiled from the application's callable.
/// The functions are const: they may be called from different threads at once. Those that return
/// bool say whether the callable can do that, and have done nothing if it cannot.
class RightHandSide {
  public:
    using Directions = tx::Dual<4>;  ///< derivatives along a few vectors, or the gradient where it
    using Gradient = tx::Dual<6>;    ///< has so many components; this one takes more at once
    template <class Number>
    struct Arguments {
        double t;
        const Number* x;
        const Number* c;
        Number* dx;
    };

    RightHandSide(std::size_t n, std::size_t m) : n_(n), m_(m) {}
    RightHandSide(const RightHandSide&) = delete;
    RightHandSide& operator=(const RightHandSide&) = delete;
    virtual ~RightHandSide() = default;

    std::size_t states() const { return n_; }
    std::size_t parameters() const { return m_; }

    virtual void value(const Arguments<double>& at) const = 0;
    /// `out` is n x n or n x m, by rows.
    virtual bool jacobian(double t, const double* x, const double* c, double* out) const = 0;
    virtual bool parameter_jacobian(double t, const double* x, const double* c,
                                    double* out) const = 0;

    virtual bool has_jacobian() const = 0;
    virtual bool has_parameter_jacobian() const = 0;
    virtual bool generic() const = 0;
    virtual bool evaluate(const Arguments<Directions>& at) const = 0;
    virtual bool evaluate(const Arguments<Gradient>& at) const = 0;
    virtual bool evaluate(const Arguments<tx::Jet<2>>& at) const = 0;
    virtual bool evaluate(const Arguments<tx::Jet<3>>& at) const = 0;
    virtual bool evaluate(const Arguments<tx::Jet<5>>& at) const = 0;

    /// The coefficients of f(t, x + s v; c + s d), as tx::CFunctions has them; where the
    /// application has a function for them.
    virtual bool taylor(int /*order*/, double /*t*/, const double* /*x*/, const double* /*v*/,
                        const double* /*c*/, const double* /*d*/, double* /*out*/) const {
        return false;
    }

    /// K points in one call, in the layout of tx::CFunctions; only where the application has such
    /// forms.
    virtual bool has_block() const { return false; }
    virtual bool has_block_jacobian() const { return false; }
    virtual void block(std::size_t /*K*/, const double* /*t*/, const double* /*x*/,
                       const double* /*c*/, double* /*out*/) const {}
    virtual void block_jacobian(std::size_t /*K*/, const double* /*t*/, const double* /*x*/,
                                const double* /*c*/, double* /*out*/) const {}

  private:
    std::size_t n_;
    std::size_t m_;
};

/// Whether F can be called as f(t, x, c, dx) with views of this number, which are lvalues there,
/// or, where it asks for a pointer without saying to what (`const auto* x`), with pointers.
template <class F, class Number>
concept TakesViews = std::invocable < const F&,
        double, tx::View<const Number>
&, tx::View<const Number>&, tx::View<Number>& > ;
template <class F, class Number>
concept TakesPointers = std::invocable<const F&, double, const Number*, const Number*, Number*>;
template <class F, class Number>
concept Takes = TakesViews<F, Number> || TakesPointers<F, Number>;

/// Stands for a derivative that was not given.
struct NotGiven {};

/// A callable object with the Jacobians that may come with it.
template <class F, class Jacobian = NotGiven, class ParameterJacobian = NotGiven>
class Callable final : public RightHandSide {
    static_assert(Takes<F, double>,
                  "A right-hand side is called as f(t, x, c, dx) and must not be mutable: the "
                  "library calls it from several threads.");

  public:
    Callable(std::size_t n, std::size_t m, F f, Jacobian df_dx = {}, ParameterJacobian df_dc = {})
        : RightHandSide(n, m),
          f_(std::move(f)),
          jacobian_(std::move(df_dx)),
          parameter_jacobian_(std::move(df_dc)) {}

    void value(const Arguments<double>& at) const override { call(f_, at, states()); }

    bool jacobian(double t, const double* x, const double* c, double* out) const override {
        return call(jacobian_, Arguments<double>{t, x, c, out}, states() * states());
    }
    bool parameter_jacobian(double t, const double* x, const double* c,
                            double* out) const override {
        return call(parameter_jacobian_, Arguments<double>{t, x, c, out}, states() * parameters());
    }

    bool has_jacobian() const override { return !std::same_as<Jacobian, NotGiven>; }
    bool has_parameter_jacobian() const override {
        return !std::same_as<ParameterJacobian, NotGiven>;
    }
    bool generic() const override { return Takes<F, tx::Jet<2>>; }
    bool evaluate(const Arguments<Directions>& at) const override { return call(f_, at, states()); }
    bool evaluate(const Arguments<Gradient>& at) const override { return call(f_, at, states()); }
    bool evaluate(const Arguments<tx::Jet<2>>& at) const override { return call(f_, at, states()); }
    bool evaluate(const Arguments<tx::Jet<3>>& at) const override { return call(f_, at, states()); }
    bool evaluate(const Arguments<tx::Jet<5>>& at) const override { return call(f_, at, states()); }

  private:
    template <class G, class Number>
    bool call(const G& g, const Arguments<Number>& at, std::size_t results) const {
        if constexpr (TakesViews<G, Number>) {
            tx::View<const Number> x(at.x, states());
            tx::View<const Number> c(at.c, parameters());
            tx::View<Number> dx(at.dx, results);
            g(at.t, x, c, dx);
        } else if constexpr (TakesPointers<G, Number>) {
            g(at.t, at.x, at.c, at.dx);
        }
        return Takes<G, Number>;
    }

    [[no_unique_address]] F f_;
    [[no_unique_address]] Jacobian jacobian_;
    [[no_unique_address]] ParameterJacobian parameter_jacobian_;
};

}  // namespace trajex

#endif
