// The variational sub-record: a second record, held by the handle, on which the state is integrated
// together with its fundamental matrix and its sensitivities to the active parameters.
#include <cstdarg>
#include <cstddef>
#include <limits>
#include <new>
#include <vector>

#include "core/errors.hpp"
#include "core/handle.hpp"
#include "core/workspace.hpp"

namespace trajex {

namespace {

constexpr const char* where = "TXVarOpenTrajex";

/// The variable arguments, each present only under its condition. Parameter addresses are read in
/// order up to the first null one.
class Arguments {
  public:
    explicit Arguments(std::va_list list) { va_copy(list_, list); }
    ~Arguments() { va_end(list_); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    double perturbation() { return va_arg(list_, double); }
    int count() { return va_arg(list_, int); }
    jac_t jacobian() { return va_arg(list_, jac_t); }
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the constructor has copied it
    double* parameter() { return va_arg(list_, double*); }

  private:
    std::va_list list_;
};

/// n (n + nparam) + n + 1: the extended vector with every parameter active, and one to spare.
/// Returns 0 where that is more than an order can be.
int extended_order(int order, int nparam) {
    const auto n = static_cast<unsigned long long>(order);
    const auto m = static_cast<unsigned long long>(nparam);
    constexpr auto largest = static_cast<unsigned long long>(std::numeric_limits<int>::max());
    if (n + m + 1 > (largest - 1) / n) return 0;
    return static_cast<int>(n * (n + m + 1) + 1);
}

/// Replaces the parameter table by an empty one, both parts of it or none: nparam, c and cp of the
/// handle always belong together.
bool take_parameter_table(Handle& handle, int nparam) {
    const auto count = static_cast<std::size_t>(nparam);
    try {
        std::vector<double*> parameters(count);
        std::vector<char> flags(count);
        handle.parameters.swap(parameters);
        handle.active_flags.swap(flags);
    } catch (const std::bad_alloc&) {
        return false;
    }
    handle.nparam = nparam;
    handle.c = handle.parameters.data();
    handle.cp = handle.active_flags.data();
    return true;
}

bool take_matrix_rows(Handle& sub, std::size_t rows) {
    sub.matrix_rows = try_make_array<double*>(rows);
    sub.j = sub.matrix_rows.get();
    return sub.j != nullptr;
}

bool take_matrix_elements(Handle& sub, std::size_t rows) {
    sub.matrix_elements = try_make_array<double>(rows * rows);
    if (sub.matrix_elements == nullptr) return false;
    for (std::size_t i = 0; i < rows; ++i) sub.j[i] = sub.matrix_elements.get() + i * rows;
    return true;
}

/// The storage that goes with an opened sub-record. Without the elements of its matrix there is no
/// sub-record, which has a code of its own. After a failure the sub-record is not kept, and the
/// parameters are those of before.
int take_storage(Trajex& tx, int nparam) {
    const std::size_t rows = order_of(tx) + static_cast<std::size_t>(nparam) + 1;
    Handle& sub = private_part(*tx.TX);
    if (take_matrix_rows(sub, rows) && take_matrix_elements(sub, rows) &&
        take_parameter_table(private_part(tx), nparam)) {
        return 1;
    }
    const bool lacks_elements = sub.matrix_rows != nullptr && sub.matrix_elements == nullptr;
    delete_record(tx.TX);
    tx.TX = nullptr;
    return report(&tx, lacks_elements ? Error::no_substructure : Error::no_memory, where);
}

/// The parameters before an address that is null remain.
int store_parameters(Trajex& tx, Arguments& arguments) {
    for (int q = 0; q < tx.nparam; ++q) {
        double* parameter = arguments.parameter();
        if (parameter == nullptr) {
            tx.nparam = q;
            return report(&tx, Error::wrong_parameters, where);
        }
        tx.c[q] = parameter;
    }
    return 1;
}

/// Reads the perturbation of numerical differences, present only where there is no callback.
bool read_perturbation(Arguments& arguments, jac_t callback, double& perturbation) {
    if (callback != nullptr) return true;
    const double eps = arguments.perturbation();
    if (!(eps > 0)) return false;
    perturbation = eps;
    return true;
}

int open_subrecord(Trajex& tx, jac_t jac, Arguments& arguments) {
    if (!read_perturbation(arguments, jac, tx.JacPert)) {
        return report(&tx, Error::perturbation_not_positive, where);
    }
    const int nparam = arguments.count();
    if (nparam < 0) return report(&tx, Error::negative_parameter_count, where);
    jac_t paramjac = nullptr;
    if (nparam > 0) {
        paramjac = arguments.jacobian();
        if (!read_perturbation(arguments, paramjac, tx.ParamJacPert)) {
            return report(&tx, Error::perturbation_not_positive, where);
        }
    }
    const int order = extended_order(tx.order, nparam);
    TXSetErrorOutput(nullptr);
    // Applications may assign these to the handle unchecked; no step could be made with them.
    const bool steppable = tx.RelTol >= 0 && tx.h > 0;
    tx.TX = order > 0 && steppable ? new_record(nullptr, order, tx.RelTol, tx.h) : nullptr;
    tx.jac = jac;
    if (tx.TX == nullptr) return report(&tx, Error::no_substructure, where);
    tx.TX->AbsTol = tx.AbsTol;
    if (take_storage(tx, nparam) != 1) return 0;
    if (nparam > 0) tx.paramjac = paramjac;
    return store_parameters(tx, arguments);
}

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXVarOpenTrajex(Trajex* handle, jac_t jac, ...) {
    Trajex& tx = enter(handle, where);
    if (tx.TX != nullptr) TXVarCloseTrajex(&tx);
    std::va_list list;
    va_start(list, jac);
    Arguments arguments(list);
    va_end(list);
    return open_subrecord(tx, jac, arguments);
}

int TXVarCloseTrajex(Trajex* handle) {
    Trajex& tx = enter(handle, "TXVarCloseTrajex");
    if (tx.TX != nullptr) TXCloseTrajex(tx.TX);
    tx.TX = nullptr;
    return 1;
}
