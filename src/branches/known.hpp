// The solutions that a diagram has already, so that no branch is computed twice.
//
// Each point of a branch has a signature: parameters and state of an equilibrium; parameters, norm,
// period and extremes of a cycle, whatever its phase. Another run has other points on the same
// curve, so a solution is compared with the curve between known points: the segments that overlap
// its cell of the parameter are looked at, the few near it are interpolated by a cubic. Mirror
// images have other signatures and are other branches, unless one branch stands for both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "branches/data.hpp"

namespace trajex {

/// A branch through a given solution, or whose mirror image is; none where it is false.
struct KnownBranch {
    const BranchData* branch = nullptr;
    bool by_image = false;

    explicit operator bool() const { return branch != nullptr; }
    bool operator==(const KnownBranch&) const = default;
    std::string name() const { return branch->id + (by_image ? "'s mirror image" : ""); }
};

/// The same cycle with the variables of negative sign turned round.
Description mirrored(Description cycle, const std::vector<int>& signs);

class KnownSolutions {
  public:
    /// Takes in all points of a branch.
    void add(const std::shared_ptr<const BranchData>& branch);

    /// The branch that passes through a solution with these active parameters. A run that hits one
    /// twice in a row is on it.
    KnownBranch branch_through(SolutionKind solution, std::span<const std::size_t> vary,
                               const Description& description) const;

  private:
    using Vector = std::vector<double>;

    struct Curve {
        std::shared_ptr<const BranchData> branch;
        bool image;                      ///< its points are those of the mirror image
        Vector windows;                  ///< widths, of the parameters
        std::vector<Vector> signatures;  ///< of its points
    };
    struct Segment {
        std::size_t curve;
        std::size_t point;  ///< from this one to the next
    };

    void add(Curve curve);
    std::int64_t cell_of(double parameter) const;
    static bool on_segment(const Curve& curve, std::size_t point, const Vector& given);

    double cell_width_ = 0;
    std::vector<Curve> curves_;
    std::unordered_map<std::int64_t, std::vector<Segment>> cells_;
};

}  // namespace trajex
