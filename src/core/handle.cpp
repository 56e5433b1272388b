// Opening, settings and closing of a handle.
#include "core/handle.hpp"

#include <memory>
#include <new>

#include "core/errors.hpp"

namespace trajex {

namespace {

constexpr std::size_t cache_line = 8;  // doubles in a cache line

// Vectors start on different cache lines relative to a page, so that streams over several of them
// do not collide in the cache when n is a power of two.
std::size_t padded(std::size_t n) {
    return (n + cache_line - 1) / cache_line * cache_line + cache_line;
}

// The first whole cache line of a piece of memory that has one to spare.
double* first_line(double* memory) {
    void* start = memory;
    std::size_t space = 2 * cache_line * sizeof(double);
    return static_cast<double*>(
        std::align(cache_line * sizeof(double), cache_line * sizeof(double), start, space));
}

void attach_vectors(Handle& handle) {
    const auto n = static_cast<std::size_t>(handle.order);
    double** const vectors[] = {&handle.abs_err, &handle.rel_err, &handle.y5,     &handle.y6,
                                &handle.ynp1d2,  &handle.yfirst,  &handle.ylast,  &handle.y0,
                                &handle.yw,      &handle.istate,  &handle.ivector};
    const std::size_t stride = padded(n);
    handle.state_vectors = std::make_unique<double[]>(std::size(vectors) * stride + cache_line);
    handle.stages = std::make_unique<double[]>(12 * n + cache_line);
    handle.table_columns = std::make_unique<int[]>(n + 1);
    handle.table_formats = std::make_unique<char[]>(9 * n + 9);
    double* next = first_line(handle.state_vectors.get());
    for (double** vector : vectors) {
        *vector = next;
        next += stride;
    }
    handle.k = first_line(handle.stages.get());
    handle.step_work = {.k = handle.k,
                        .first = handle.yfirst,
                        .last = handle.ylast,
                        .y0 = handle.y0,
                        .argument = handle.yw,
                        .lower = handle.y5,
                        .upper = handle.y6,
                        .middle = handle.ynp1d2,
                        .error = handle.abs_err};
    handle.output = handle.table_columns.get();
    handle.form = handle.table_formats.get();
}

void set_defaults(Trajex& tx, double RelTol, double h) {
    tx.RelTol = RelTol;
    tx.NewtRelTol = 10000 * RelTol;
    tx.LambdaNewtRelTol = 500000 * RelTol;
    tx.CutEps = 10 * RelTol;
    tx.JacPert = 1000 * RelTol;
    tx.ParamJacPert = 1000 * RelTol;
    tx.LambdaPert = 1000 * RelTol;
    tx.h = h;
    tx.MaxPoincareSteps = 100;
    tx.MaxPeriodSteps = 1000;
    tx.MaxNewtSteps = 10;
    tx.MaxContSteps = 1000;
    tx.CheckBifs = 1;
    tx.TerminateOnFatalError = 1;
}

}  // namespace

Trajex* new_record(void (*fcn)(double, double*, double*), int order, double RelTol, double h) {
    try {
        auto handle = std::make_unique<Handle>();  // every field not set below is zero or null
        handle->fcn = fcn;
        handle->order = order;
        attach_vectors(*handle);
        set_defaults(*handle, RelTol, h);
        return handle.release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void delete_record(Trajex* tx) {
    const std::unique_ptr<Handle> owner(&private_part(*tx));
}

}  // namespace trajex

using namespace trajex;

Trajex* TXOpenTrajex(void (*fcn)(double t, double* y, double* f), int order, double RelTol,
                     double h) {
    constexpr const char* where = "TXOpenTrajex";
    TXSetErrorOutput(nullptr);
    if (order < 1) fail_without_handle(Error::order_not_positive, where);
    if (!(RelTol >= 0)) fail_without_handle(Error::tolerance_not_positive, where);
    if (!(h > 0)) fail_without_handle(Error::negative_time_step, where);
    Trajex* tx = new_record(fcn, order, RelTol, h);
    if (tx == nullptr) fail_without_handle(Error::no_memory, where);
    return tx;
}

int TXCloseTrajex(Trajex* handle) {
    Trajex& tx = enter(handle, "TXCloseTrajex");
    if (tx.TX != nullptr) TXVarCloseTrajex(&tx);
    if (tx.txb != nullptr) TXDestroyBif(&tx, tx.txb);
    delete_record(&tx);
    return 1;
}

int TXOrder(Trajex* handle) {
    return enter(handle, "TXOrder").order;
}

int TXSetMaxStep(Trajex* handle, double hmax) {
    constexpr const char* where = "TXSetMaxStep";
    Trajex& tx = enter(handle, where);
    if (!(hmax > 0)) return report(&tx, Error::max_step_not_positive, where);
    tx.hmax = hmax;
    return 1;
}

int TXSetRelTol(Trajex* handle, double RelTol) {
    constexpr const char* where = "TXSetRelTol";
    Trajex& tx = enter(handle, where);
    if (!(RelTol >= 0)) return report(&tx, Error::tolerance_not_positive, where);
    tx.RelTol = RelTol;
    return 1;
}

int TXSetAbsTol(Trajex* handle, double AbsTol) {
    constexpr const char* where = "TXSetAbsTol";
    Trajex& tx = enter(handle, where);
    if (!(AbsTol >= 0)) return report(&tx, Error::tolerance_not_positive, where);
    tx.AbsTol = AbsTol;
    return 1;
}

int TXSetNewtTol(Trajex* handle, double NewtRelTol) {
    constexpr const char* where = "TXSetNewtTol";
    Trajex& tx = enter(handle, where);
    if (!(NewtRelTol > 0)) return report(&tx, Error::newton_tolerance_not_positive, where);
    tx.NewtRelTol = NewtRelTol;
    return 1;
}

namespace {

// A negative count is refused quietly: recorded, never printed, never the end of the process. The
// code says something else, but is the one that was published.
int set_limit(Trajex& tx, int Trajex::*limit, int n) {
    if (n < 0) {
        tx.ErrorCode = static_cast<int>(Error::not_opened);
        return 0;
    }
    tx.*limit = n;
    return 1;
}

}  // namespace

int TXSetMaxPoincareSteps(Trajex* handle, int n) {
    return set_limit(enter(handle, "TXSetMaxPoincareSteps"), &Trajex::MaxPoincareSteps, n);
}

int TXSetMaxPeriodSteps(Trajex* handle, int n) {
    return set_limit(enter(handle, "TXSetMaxPeriodSteps"), &Trajex::MaxPeriodSteps, n);
}

int TXSetMaxNewtSteps(Trajex* handle, int n) {
    return set_limit(enter(handle, "TXSetMaxNewtSteps"), &Trajex::MaxNewtSteps, n);
}
