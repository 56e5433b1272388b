// Whether a solution lies on a curve of which points are known: the nearest point of the cubic
// through the four points around a segment, in a metric where windows and variables have size 1.
#include "branches/known.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace trajex {

namespace {

constexpr double cells_of_window = 256;

/// Distance at which a solution is taken for one of the curve: what the cubic may miss.
double tolerance(double segment_length) {
    return 1e-5 + 2e-4 * std::min(segment_length, 0.3);
}

std::vector<double> signature_of(SolutionKind solution, std::span<const std::size_t> vary,
                                 const Description& description) {
    std::vector<double> signature;
    for (const std::size_t p : vary) signature.push_back(description.parameters[p]);
    const auto append = [&](const std::vector<double>& values) {
        signature.insert(signature.end(), values.begin(), values.end());
    };
    if (solution == SolutionKind::equilibrium) {
        append(description.state);
    } else {
        signature.insert(signature.end(), {description.norm, description.period});
        append(description.low);
        append(description.high);
    }
    return signature;
}

/// Windows for the parameters, for the others the sizes that they have at two points, at least 1e-3
/// of the largest of all: branches may run off to infinity, and are compared near by and far out
/// alike.
std::vector<double> scales_at(const std::vector<double>& windows, const std::vector<double>& a,
                              const std::vector<double>& b) {
    std::vector<double> scales(windows);
    double largest = 0;
    for (std::size_t i = windows.size(); i < a.size(); ++i) {
        scales.push_back(std::max(std::abs(a[i]), std::abs(b[i])));
        largest = std::max(largest, scales.back());
    }
    for (std::size_t i = windows.size(); i < a.size(); ++i)
        scales[i] = std::max({scales[i], 1e-3 * largest, 1e-6});
    return scales;
}

std::vector<double> divided(std::vector<double> values, const std::vector<double>& scales) {
    for (std::size_t i = 0; i < values.size(); ++i) values[i] /= scales[i];
    return values;
}

double distance(const std::vector<double>& a, const std::vector<double>& b) {
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
    return std::sqrt(sum);
}

/// Up to four consecutive points, interpolated as a function of the chord length from the first.
class ChordCubic {
  public:
    explicit ChordCubic(std::vector<std::vector<double>> points) : points_(std::move(points)) {
        for (std::size_t j = 1; j < points_.size(); ++j) {
            s_[j] = s_[j - 1] + distance(points_[j - 1], points_[j]);
        }
    }

    double knot(std::size_t j) const { return s_[j]; }

    /// sum of l_j(s) x_j with Lagrange's polynomials l_j of the knots.
    std::vector<double> at(double s) const {
        std::vector<double> x(points_[0].size(), 0.0);
        for (std::size_t j = 0; j < points_.size(); ++j) {
            double weight = 1;
            for (std::size_t k = 0; k < points_.size(); ++k) {
                if (k != j) weight *= (s - s_[k]) / (s_[j] - s_[k]);
            }
            for (std::size_t i = 0; i < x.size(); ++i) x[i] += weight * points_[j][i];
        }
        return x;
    }

  private:
    std::vector<std::vector<double>> points_;
    std::array<double, 4> s_{};
};

}  // namespace

Description mirrored(Description cycle, const std::vector<int>& signs) {
    for (std::size_t i = 0; i < signs.size(); ++i) {
        if (signs[i] > 0) continue;
        cycle.state[i] = -cycle.state[i];
        std::swap(cycle.low[i], cycle.high[i]);
        cycle.low[i] = -cycle.low[i];
        cycle.high[i] = -cycle.high[i];
    }
    return cycle;
}

std::int64_t KnownSolutions::cell_of(double parameter) const {
    return static_cast<std::int64_t>(std::floor(parameter / cell_width_));
}

