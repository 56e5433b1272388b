// Continuation of a bifurcation of a periodic orbit of an autonomous system in two parameters. The
// period T is an unknown, and the points stay on the section, h(y; c1, c2) = 0:
//
//     [ M - I   de/dc   f(e)  ]
//     [ dg/dy   dg/dc   dg/dT ]
//     [ dh/dy   dh/dc   0     ].
#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <limits>

#include "continuation/floquet_curve.hpp"
#include "core/errors.hpp"
#include "core/newton.hpp"
#include "core/workspace.hpp"
#include "integration/section.hpp"
#include "orbits/period_map.hpp"

namespace trajex {

namespace {

class AutonomousOrbitCurve final : public FloquetCurve {
  public:
    AutonomousOrbitCurve(Trajex& handle, double* first, double* second)
        : FloquetCurve(handle, first, second, order_of(handle) + 3, autonomous_orbit),
          work_({{&scratch_, n + 2}}) {}

    Error missing() const override {
        const bool has_section = tx.cut != nullptr || tx.CutSurfaceDefined != 0;
        return has_section ? Error::none : Error::no_section;
    }

    void newton_rows(double** A) override {
        complete_rows(A, [this] { return criterion(); });
    }
    /// The component of the tangent along the parameter listed first is 1.
    std::size_t tangent_system(double** A, double* v) override {
        starting_rows(A);
        double* const last_row = A[size - 1];
        std::fill_n(last_row, size, 0.0);
        last_row[n] = 1;
        std::fill_n(v, size, 0.0);
        v[size - 1] = 1;
        return size;
    }
    /// A point that does not reach the section shows in the next residual.
    void settle() override { move_to_section(tx, &t_, record().y); }

  private:
    /// The tangent is taken from the plain modulus.
    void starting_rows(double** A) override {
        if (linearise()) {
            complete_rows(A, [this] { return critical().value; });
        } else {
            std::fill_n(A[n], size, std::numeric_limits<double>::quiet_NaN());
        }
    }
    /// All rows but the last, from the linearisation at the current point.
    template <class Measure>
    void complete_rows(double** A, Measure&& measure) {
        closing_rows(A);
        tx.fcn(t_, image_, scratch_);
        for (std::size_t i = 0; i < n; ++i) A[i][n + 2] = scratch_[i];
        const double base = measure();
        sample(measure);
        difference_row(samples_, size, base, tx.LambdaPert, A[n]);
        section_row(A[n + 1]);
    }
    void section_row(double* row) {
        TXNumCutJac(&tx, t_, record().y, c1, c2, scratch_);
        std::copy_n(scratch_, n, row);
        row[first_column()] = scratch_[n];
        row[second_column()] = scratch_[n + 1];
        row[n + 2] = 0;
    }

    double* scratch_ = nullptr;  // the flow at the end point; the gradient of the section
    Workspace work_;
};

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXAuto2DCont(Trajex* handle, double* c1, double* c2, double* dc, int mode, ...) {
    constexpr const char* where = "TXAuto2DCont";
    Trajex& tx = enter_variational(handle, where);
    std::va_list extras;
    va_start(extras, mode);
    const Run run{where, dc, Outputs::read(mode, extras)};
    va_end(extras);
    return follow_curve<AutonomousOrbitCurve>(run, tx, c1, c2);
}
