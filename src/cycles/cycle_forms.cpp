// With L v = 0, v(1) = s v(0), adjoints scaled to w.v = 1 and, for s = 1, phi*.f = 1, averages
// being sums over the Gauss points:
//
//     PD:  a = phi*.B(v,v)/2,   L h = T (B(v,v) - 2 a f),  phi*.h = 0,
//          c = w.[C(v,v,v) + 3 B(v,h) - 6 a A v]/6
//     NS:  a = phi*.B(v,v'),  L_{s^2} h20 = T B(v,v),  L h11 = T (B(v,v') - a f),  phi*.h11 = 0,
//          d = w.[C(v,v,v') + 2 B(v,h11) + B(v',h20) - 2 a A v]/2            (v' the conjugate of
//          v)
//
// Under periodic forcing a = 0, and L with s = 1 is regular.
#include "cycles/cycle_forms.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace trajex {

namespace {

using Complex = std::complex<double>;
using Field = std::vector<double>;  // n numbers at each Gauss point

/// B(u, w) and C(u, v, w) of the right-hand side at all Gauss points of a cycle, from derivatives
/// along one direction: exact ones where there are Taylor numbers, else differences of values.
class FormsOfCycle {
  public:
    FormsOfCycle(const CycleProblem& problem)
        : segments_(problem.segments()), rate_(segments_.rate()), n_(segments_.states()) {
        scale_ = problem.scale();
    }

    Field B(const Field& u, const Field& w) const {
        return combined(along(2, sum(u, w, 1)), 0.5, along(2, sum(u, w, -1)), -0.5);
    }
    Field B(const Field& u) const { return combined(along(2, u), 2, u, 0); }
    Field C(const Field& u) const { return combined(along(3, u), 6, u, 0); }
    /// C(u, u, w) = [C(u+w) - C(u-w)]/6 - C(w)/3.
    Field C(const Field& u, const Field& w) const {
        const Field both = combined(along(3, sum(u, w, 1)), 1, along(3, sum(u, w, -1)), -1);
        return combined(both, 1, along(3, w), -2);
    }
    /// f, and A u.
    Field f() const {
        Field out(count() * n_);
        const std::vector<double> t = times();
        rate_.equations().values(count(), t.data(), segments_.gauss_states(), c(), out.data());
        return out;
    }
    Field A(const Field& u) const {
        Field out(u.size(), 0.0);
        for (std::size_t k = 0; k < count(); ++k) {
            const double* const G = segments_.jacobian(k);
            for (std::size_t a = 0; a < n_; ++a) {
                for (std::size_t b = 0; b < n_; ++b) {
                    out[k * n_ + a] += G[a * n_ + b] * u[k * n_ + b] / rate_.period();
                }
            }
        }
        return out;
    }
    static Field sum(const Field& u, const Field& w, double factor) {
        return combined(u, 1, w, factor);
    }
    static Field combined(const Field& u, double p, const Field& w, double q) {
        Field out(u.size());
        for (std::size_t k = 0; k < u.size(); ++k) out[k] = p * u[k] + q * w[k];
        return out;
    }

