// The operations that call back into the application, ready to run: tests that make a callback
// throw, an allocation fail or two threads meet go through this list. A new operation is one line
// in operations().
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace testing_support {

/// What a callback throws, when it was told to.
struct Thrown {};

/// Callbacks until one throws; 0 for never.
inline thread_local int callbacks_left = 0;

inline void called_back() {
    if (callbacks_left > 0 && --callbacks_left == 0) throw Thrown();
}

enum class Jacobians { analytic, numerical };

/// The Brusselator with all that an operation may need, and with callbacks that may throw.
class Bench {
  public:
    explicit Bench(Jacobians jacobians)
        : tx(open_recording(flow, 2, 1e-8, 0.05)), Phi{rows_[0], rows_[1]} {
        if (jacobians == Jacobians::analytic) {
            TXVarOpenTrajex(tx.get(), jacobian, 2, &parameter_jacobian, &brusselator_A,
                            &brusselator_B);
        } else {
            TXVarOpenTrajex(tx.get(), nullptr, 1e-6, 2, nullptr, 1e-6, &brusselator_A,
                            &brusselator_B);
        }
        tx->TX->TerminateOnFatalError = 0;
        tx->NewtAbsTol = 1e-7;
        tx->LambdaNewtRelTol = 1e-6;
        tx->LambdaPert = 1e-6;
        TXSetCut(tx.get(), cut, 1e-7);
        restart();
    }

    OpenHandle tx;
    double t = 0;
    double y[2];
    double T = 0;   // a period, for orbits
    double dc = 0;  // the step length of a run
    double* Phi[2];

    /// Variables and proposed step sizes as at first. With B = 1.9 the Hopf bifurcation is near.
    void restart() {
        brusselator_A = 1;
        brusselator_B = 1.9;
        t = 0;
        y[0] = 1.25;
        y[1] = 1.5;
        T = 6.5;
        dc = 0.15;
        std::fill_n(rows_[0], 8, 0.0);
        rows_[0][0] = rows_[1][1] = 1;
        tx->h = tx->TX->h = 0.05;
        std::fill_n(tx->cp, 2, '\1');
    }

    /// Everything that an operation has an effect on.
    std::vector<double> outcome(int result) const {
        std::vector<double> all{static_cast<double>(result),
                                static_cast<double>(tx->ErrorCode),
                                static_cast<double>(tx->nparam),
                                t,
                                y[0],
                                y[1],
                                T,
                                dc,
                                brusselator_A,
                                brusselator_B};
        all.insert(all.end(), rows_[0], rows_[0] + 8);
        if (const TrajexBif* bif = tx->txb) {
            for (const double* vector : {bif->y, bif->c, bif->er, bif->ei}) {
                all.insert(all.end(), vector, vector + 2);
            }
        }
        return all;
    }

    static void count_point(Trajex*, FILE*) { called_back(); }

  private:
    static void flow(double t, double* y, double* f) {
        called_back();
        brusselator(t, y, f);
    }
    static void jacobian(double t, double* y, double** J) {
        called_back();
        brusselator_jacobian(t, y, J);
    }
    static void parameter_jacobian(double t, double* y, double** J) {
        called_back();
        brusselator_parameter_jacobian(t, y, J);
    }
    static double cut(double, double* y) {
        called_back();
        return y[0] - 1.24;
    }

    double rows_[2][4];
};

/// What a failed operation has put back when it ends. Parameters that it was not asked to move keep
/// their values in any case.
enum class Restores { nothing, parameters, everything };

struct Operation {
    std::string name;
    Restores restores;
    int (*run)(Bench& bench);
};

inline int locate_equilibrium(Bench& b) {
    if (b.tx->txb == nullptr) b.tx->txb = TXCreateBif(b.tx.get());
    if (b.tx->txb == nullptr) return 0;
    std::copy_n(b.y, 2, b.tx->txb->y);
    return TXLocateEquiBif(b.tx.get(), b.tx->txb, &brusselator_B, nullptr);
}

inline int continue_equilibrium(Bench& b) {
    b.y[0] = 1;
    b.y[1] = 1.9;
    return TXEquiCont(b.tx.get(), b.y, &brusselator_B, &b.dc, 1, 4, &Bench::count_point,
                      static_cast<FILE*>(nullptr));
}

inline const std::vector<Operation>& operations() {
    using enum Restores;
    static const std::vector<Operation> all = {
        {"Step", parameters, [](Bench& b) { return TXStep(b.tx.get(), &b.t, b.y); }},
        {"Integrate", parameters, [](Bench& b) { return TXIntegrate(b.tx.get(), &b.t, 1, b.y); }},
        {"SetAutoCut", everything, [](Bench& b) { return TXSetAutoCut(b.tx.get(), b.t, b.y); }},
        {"PoincareStep", parameters,
         [](Bench& b) { return TXPoincareStep(b.tx.get(), &b.t, b.y); }},
        {"NumJac", everything, [](Bench& b) { return TXNumJac(b.tx.get(), b.t, b.y, b.Phi); }},
        {"NumParamJac", everything,
         [](Bench& b) { return TXNumParamJac(b.tx.get(), b.t, b.y, b.Phi); }},
        {"NumCutJac", everything,
         [](Bench& b) {
             return TXNumCutJac(b.tx.get(), b.t, b.y, &brusselator_A, &brusselator_B, b.Phi[0]);
         }},
        {"VarStep", parameters, [](Bench& b) { return TXVarStep(b.tx.get(), &b.t, b.y, b.Phi); }},
        {"VarIntegrate", parameters,
         [](Bench& b) { return TXVarIntegrate(b.tx.get(), &b.t, 1, b.y, b.Phi); }},
        {"VarPoincareStep", parameters,
         [](Bench& b) { return TXVarPoincareStep(b.tx.get(), &b.t, b.y, b.Phi); }},
        {"EquiPoint", everything, [](Bench& b) { return TXEquiPoint(b.tx.get(), b.y); }},
        {"LocateEquiBif", nothing, locate_equilibrium},
        {"EquiCont", nothing, continue_equilibrium},
    };
    return all;
}

}  // namespace testing_support
