// Families of cycles that come to a connection of equilibria. Their period grows without bound, and
// the parameter converges: monotonically, or, where the equilibrium is a saddle-focus, about its
// limit,
//
//     p_k - p ~ (-q)^k,   T_k - T_(k-1) -> pi / omega,   0 < q < 1,
//
// p_k, T_k at the folds, with as many period doublings beside them, each nearer to its fold than
// the one before. Reference: Glendinning and Sparrow, J. Stat. Phys. 35 (1984) 645.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace trajex {

class HomoclinicApproach {
  public:
    /// The next cycle of the branch; `width` of the parameter's window.
    void remember(double parameter, double period, double amplitude, double width);
    /// Whether a connection is near; `detail` says more.
    bool suspected(std::string& detail) const;

  private:
    struct Cycle {
        double parameter = 0, period = 0, amplitude = 0;
    };
    bool on_plateau(const Cycle& cycle) const;
    void find_turn();
    bool wiggles(double& limit) const;

    double width_ = 1;
    std::array<Cycle, 3> last_{};  // the latest first
    std::size_t count_ = 0;
    Cycle plateau_{};               // the last before which parameter or amplitude were others
    std::array<Cycle, 5> turns_{};  // of the parameter, the latest first
    std::size_t turn_count_ = 0;
};

}  // namespace trajex