  private:
    std::size_t count() const { return segments_.points(); }
    const double* c() const { return rate_.parameters().data(); }
    std::vector<double> times() const {
        std::vector<double> t(count());
        for (std::size_t k = 0; k < count(); ++k) {
            t[k] = rate_.timing().t0 + segments_.gauss_times()[k] * rate_.period();
        }
        return t;
    }
    // The coefficient of s^order in f(x + s u).
    Field along(int order, const Field& u) const {
        Field out(u.size());
        const std::vector<double> t = times();
        std::vector<double> series((static_cast<std::size_t>(order) + 1) * n_);
        for (std::size_t k = 0; k < count(); ++k) {
            if (!rate_.equations().taylor(order, t[k], segments_.gauss_states() + k * n_,
                                          &u[k * n_], c(), nullptr, series.data())) {
                return differences(order, u, t);
            }
            std::copy_n(&series[static_cast<std::size_t>(order) * n_], n_, &out[k * n_]);
        }
        return out;
    }
    Field differences(int order, const Field& u, const std::vector<double>& t) const {
        double largest = 0;
        for (std::size_t k = 0; k < u.size(); ++k) {
            largest = std::max(largest, std::fabs(u[k]) / scale_[k % n_]);
        }
        Field out(u.size(), 0.0);
        if (largest == 0) return out;
        const double e = (order == 2 ? 2e-3 : 5e-3) / largest;
        // Central differences of fourth order of the second and third derivative.
        struct Term {
            double shift, second, third;
        };
        constexpr Term terms[] = {{0, -30, 0},  {1, 16, -13}, {-1, 16, 13}, {2, -1, 8},
                                  {-2, -1, -8}, {3, 0, -1},   {-3, 0, 1}};
        Field x(u.size());
        Field f(u.size());
        for (const Term& term : terms) {
            const double factor = order == 2 ? term.second / 24 : term.third / 48;
            if (factor == 0) continue;
            for (std::size_t k = 0; k < u.size(); ++k) {
                x[k] = segments_.gauss_states()[k] + term.shift * e * u[k];
            }
            rate_.equations().values(count(), t.data(), x.data(), c(), f.data());
            for (std::size_t k = 0; k < u.size(); ++k) out[k] += factor * f[k];
        }
        for (double& v : out) v /= std::pow(e, order);
        return out;
    }

    const Collocation& segments_;
    const Rate& rate_;
    std::size_t n_;
    std::vector<double> scale_;
};

// At the Gauss points, of a complex solution that closes with a complex factor.
void values_at_gauss(const Collocation& segments, const std::vector<Complex>& v, Complex closing,
                     Field& re, Field& im) {
    const std::size_t m = segments.rule().m;
    const std::size_t n = segments.states();
    re.assign(v.size(), 0.0);
    im.assign(v.size(), 0.0);
    for (std::size_t k = 0; k < segments.points(); ++k) {
        for (std::size_t j = 0; j <= m; ++j) {
            const std::size_t at = k / m * m + j;
            const bool closes = at == segments.points();
            for (std::size_t a = 0; a < n; ++a) {
                const Complex x = closes ? closing * v[a] : v[at * n + a];
                re[k * n + a] += segments.rule().value[k % m][j] * x.real();
                im[k * n + a] += segments.rule().value[k % m][j] * x.imag();
            }
        }
    }
}

/// Averages over a cycle: rows of the chain have the length of their interval as a factor.
struct Averages {
    const Collocation& segments;

    double length(std::size_t k) const {
        const std::size_t i = k / (segments.rule().m * segments.states());
        return segments.mesh()[i + 1] - segments.mesh()[i];
    }
    template <class Scalar, class Values>
    Scalar of(const std::vector<Scalar>& w, const Values& g) const {
        Scalar sum{};
        for (std::size_t k = 0; k < w.size(); ++k) sum += w[k] * length(k) * g[k];
        return sum;
    }
    /// The integral of |v|^2.
    double square(const Field& v) const {
        double sum = 0;
        const std::size_t n = segments.states();
        for (std::size_t k = 0; k < v.size(); ++k) {
            sum += segments.rule().weight[k / n % segments.rule().m] * length(k) * v[k] * v[k];
        }
        return sum;
    }
    /// Right-hand sides of the chain for L h = T g.
    template <class Values>
    Values side(Values g) const {
        for (std::size_t k = 0; k < g.size(); ++k) g[k] *= length(k) * segments.rate().period();
        return g;
    }
};

/// The periodic solution h of L h = T (g - alpha f) with phi*.h = 0, alpha = phi*.g, at the Gauss
/// points.
class PeriodicPart {
  public:
    bool prepare(CycleProblem& problem, const Field& f) {
        autonomous_ = problem.timing().autonomous();
        segments_ = &problem.segments();
        if (!autonomous_) return operator_.prepare_regular(problem, 1.0);
        if (!operator_.prepare_singular(problem, 1.0)) return false;
        f_ = f;
        const double product = Averages{*segments_}.of(operator_.adjoint(), f);
        adjoint_ = operator_.adjoint();
        for (double& w : adjoint_) w /= product;
        return std::isfinite(product) && product != 0;
    }
    double along_flow(const Field& g) const {
        return autonomous_ ? Averages{*segments_}.of(adjoint_, g) : 0;
    }
    Field solve(const Field& g) const {
        const Averages averages{*segments_};
        const double alpha = along_flow(g);
        Field side = averages.side(autonomous_ ? FormsOfCycle::sum(g, f_, -alpha) : g);
        operator_.solve(side);
        Field h(side.size());
        segments_->to_gauss(side.data(), 1, h.data());
        return autonomous_ ? FormsOfCycle::sum(h, f_, -along_flow(h)) : h;
    }

