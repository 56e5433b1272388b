// The operations that call back into the application, ready to run: tests that make a callback
// throw, an allocation fail or two threads meet go through this list. A new operation is one line
// in operations().
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "handles.hpp"
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
            TXVarOpenTrajex(tx.get(), jacobian, 2, &parameter_jacobian, &Bench::A, &Bench::B);
        } else {
            TXVarOpenTrajex(tx.get(), nullptr, 1e-6, 2, nullptr, 1e-6, &Bench::A, &Bench::B);
        }
        tx->TX->TerminateOnFatalError = 0;
        tx->NewtAbsTol = 1e-7;
        tx->LambdaNewtRelTol = 1e-6;
        tx->LambdaPert = 1e-6;
        TXSetCut(tx.get(), cut, 1e-7);
        first_row = tx->TX->j[0];
        restart();
    }

    // The parameters belong to the thread, so that two threads do not share them.
    static inline thread_local double A = 1;
    static inline thread_local double B = 1.9;

    OpenHandle tx;
    double t = 0;
    double y[2];
    double T = 0;   // a period, for orbits
    double dc = 0;  // the step length of a run
    double* Phi[2];
    double entry_y[2];
    double entry_B = 0;
    const double* first_row = nullptr;  // of the work matrix

    /// Variables and proposed step sizes as at first. With B = 1.9 the Hopf bifurcation is near.
    void restart() {
        A = 1;
        t = 0;
        T = 6.5;
        dc = 0.15;
        std::fill_n(rows_[0], 8, 0.0);
        rows_[0][0] = rows_[1][1] = 1;
        tx->h = tx->TX->h = 0.05;
        tx->MaxContSteps = 1000;
        std::fill_n(tx->cp, 2, '\1');
        start(1.25, 1.5, 1.9);
    }
    /// Another state and parameter, for an operation that needs them.
    void start(double y0, double y1, double parameter) {
        y[0] = entry_y[0] = y0;
        y[1] = entry_y[1] = y1;
        B = entry_B = parameter;
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
                                A,
                                B};
        all.insert(all.end(), rows_[0], rows_[0] + 8);
        if (const TrajexBif* bif = tx->txb) {
            for (const double* vector : {bif->y, bif->c, bif->er, bif->ei}) {
                all.insert(all.end(), vector, vector + 2);
            }
        }
        return all;
    }

    static void report_point(Trajex*, FILE*) { called_back(); }
    static void take_sample(double, double*) { called_back(); }

  private:
    static void flow(double, double* y, double* f) {
        called_back();
        const double reaction = y[0] * y[0] * y[1];
        f[0] = A - (B + 1) * y[0] + reaction;
        f[1] = B * y[0] - reaction;
    }
    static void jacobian(double, double* y, double** J) {
        called_back();
        const double xy = 2 * y[0] * y[1];
        const double xx = y[0] * y[0];
        J[0][0] = xy - B - 1, J[0][1] = xx;
        J[1][0] = B - xy, J[1][1] = -xx;
    }
    static void parameter_jacobian(double, double* y, double** J) {
        called_back();
        J[0][0] = 1, J[0][1] = -y[0];
        J[1][0] = 0, J[1][1] = y[0];
    }
    static double cut(double, double* y) {
        called_back();
        return y[0] - 1.24;
    }

    double rows_[2][4];
};

/// What a failed operation has put back when it ends: no variable of the application, parameter A,
/// both parameters, or the time and the state as well.
enum class Restores { nothing, other_parameter, parameters, everything };

struct Operation {
    std::string name;
    Restores restores;
    int (*run)(Bench& bench);
};

inline int locate_equilibrium(Bench& b) {
    if (b.tx->txb == nullptr) b.tx->txb = TXCreateBif(b.tx.get());
    if (b.tx->txb == nullptr) return 0;
    std::copy_n(b.y, 2, b.tx->txb->y);
    return TXLocateEquiBif(b.tx.get(), b.tx->txb, &Bench::B, nullptr);
}

inline int continue_equilibrium(Bench& b) {
    b.start(1, 1.9, 1.9);
    return TXEquiCont(b.tx.get(), b.y, &Bench::B, &b.dc, 1, 4, &Bench::report_point,
                      static_cast<FILE*>(nullptr));
}

inline int find_forced_orbit(Bench& b) {
    return TXNonAutoOrbit(b.tx.get(), b.t, b.y, b.Phi, b.T);
}

inline int find_orbit(Bench& b) {
    b.start(1.24, 3.5, 2.5);
    return TXAutoOrbit(b.tx.get(), b.t, b.y, b.Phi, 1, &b.T);
}

inline int continue_orbit(Bench& b) {
    b.start(1.24, 3.5, 2.5);
    b.tx->MaxContSteps = 3;
    return TXAutoCont(b.tx.get(), b.t, b.y, 1, &b.T, &Bench::B, &b.dc, 0, 4, &Bench::report_point,
                      static_cast<FILE*>(nullptr));
}

/// The curve of Hopf bifurcations, from the one that is found first.
inline int continue_hopf(Bench& b) {
    if (continue_equilibrium(b) != 1) return 0;
    b.tx->MaxContSteps = 3;
    return TXEqui2DCont(b.tx.get(), &Bench::A, &Bench::B, &b.dc, 4, &Bench::report_point,
                        static_cast<FILE*>(nullptr));
}

inline int lyapunov_exponents(Bench& b) {
    return TXLyapCalc(b.tx.get(), &b.t, b.y, 1e-5, 0.25, 2, 4, b.Phi[0], 2);
}

inline int table(Bench& b) {
    return TXftableg(b.tx.get(), &b.t, 1, 4, b.y, &Bench::take_sample);
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
             return TXNumCutJac(b.tx.get(), b.t, b.y, &Bench::A, &Bench::B, b.Phi[0]);
         }},
        {"VarStep", parameters, [](Bench& b) { return TXVarStep(b.tx.get(), &b.t, b.y, b.Phi); }},
        {"VarIntegrate", parameters,
         [](Bench& b) { return TXVarIntegrate(b.tx.get(), &b.t, 1, b.y, b.Phi); }},
        {"VarPoincareStep", parameters,
         [](Bench& b) { return TXVarPoincareStep(b.tx.get(), &b.t, b.y, b.Phi); }},
        {"EquiPoint", everything, [](Bench& b) { return TXEquiPoint(b.tx.get(), b.y); }},
        {"NonAutoOrbit", parameters, find_forced_orbit},
        {"AutoOrbit", parameters, find_orbit},
        {"LocateEquiBif", other_parameter, locate_equilibrium},
        {"EquiCont", other_parameter, continue_equilibrium},
        {"AutoCont", other_parameter, continue_orbit},
        {"Equi2DCont", nothing, continue_hopf},
        {"LyapCalc", parameters, lyapunov_exponents},
        {"Table", parameters, table},
    };
    return all;
}

}  // namespace testing_support
