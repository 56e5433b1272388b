// The operations that call back into the application, ready to run: tests that make a callback
// fail, an allocation fail or threads meet go through this list. A new operation is one line in
// operations().
#pragma once

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include "core/guards.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace testing_support {

/// The circles with all that an operation may need, and with callbacks that go through the probe.
class Bench {
  public:
    explicit Bench(bool analytic) : tx(open_recording(flow, 2, 1e-8, 0.05)) {
        if (analytic) {
            TXVarOpenTrajex(tx.get(), jacobian, 2, &parameter_jacobian, &c1, &c2);
        } else {
            TXVarOpenTrajex(tx.get(), nullptr, 1e-6, 2, nullptr, 1e-6, &c1, &c2);
        }
        tx->TX->TerminateOnFatalError = 0;
        tx->NewtAbsTol = tx->LambdaNewtAbsTol = 1e-7;
        tx->LambdaNewtRelTol = 1e-6;
        TXSetCut(tx.get(), cut, 1e-7);
        first_row = tx->TX->j[0];
        restart();
    }

    const trajex::Temporarily<double> restored_c1{Circles::c1, 1}, restored_c2{Circles::c2, 0};
    double &c1 = Circles::c1, &c2 = Circles::c2;
    OpenHandle tx;
    operator Trajex*() const { return tx.get(); }
    double t = 0, y[2], entry_y[2], entry_c1 = 0, T = 0, dc = 0;
    double rows[2][4], *Phi[2] = {rows[0], rows[1]};
    const double* first_row = nullptr;  // of the work matrix

    /// Variables and proposed step sizes as at first, near the Hopf bifurcation.
    void restart() {
        c2 = 2, t = 0, T = 5, dc = 0.15;
        std::fill_n(rows[0], 8, 0.0);
        rows[0][0] = rows[1][1] = 1;
        tx->h = tx->TX->h = 0.05;
        tx->MaxContSteps = 1000, tx->LambdaPert = 1e-6;
        std::fill_n(tx->cp, 2, '\1');
        start(0.85, 0.05, -0.2);
    }
    /// Another state and parameter, for an operation that needs them.
    Trajex* start(double y0, double y1, double c) {
        y[0] = entry_y[0] = y0, y[1] = entry_y[1] = y1, c1 = entry_c1 = c;
        return tx.get();
    }
    /// On the circle just before it meets its neighbour.
    Trajex* start_circle() {
        T = 2 * pi, dc = -0.05, tx->LambdaPert = 1e-4, tx->MaxContSteps = 3;
        return start(1.24, 1e-3, -0.9);
    }
    /// The record of a bifurcation that is to be searched for, or followed.
    TrajexBif* describe(double y0, double c, double period, int type) {
        start(y0, 0, c);
        if (tx->txb == nullptr) tx->txb = TXCreateBif(tx.get());
        if (TrajexBif* bif = tx->txb) {
            bif->t = 0, bif->T = period, bif->biftype = type, bif->indir = 0;
            std::copy_n(y, 2, bif->y);
            bif->c[0] = c, bif->c[1] = c2;
            for (double* vector : {bif->er, bif->ei, bif->intang}) std::fill_n(vector, 2, 0.0);
        }
        return tx->txb;
    }

    /// Everything that an operation has an effect on.
    std::vector<double> outcome(int result) const {
        const Trajex& handle = *tx;
        std::vector<double> all{double(result), double(handle.ErrorCode), double(handle.nparam)};
        all.insert(all.end(), {t, y[0], y[1], T, dc, c1, c2});
        all.insert(all.end(), rows[0], rows[0] + 8);
        if (const TrajexBif* bif = handle.txb) {
            for (const double* vector : {bif->y, bif->c, bif->er, bif->ei}) {
                all.insert(all.end(), vector, vector + 2);
            }
        }
        return all;
    }

    /// Searches for the equilibrium's bifurcation, or, with a period, for that of an orbit.
    int locate(double period) {
        TrajexBif* const bif = describe(0.9, -0.05, period, 0);
        if (bif == nullptr) return 0;
        return period > 0 ? TXLocateBif(tx.get(), bif, &c1, 0, nullptr)
                          : TXLocateEquiBif(tx.get(), bif, &c1, nullptr);
    }
    static void report_point(Trajex*, FILE*) { Probe::used_up(); }
    static void take_sample(double, double*) { Probe::used_up(); }
    int branch(auto run, auto... arguments) {
        return run(tx.get(), arguments..., &c1, &dc, 1, 4, &report_point,
                   static_cast<FILE*>(nullptr));
    }
    int curve(auto run) {
        tx->MaxContSteps = 1;
        return run(tx.get(), &c1, &c2, &dc, 4, &report_point, static_cast<FILE*>(nullptr));
    }