  private:
    LinearisedCycle<double> operator_;
    const Collocation* segments_ = nullptr;
    bool autonomous_ = true;
    Field f_, adjoint_;
};

bool linearise_at(CycleProblem& problem, const std::vector<double>& z) {
    std::vector<double> f(problem.equations());
    return problem.linearise(z.data(), f.data());
}

}  // namespace

// ---- Linearised equations ----

template <class Scalar>
bool LinearisedCycle<Scalar>::prepare_regular(CycleProblem& problem, Scalar closing) {
    closing_ = closing;
    borders_ = 0;
    const Condensation* const condensation = problem.condensation();
    return condensation != nullptr &&
           chain_.factor(*condensation, problem.chain(), closing, 0, nullptr, nullptr, nullptr);
}

template <class Scalar>
bool LinearisedCycle<Scalar>::border(CycleProblem& problem, const std::vector<Scalar>& column,
                                     const std::vector<Scalar>& row) {
    const Scalar corner{};
    const Condensation* const condensation = problem.condensation();
    return condensation != nullptr && chain_.factor(*condensation, problem.chain(), closing_, 1,
                                                    column.data(), row.data(), &corner);
}

// [L b; c 0] [v; g] = [0; 1] gives v up to a factor, whatever the borders; those are then replaced
// by the null vectors themselves.
template <class Scalar>
bool LinearisedCycle<Scalar>::prepare_singular(CycleProblem& problem, Scalar closing) {
    closing_ = closing;
    borders_ = 1;
    const std::size_t size = problem.segments().equations();
    const std::vector<double>& scale = problem.scale();
    std::vector<Scalar> column(size);
    std::vector<Scalar> row(size);
    for (std::size_t k = 0; k < size; ++k) {
        const auto angle = static_cast<double>(k);
        column[k] = std::cos(1 + 2 * angle) * scale[k % scale.size()];
        row[k] = std::sin(1 + 3 * angle) / scale[k % scale.size()];
    }
    for (int i = 0; i < 3; ++i) {
        if (!border(problem, column, row)) return false;
        if (i == 2) break;
        v_.assign(size, Scalar{});
        w_.assign(size, Scalar{});
        Scalar one = 1;
        chain_.solve(v_.data(), &one);
        one = 1;
        chain_.solve_transposed(w_.data(), &one);
        double vv = 0;
        double ww = 0;
        for (std::size_t k = 0; k < size; ++k) {
            vv += std::norm(v_[k] / scale[k % scale.size()]);
            ww += std::norm(w_[k] * scale[k % scale.size()]);
        }
        if (!std::isfinite(vv + ww)) return false;
        for (std::size_t k = 0; k < size; ++k) {
            const double s = scale[k % scale.size()];
            row[k] = conjugate(v_[k]) / (s * s * std::sqrt(vv));
            column[k] = conjugate(w_[k]) * (s * s / std::sqrt(ww));
        }
    }
    return true;
}

template <class Scalar>
Scalar LinearisedCycle<Scalar>::conjugate(Scalar x) {
    if constexpr (std::is_same_v<Scalar, double>)
        return x;
    else
        return std::conj(x);
}

template <class Scalar>
void LinearisedCycle<Scalar>::solve(std::vector<Scalar>& g) const {
    Scalar none{};
    chain_.solve(g.data(), borders_ == 0 ? nullptr : &none);
}

template class LinearisedCycle<double>;
template class LinearisedCycle<Complex>;

// ---- Coefficients ----

std::vector<double> second_derivative(const CycleProblem& problem, const std::vector<double>& u) {
    return FormsOfCycle(problem).B(u);
}

