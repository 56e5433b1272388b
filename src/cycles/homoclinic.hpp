// Families of cycles that come to a connection. Their period grows without bound, and the parameter
// converges: monotonically, or, where an equilibrium is a saddle-focus, about its limit,
//
//     p_k - p ~ (-q)^k,   T_k - T_(k-1) -> pi / omega,   0 < q < 1,
//
// p_k, T_k at the folds, with as many period doublings beside them, each nearer to its fold than
// the one before. Where the connection is one of a cycle, the folds have two limits, at its
// tangencies. Reference: Glendinning and Sparrow, J. Stat. Phys. 35 (1984) 645.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace trajex {

class HomoclinicApproach {
  public:
    struct Cycle {
        double parameter = 0, period = 0, amplitude = 0;
        double slope = 0;  // dp/dT along the branch
    };
    /// The next cycle of the branch; `width` of the parameter's window.
    void remember(const Cycle& cycle, double width);
    /// Whether a connection is near; `detail` says more.
    bool suspected(std::string& detail) const;

  private:
    bool on_plateau(const Cycle& cycle) const;
    void add_turn(const Cycle& before, const Cycle& after);
    bool converging(double moved, double moved_before) const;
    bool near_one_limit(double& limit) const;
    bool near_two_limits(double& lower, double& upper) const;
    double moved(std::size_t k, std::size_t over) const {
        return turns_[k].parameter - turns_[k + over].parameter;
    }
    bool steady(std::size_t k, std::size_t over) const;

    double width_ = 1;
    Cycle last_, plateau_;  // plateau_: the last before which parameter or amplitude were others
    std::array<Cycle, 6> turns_{};  // of the parameter, the latest first
    std::size_t turn_count_ = 0;
};

}  // namespace trajex
