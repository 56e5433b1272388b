// The passes of a step attempt for systems of any size.
#include "integration/stage_passes.hpp"

#include "integration/stepper.hpp"

namespace trajex {

template <std::size_t j>
void VectorPasses::stage_argument(double h, const double* k, const double* y0, double* yw) const {
    passes::stage_argument<j>(n, h, k, y0, yw);
}

template void VectorPasses::stage_argument<1>(double, const double*, const double*, double*) const;
template void VectorPasses::stage_argument<2>(double, const double*, const double*, double*) const;
template void VectorPasses::stage_argument<3>(double, const double*, const double*, double*) const;
template void VectorPasses::stage_argument<4>(double, const double*, const double*, double*) const;
template void VectorPasses::stage_argument<5>(double, const double*, const double*, double*) const;
template void VectorPasses::stage_argument<6>(double, const double*, const double*, double*) const;

void VectorPasses::last_argument(double h, const double* k, const double* y0, double* yw,
                                 double* y5, double* y6) const {
    passes::last_argument(n, h, k, y0, yw, y5, y6);
}

double VectorPasses::finish_step(double h, const Trajex& rec) const {
    return passes::finish_step(n, h, rec.k, rec.y0, rec.y5, rec.y6, rec.abs_err, rec.AbsTol,
                               rec.RelTol);
}

}  // namespace trajex
