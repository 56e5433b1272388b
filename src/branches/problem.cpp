#include "branches/problem.hpp"

#include "branches/metric.hpp"

namespace trajex {

double Problem::distance(const double* a, const double* b) const {
    return Metric(*this).distance(a, b);
}

}  // namespace trajex
