// Continuation runs and what they report, for tests: their text, and their points as the record
// holds them when they are reported.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "files.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace testing_support {

struct Point {
    int steps = 0;
    std::string type;  // of a bifurcation, as its box has it
    int indir = 0;
    double T = 0;
    std::vector<double> c, y, er, ei;  // the parameters in the order of the handle's list

    static Point of(const Trajex& tx) {
        const TrajexBif& bif = *tx.txb;
        const auto copy = [](const double* first, int n) { return std::vector(first, first + n); };
        return {bif.steps,
                bif.biftype == 0 ? "" : std::string(TrajexBifName[bif.biftype]) + bif.btype,
                bif.indir,
                bif.T,
                copy(bif.c, tx.nparam),
                copy(bif.y, tx.order),
                copy(bif.er, tx.order),
                copy(bif.ei, tx.order)};
    }
    bool operator==(const Point&) const = default;
};
using Points = std::vector<Point>;

/// Runs with a state stream and a user output. The latter takes the points in place of a stream.
struct Recording {
    Points points;
    std::string text;
    double t = 0, T = 0, dc = 0;

    int equilibria(const auto& tx, double* y, double& c, double step, int nrbif = 0) {
        return follow(TXEquiCont, *tx, y, &c, &(dc = step), nrbif);
    }
    int cycles(const auto& tx, double* y, int turns, double& c, double step, int nrbif = 0) {
        return follow(TXAutoCont, *tx, t, y, turns, &T, &c, &(dc = step), nrbif);
    }
    int forced(const auto& tx, double* y, double period, double& c, double step, int nrbif = 0) {
        return follow(TXNonAutoCont, *tx, t, y, period, &c, &(dc = step), nrbif);
    }
    int curve(auto kind, const auto& tx, double& c1, double& c2, double step) {
        return follow(kind, *tx, &c1, &c2, &(dc = step));
    }

    /// The bifurcations found on a branch: they have the step number of the point before.
    Points located() const {
        Points found;
        for (std::size_t i = 1; i < points.size(); ++i) {
            if (points[i].steps == points[i - 1].steps) found.push_back(points[i]);
        }
        return found;
    }

    /// As the text reports them.
    std::vector<double> step_sizes() const {
        std::vector<double> sizes;
        for (std::size_t at = 0; (at = text.find("size: ", at)) != std::string::npos; ++at) {
            sizes.push_back(std::stod(text.substr(at + 6)));
        }
        return sizes;
    }

    static void record(Trajex* tx, FILE* points) {
        reinterpret_cast<Points*>(points)->push_back(Point::of(*tx));
    }

  private:
    int follow(auto operation, Trajex& tx, auto... arguments) {
        points.clear();
        const TextStream state;
        const int result = operation(&tx, arguments..., 1 | 4, static_cast<FILE*>(state), record,
                                     reinterpret_cast<FILE*>(&points));
        text = state.text();
        return result;
    }
};

/// A handle for runs, at settings that suit bifurcations.
template <class... Parameter>
OpenHandle open_study(void (*fcn)(double, double*, double*), int order, Parameter&... parameters) {
    OpenHandle tx = open_variational(fcn, order, nullptr, nullptr, 1e-9, &parameters...);
    tx->LambdaNewtRelTol = 1e-6;
    TXSetCut(tx.get(), second_component, 1e-9);
    return tx;
}

/// Gives the handle a record at the state with the parameters' present values.
inline void start_at(Trajex& tx, const std::vector<double>& y, double T = 0, int biftype = 0) {
    tx.txb = TXCreateBif(&tx);
    tx.txb->T = T;
    tx.txb->biftype = biftype;
    std::copy(y.begin(), y.end(), tx.txb->y);
    for (int q = 0; q < tx.nparam; ++q) tx.txb->c[q] = *tx.c[q];
    for (int i = 0; i < tx.order; ++i) tx.txb->er[i] = tx.txb->ei[i] = 0;
}

/// The application's parameters are those of the record, which holds this point.
inline void expect_stopped_at(const Trajex& tx, const Point& point) {
    EXPECT_EQ(Point::of(tx), point);
    for (int q = 0; q < tx.nparam; ++q) EXPECT_EQ(*tx.c[q], tx.txb->c[q]) << "parameter " << q;
}

}  // namespace testing_support
