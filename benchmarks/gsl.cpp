// GSL: Runge-Kutta-Fehlberg 4(5) behind its driver.
#include <gsl/gsl_errno.h>
#include <gsl/gsl_odeiv2.h>

#include <vector>

#include "peers.hpp"
#include "systems.hpp"

namespace benchmarks {

std::vector<double> gsl_solve(const Problem& problem, double tolerance) {
    const auto f = [](double t, const double y[], double derivative[], void* parameters) {
        static_cast<const Problem*>(parameters)->f(t, const_cast<double*>(y), derivative);
        return static_cast<int>(GSL_SUCCESS);
    };
    gsl_odeiv2_system system{f, nullptr, problem.start.size(), const_cast<Problem*>(&problem)};
    gsl_odeiv2_driver* driver =
        gsl_odeiv2_driver_alloc_y_new(&system, gsl_odeiv2_step_rkf45, 1e-3, tolerance, tolerance);
    std::vector<double> y = problem.start;
    double t = 0;
    gsl_odeiv2_driver_apply(driver, &t, problem.end, y.data());
    gsl_odeiv2_driver_free(driver);
    return y;
}

}  // namespace benchmarks
