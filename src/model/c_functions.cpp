// A right-hand side given by C functions with a context. Where only the block form is there, one
// point is a block of one.
#include <utility>

#include "model/compiled_equations.hpp"

namespace trajex {

namespace {

class CRightHandSide final : public RightHandSide {
  public:
    CRightHandSide(std::size_t n, std::size_t m, tx::CFunctions functions)
        : RightHandSide(n, m), c_(std::move(functions)) {}

    void value(const Arguments<double>& at) const override {
        if (c_.f != nullptr) {
            c_.f(at.t, at.x, at.c, at.dx, c_.context);
        } else {
            c_.block(1, &at.t, at.x, at.c, at.dx, c_.context);
        }
    }
    bool jacobian(double t, const double* x, const double* c, double* out) const override {
        if (c_.jacobian != nullptr) {
            c_.jacobian(t, x, c, out, c_.context);
        } else if (c_.block_jacobian != nullptr) {
            c_.block_jacobian(1, &t, x, c, out, c_.context);
        }
        return has_jacobian();
    }
    bool parameter_jacobian(double t, const double* x, const double* c,
                            double* out) const override {
        if (c_.parameter_jacobian != nullptr) c_.parameter_jacobian(t, x, c, out, c_.context);
        return has_parameter_jacobian();
    }
    bool has_jacobian() const override {
        return c_.jacobian != nullptr || c_.block_jacobian != nullptr;
    }
    bool has_parameter_jacobian() const override { return c_.parameter_jacobian != nullptr; }

    bool generic() const override { return false; }
    bool evaluate(const Arguments<Directions>& /*at*/) const override { return false; }
    bool evaluate(const Arguments<Gradient>& /*at*/) const override { return false; }
    bool evaluate(const Arguments<tx::Jet<2>>& /*at*/) const override { return false; }
    bool evaluate(const Arguments<tx::Jet<3>>& /*at*/) const override { return false; }
    bool evaluate(const Arguments<tx::Jet<5>>& /*at*/) const override { return false; }

    bool taylor(int order, double t, const double* x, const double* v, const double* c,
                const double* d, double* out) const override {
        if (c_.taylor != nullptr) c_.taylor(order, t, x, v, c, d, out, c_.context);
        return c_.taylor != nullptr;
    }

    bool has_block() const override { return c_.block != nullptr; }
    bool has_block_jacobian() const override { return c_.block_jacobian != nullptr; }
    void block(std::size_t K, const double* t, const double* x, const double* c,
               double* out) const override {
        c_.block(K, t, x, c, out, c_.context);
    }
    void block_jacobian(std::size_t K, const double* t, const double* x, const double* c,
                        double* out) const override {
        c_.block_jacobian(K, t, x, c, out, c_.context);
    }

  private:
    tx::CFunctions c_;
};

}  // namespace

std::shared_ptr<const RightHandSide> make_right_hand_side(std::size_t states,
                                                          std::size_t parameters,
                                                          const tx::CFunctions& functions) {
    return std::make_shared<CRightHandSide>(states, parameters, functions);
}

}  // namespace trajex