CycleCoefficient doubling_coefficient(CycleProblem& problem, const std::vector<double>& z) {
    CycleCoefficient result;
    LinearisedCycle<double> half;
    PeriodicPart periodic;
    if (!linearise_at(problem, z) || !half.prepare_singular(problem, -1.0)) return result;
    const FormsOfCycle forms(problem);
    const Averages averages{problem.segments()};
    if (!periodic.prepare(problem, forms.f())) return result;

    Field v(half.solution().size());
    problem.segments().to_gauss(half.solution().data(), -1, v.data());
    const double norm = std::sqrt(averages.square(v));
    for (double& component : v) component /= norm;
    const double product = averages.of(half.adjoint(), v);

    const Field Bvv = forms.B(v);
    result.a = 0.5 * periodic.along_flow(Bvv);
    const Field h = periodic.solve(Bvv);
    Field g = FormsOfCycle::combined(forms.C(v), 1, forms.B(v, h), 3);
    g = FormsOfCycle::combined(g, 1, forms.A(v), -6 * result.a);
    result.value = averages.of(half.adjoint(), g) / product / 6;
    result.known = std::isfinite(result.value);
    return result;
}

CycleCoefficient torus_coefficient(CycleProblem& problem, const std::vector<double>& z,
                                   double theta) {
    CycleCoefficient result;
    LinearisedCycle<Complex> critical;
    LinearisedCycle<Complex> twice;
    PeriodicPart periodic;
    if (!linearise_at(problem, z) || !critical.prepare_singular(problem, std::polar(1.0, theta)) ||
        !twice.prepare_regular(problem, std::polar(1.0, 2 * theta))) {
        return result;
    }
    const Collocation& segments = problem.segments();
    const FormsOfCycle forms(problem);
    const Averages averages{segments};
    if (!periodic.prepare(problem, forms.f())) return result;
    const auto complex = [](const Field& re, const Field& im) {
        std::vector<Complex> out(re.size());
        for (std::size_t k = 0; k < re.size(); ++k) out[k] = {re[k], im[k]};
        return out;
    };

    Field a, b;
    values_at_gauss(segments, critical.solution(), std::polar(1.0, theta), a, b);
    const double norm = std::sqrt(averages.square(a) + averages.square(b));
    for (Field* part : {&a, &b}) {
        for (double& component : *part) component /= norm;
    }
    const Complex product = averages.of(critical.adjoint(), complex(a, b));

    const Field Baa = forms.B(a), Bbb = forms.B(b), Bab = forms.B(a, b);
    const Field mixed = FormsOfCycle::sum(Baa, Bbb, 1);  // B(v, v')
    result.a = periodic.along_flow(mixed);
    const Field h11 = periodic.solve(mixed);
    std::vector<Complex> side =
        averages.side(complex(FormsOfCycle::sum(Baa, Bbb, -1), FormsOfCycle::sum(Bab, Bab, 1)));
    twice.solve(side);
    Field h, k;
    values_at_gauss(segments, side, std::polar(1.0, 2 * theta), h, k);

    // C(v,v,v') = C(aaa) + C(abb) + i [C(aab) + C(bbb)], and so on for the bilinear terms.
    const auto add = [](Field& to, const Field& term, double factor) {
        for (std::size_t i = 0; i < to.size(); ++i) to[i] += factor * term[i];
    };
    Field re = FormsOfCycle::sum(forms.C(a), forms.C(b, a), 1);
    Field im = FormsOfCycle::sum(forms.C(a, b), forms.C(b), 1);
    add(re, forms.B(a, h11), 2);
    add(im, forms.B(b, h11), 2);
    add(re, forms.B(a, h), 1);
    add(re, forms.B(b, k), 1);
    add(im, forms.B(a, k), 1);
    add(im, forms.B(b, h), -1);
    add(re, forms.A(a), -2 * result.a);
    add(im, forms.A(b), -2 * result.a);
    result.value = (averages.of(critical.adjoint(), complex(re, im)) / product).real() / 2;
    result.known = std::isfinite(result.value);
    return result;
}

}  // namespace trajex
