// Periodic orbits with exact bifurcations: a normal form z' = F(z; mu), mu = c - 0.3, in a frame
// that turns by `half_turns` half turns per period 2 pi, around an orbit q(t; c) that moves with
// the parameter,
//
//     x = q(t; c) + R z,    q = (1 + c / 2) (cos(t + 1), sin(t + 1)),    R = rotation by
//                                                                       0.6 + half_turns t / 2.
//
// Orbits of period 2 pi are the equilibria of the form; with an odd number of half turns F is odd
// and an equilibrium other than 0 has period 4 pi. The autonomous version takes t from the phase of
// a cycle of radius 1 and angular velocity 1 + c.
#pragma once

#include <cmath>
#include <limits>

#include <stdexcept>
#include <string>

#include "core/errors.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace orbit_forms {

using testing_support::pi;
inline constexpr double bifurcation_at = 0.3;
inline constexpr double first_angle = 0.6;

inline double c = bifurcation_at;

/// What goes wrong in the right-hand side, from a call on.
enum class Fault { none, exception, not_a_number };
inline Fault fault = Fault::none;
inline long calls_before_fault = 0;

struct Vector {
    double component[2];
    double operator[](int i) const { return component[i]; }
};

struct Pitchfork {
    static constexpr int half_turns = 2;
    static Vector flow(double mu, Vector z) { return {mu * z[0] - z[0] * z[0] * z[0], -z[1]}; }
};
struct Transcritical {
    static constexpr int half_turns = 2;
    static Vector flow(double mu, Vector z) { return {mu * z[0] - z[0] * z[0], -z[1]}; }
};
struct SaddleNode {
    static constexpr int half_turns = 2;
    static Vector flow(double mu, Vector z) { return {mu - z[0] * z[0], -z[1]}; }
};
struct PeriodDoubling {
    static constexpr int half_turns = 1;
    static Vector flow(double mu, Vector z) { return Pitchfork::flow(mu, z); }
};
struct Torus {
    static constexpr int half_turns = 2;
    static Vector flow(double mu, Vector z) {
        const double growth = mu - z[0] * z[0] - z[1] * z[1];
        return {growth * z[0] - 0.2 * z[1], growth * z[1] + 0.2 * z[0]};
    }
};

/// The point R(0) z of the start section, as seen from q(0).
inline Vector displacement(Vector z) {
    const double co = std::cos(first_angle);
    const double si = std::sin(first_angle);
    return {co * z[0] - si * z[1], si * z[0] + co * z[1]};
}

/// The orbit of the form's equilibrium z at time 0.
inline Vector orbit_at(double parameter, Vector z) {
    const Vector d = displacement(z);
    const double radius = 1 + parameter / 2;
    return {radius * std::cos(1.0) + d[0], radius * std::sin(1.0) + d[1]};
}

/// dq/dc at time 0.
inline Vector orbit_slope() {
    return {std::cos(1.0) / 2, std::sin(1.0) / 2};
}

template <class Form>
void flow_at_phase(double phase, const double* x, double* f) {
    if (fault != Fault::none && calls_before_fault-- <= 0) {
        if (fault == Fault::exception) throw std::runtime_error("right-hand side");
        f[0] = f[1] = std::numeric_limits<double>::quiet_NaN();
        return;
    }
    const double radius = 1 + c / 2;
    const double turning = Form::half_turns / 2.0;
    const double co = std::cos(first_angle + turning * phase);
    const double si = std::sin(first_angle + turning * phase);
    const double q[2] = {radius * std::cos(phase + 1), radius * std::sin(phase + 1)};
    const double d[2] = {x[0] - q[0], x[1] - q[1]};
    const Vector dz =
        Form::flow(c - bifurcation_at, {co * d[0] + si * d[1], -si * d[0] + co * d[1]});
    f[0] = -q[1] - turning * d[1] + co * dz[0] - si * dz[1];
    f[1] = q[0] + turning * d[0] + si * dz[0] + co * dz[1];
}

template <class Form>
void forced(double t, double* y, double* f) {
    flow_at_phase<Form>(t, y, f);
}

/// State (X, Y, x), (X, Y) on the cycle; the section Y = 0 is crossed twice in a period.
template <class Form>
void autonomous(double, double* y, double* f) {
    const double velocity = 1 + c;
    const double pull = 1 - y[0] * y[0] - y[1] * y[1];
    f[0] = velocity * (pull * y[0] - y[1]);
    f[1] = velocity * (pull * y[1] + y[0]);
    flow_at_phase<Form>(std::atan2(y[1], y[0]), y + 2, f + 2);
    f[2] *= velocity;
    f[3] *= velocity;
}

inline double section(double, double* y) {
    return y[1];
}

/// A recording handle with one parameter, at settings that suit bifurcations. Its record is not the
/// one that the handle owns.
class Study {
  public:
    Study(void (*fcn)(double, double*, double*), int order)
        : tx_(testing_support::open_recording(fcn, order, 1e-9)) {
        fault = Fault::none;
        TXSetAbsTol(tx_.get(), 1e-9);
        TXVarOpenTrajex(tx_.get(), nullptr, 1e-6, 1, nullptr, 1e-6, &c);
        tx_->NewtAbsTol = 1e-7;
        tx_->LambdaNewtRelTol = 1e-6;
        tx_->LambdaPert = 1e-6;
        TXSetCut(tx_.get(), section, 1e-9);
        bif_ = TXCreateBif(tx_.get());
    }
    ~Study() { TXDestroyBif(tx_.get(), bif_); }
    Study(const Study&) = delete;
    Study& operator=(const Study&) = delete;

    Trajex* tx() const { return tx_.get(); }
    TrajexBif& bif() const { return *bif_; }

    /// The guess of an orbit for the parameter value.
    void start(double parameter, Vector z, double period) {
        c = parameter;
        const Vector x = orbit_at(parameter, z);
        const bool has_cycle = tx_->order == 4;
        if (has_cycle) {
            bif_->y[0] = 1;
            bif_->y[1] = 1e-10;
        }
        double* const transversal = bif_->y + (has_cycle ? 2 : 0);
        transversal[0] = x[0];
        transversal[1] = x[1];
        bif_->t = 0;
        bif_->T = period;
    }

    /// Runs an operation on a temporary stream; what it wrote is in `progress`.
    template <class Operation>
    int with_progress(Operation&& operation) {
        FILE* file = std::tmpfile();
        const int result = operation(file);
        progress.clear();
        std::rewind(file);
        for (int character; (character = std::fgetc(file)) != EOF;) {
            progress += static_cast<char>(character);
        }
        std::fclose(file);
        return result;
    }
    int locate(int mode) {
        return with_progress([&](FILE* file) { return TXLocateBif(tx(), bif_, &c, mode, file); });
    }
    int check(double thedc, int mode) {
        return with_progress(
            [&](FILE* file) { return TXCheckBif(tx(), bif_, &c, thedc, mode, file); });
    }

    std::string progress;

  private:
    testing_support::OpenHandle tx_;
    TrajexBif* bif_ = nullptr;
};

}  // namespace orbit_forms
