// Continuation runs and what they report, for tests: their text, and their points as the record
// holds them when they are reported.
#pragma once

#include "bifurcation/record.hpp"
#include "support.hpp"

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
        const std::string name = bif.biftype == 0 ? "" : TrajexBifName[bif.biftype];
        return {bif.steps,
                name.empty() ? "" : name + bif.btype,
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

enum Kind { equilibria, forced, cycles };
using CurveRun = int (*)(Trajex*, double*, double*, double*, int, ...);

/// A handle at settings that suit bifurcations, a start, and runs from there with a state stream
/// and a user output. The latter takes the points in place of a stream.
struct Study {
    /// The parameters of the handle are the one that a branch is followed in, then those listed.
    template <class... Listed>
    Study(Flow flow, std::vector<double> guess, double& parameter, double value, Listed&... listed)
        : tx(open_variational(flow, int(guess.size()), nullptr, nullptr, 1e-9, &parameter,
                              &listed...)),
          y(std::move(guess)),
          c(parameter),
          start(parameter, value) {
        tx->LambdaNewtRelTol = 1e-6;
        tx->JacPert = tx->ParamJacPert = 1e-7;  // a bifurcation moves by as much
        TXSetCut(tx.get(), second_component, 1e-9);
    }
    Trajex* operator->() const { return tx.get(); }

    /// Gives the handle a record at the state with the parameters' present values.
    TrajexBif& record(double period = 0, int biftype = 0) {
        if (tx->txb == nullptr) tx->txb = TXCreateBif(tx.get());
        TrajexBif& bif = *tx->txb;
        bif.T = period, bif.biftype = biftype;
        std::copy(y.begin(), y.end(), bif.y);
        for (int q = 0; q < tx->nparam; ++q) bif.c[q] = *tx->c[q];
        for (double* const values : {bif.er, bif.ei}) std::fill_n(values, y.size(), 0.0);
        return bif;
    }

    /// T is the period of the forcing, or what the search for the first cycle leaves there.
    int follow(Kind kind, double step, int nrbif = 0) {
        dc = step;
        switch (kind) {
            case equilibria:
                return recorded(TXEquiCont, y.data(), &c, &dc, nrbif);
            case forced:
                return recorded(TXNonAutoCont, t, y.data(), T, &c, &dc, nrbif);
            default:
                return recorded(TXAutoCont, t, y.data(), turns, &T, &c, &dc, nrbif);
        }
    }
    int curve(CurveRun run, double& c1, double& c2, double step) {
        tx->LambdaNewtAbsTol = 1e-6;
        return recorded(run, &c1, &c2, &(dc = step));
    }

    /// The bifurcations found on a branch: they have the step number of the point before.
    Points located() const {
        Points found;
        for (std::size_t i = 1; i < points.size(); ++i) {
            if (points[i].steps == points[i - 1].steps) found.push_back(points[i]);
        }
        return found;
    }
    void expect_located(std::vector<double> parameters, double accuracy) const {
        const Points found = located();
        ASSERT_EQ(found.size(), parameters.size());
        for (std::size_t i = 0; i < found.size(); ++i) {
            EXPECT_NEAR(found[i].c[0], parameters[i], accuracy);
        }
    }
    /// As the text reports them.
    std::vector<double> step_sizes() const {
        std::vector<double> sizes;
        for (std::size_t at = 0; (at = text.find("size: ", at)) != std::string::npos; ++at) {
            sizes.push_back(std::stod(text.substr(at + 6)));
        }
        return sizes;
    }
    /// The application's parameters are those of the record, which holds the last point.
    void expect_stopped_there() const {
        ASSERT_FALSE(points.empty());
        EXPECT_EQ(Point::of(*tx), points.back());
        for (int q = 0; q < tx->nparam; ++q) EXPECT_EQ(*tx->c[q], tx->txb->c[q]);
    }

    static void take(Trajex* tx, FILE* points) {
        reinterpret_cast<Points*>(points)->push_back(Point::of(*tx));
    }

    OpenHandle tx;
    std::vector<double> y;
    double& c;
    const Temporarily<double> start;
    double t = 0, T = 0, dc = 0;
    int turns = 1;
    Points points;
    std::string text;

  private:
    int recorded(auto operation, auto... arguments) {
        points.clear();
        const TextStream state;
        const int result = operation(tx.get(), arguments..., 1 | 4, static_cast<FILE*>(state), take,
                                     reinterpret_cast<FILE*>(&points));
        text = state.text();
        return result;
    }
};

}  // namespace testing_support