void KnownSolutions::add(const std::shared_ptr<const BranchData>& branch) {
    if (branch->size() < 2) return;
    for (const bool image : {false, true}) {
        if (image && branch->image_signs.empty()) continue;
        Curve curve{branch, image, {}, {}};
        for (const tx::Window& window : branch->windows)
            curve.windows.push_back(window.hi - window.lo);
        for (std::size_t i = 0; i < branch->size(); ++i) {
            Description description = point_of(*branch, i).description;
            if (image) description = mirrored(std::move(description), branch->image_signs);
            Vector signature = signature_of(branch->solution, branch->vary, description);
            const bool repeated = i > 0 && signature == curve.signatures.back();
            if (!repeated) curve.signatures.push_back(std::move(signature));
        }
        add(std::move(curve));
    }
}

void KnownSolutions::add(Curve curve) {
    if (cell_width_ == 0) cell_width_ = curve.windows[0] / cells_of_window;

    for (std::size_t i = 0; i + 1 < curve.signatures.size(); ++i) {
        const Vector& a = curve.signatures[i];
        const Vector& b = curve.signatures[i + 1];
        const Vector scales = scales_at(curve.windows, a, b);
        // Beyond the ends of the chord, at a turn.
        const double bulge = 0.25 * distance(divided(a, scales), divided(b, scales)) * scales[0];
        const std::int64_t low = cell_of(std::min(a[0], b[0]) - bulge);
        const std::int64_t high = cell_of(std::max(a[0], b[0]) + bulge);
        for (std::int64_t cell = low; cell <= high; ++cell) {
            cells_[cell].push_back({curves_.size(), i});
        }
    }
    curves_.push_back(std::move(curve));
}

bool KnownSolutions::on_segment(const Curve& curve, std::size_t point, const Vector& given) {
    const Vector scales =
        scales_at(curve.windows, curve.signatures[point], curve.signatures[point + 1]);
    const Vector signature = divided(given, scales);
    const Vector a = divided(curve.signatures[point], scales);
    const Vector b = divided(curve.signatures[point + 1], scales);
    const double length = distance(a, b);
    if (length == 0 || std::min(distance(a, signature), distance(b, signature)) > length) {
        return false;
    }
    const std::size_t first = point > 0 ? point - 1 : 0;
    const std::size_t last = std::min(point + 2, curve.signatures.size() - 1);
    std::vector<Vector> around;
    for (std::size_t k = first; k <= last; ++k)
        around.push_back(divided(curve.signatures[k], scales));
    const ChordCubic cubic(std::move(around));
    const double begin = cubic.knot(point - first);

    // The nearest point of the curve: Gauss-Newton steps from the foot of the perpendicular.
    double s = begin + 0.5 * length;
    double nearest = length;
    for (int step = 0; step < 6; ++step) {
        const double ds = 1e-3 * length;
        const Vector x = cubic.at(s);
        const Vector y = cubic.at(s + ds);
        double along = 0;
        double square = 0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            const double tangent = (y[i] - x[i]) / ds;
            along += tangent * (signature[i] - x[i]);
            square += tangent * tangent;
        }
        nearest = std::min(nearest, distance(x, signature));
        s = std::clamp(s + along / square, begin - 0.01 * length, begin + 1.01 * length);
    }
    return nearest <= tolerance(length);
}

KnownBranch KnownSolutions::branch_through(SolutionKind solution, std::span<const std::size_t> vary,
                                           const Description& description) const {
    if (curves_.empty()) return {};
    const auto cell = cells_.find(cell_of(description.parameters[vary[0]]));
    if (cell == cells_.end()) return {};
    const Vector signature = signature_of(solution, vary, description);
    for (const Segment& segment : cell->second) {
        const Curve& curve = curves_[segment.curve];
        const BranchData& branch = *curve.branch;
        if (branch.solution != solution || !std::ranges::equal(branch.vary, vary)) continue;
        if (on_segment(curve, segment.point, signature)) return {&branch, curve.image};
    }
    return {};
}

}  // namespace trajex