  private:
    static constexpr auto flow = Probe::flow<Circles::flow>;
    static void jacobian(double t, double* y, double** J) {
        Circles::jacobian(t, y, J);
        if (Probe::used_up()) J[0][0] = not_a_number;
    }
    static void parameter_jacobian(double t, double* y, double** J) {
        Circles::parameter_jacobian(t, y, J);
        if (Probe::used_up()) J[0][0] = not_a_number;
    }
    static double cut(double, double* y) { return Probe::used_up() ? not_a_number : y[1]; }
};

/// What a failed operation has put back when it ends: no variable of the application, parameter c2,
/// both parameters, or the time and the state as well.
enum class Restores { nothing, other_parameter, parameters, everything };

struct Operation {
    std::string name;
    Restores restores;
    int (*run)(Bench& b);
};

inline void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

inline const std::vector<Operation>& operations() {
    using enum Restores;
    constexpr int torus = 1, fold = 3, hopf = 6;
    static const std::vector<Operation> all = {
        {"Step", parameters, [](auto& b) { return TXStep(b, &b.t, b.y); }},
        {"Integrate", parameters, [](auto& b) { return TXIntegrate(b, &b.t, 1, b.y); }},
        {"SetAutoCut", everything, [](auto& b) { return TXSetAutoCut(b, b.t, b.y); }},
        {"ClosestCut", parameters, [](auto& b) { return CLOSESTCUT(b, &b.t, b.y); }},
        {"PoincareStep", parameters,
         [](auto& b) { return TXPoincareStep(b.start(2, -1e-5, 0.5), &b.t, b.y); }},
        {"NumJac", everything, [](auto& b) { return TXNumJac(b, b.t, b.y, b.Phi); }},
        {"NumParamJac", everything, [](auto& b) { return TXNumParamJac(b, b.t, b.y, b.Phi); }},
        {"NumCutJac", everything,
         [](auto& b) { return TXNumCutJac(b, b.t, b.y, &b.c1, &b.c2, b.Phi[0]); }},
        {"VarStep", parameters, [](auto& b) { return TXVarStep(b, &b.t, b.y, b.Phi); }},
        {"VarIntegrate", parameters,
         [](auto& b) { return TXVarIntegrate(b, &b.t, 1, b.y, b.Phi); }},
        {"VarPoincareStep", parameters,
         [](auto& b) { return TXVarPoincareStep(b.start(2, -1e-5, 0.5), &b.t, b.y, b.Phi); }},
        {"EquiPoint", everything, [](auto& b) { return TXEquiPoint(b, b.y); }},
        {"NonAutoOrbit", parameters,
         [](auto& b) { return TXNonAutoOrbit(b, b.t, b.y, b.Phi, b.T); }},
        {"AutoOrbit", parameters,
         [](auto& b) { return TXAutoOrbit(b.start_circle(), b.t, b.y, b.Phi, 1, &b.T); }},
        {"LocateEquiBif", other_parameter, [](auto& b) { return b.locate(0); }},
        {"LocateBif", other_parameter, [](auto& b) { return b.locate(5); }},
        {"CheckBif", other_parameter,
         [](auto& b) {
             if (b.locate(5) != 1) return 0;
             return TXCheckBif(b, b.tx->txb, &b.c1, 0.05, 0, nullptr);
         }},
        {"EquiCont", other_parameter, [](auto& b) { return b.branch(TXEquiCont, b.y); }},
        {"NonAutoCont", other_parameter,
         [](auto& b) { return b.branch(TXNonAutoCont, b.t, b.y, b.T); }},
        {"AutoCont", other_parameter,
         [](auto& b) {
             b.start_circle();
             return b.branch(TXAutoCont, b.t, b.y, 1, &b.T);
         }},
        {"Equi2DCont", nothing,
         [](auto& b) { return b.describe(1, 0, 0, hopf) ? b.curve(TXEqui2DCont) : 0; }},
        {"NonAuto2DCont", nothing,
         [](auto& b) { return b.describe(1, 0, 5, torus) ? b.curve(TXNonAuto2DCont) : 0; }},
        {"Auto2DCont", nothing,
         [](auto& b) { return b.describe(1, -1, 2 * pi, fold) ? b.curve(TXAuto2DCont) : 0; }},
        {"LyapCalc", parameters,
         [](auto& b) { return TXLyapCalc(b, &b.t, b.y, 1e-5, 0.25, 2, 4, b.Phi[0], 2); }},
        {"Table", parameters,
         [](auto& b) { return TXftableg(b, &b.t, 1, 4, b.y, &Bench::take_sample); }},
    };
    return all;
}

}  // namespace testing_support
