// Work memory of one operation: asked for once, as a list of the vectors and matrices needed, taken
// in one piece, and released on every way out.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <new>

#include "core/errors.hpp"

namespace trajex {

/// A value-initialised object, or null when memory is short.
template <class T>
std::unique_ptr<T> try_make() {
    try {
        return std::make_unique<T>();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

/// An array of zeros, or null when memory is short.
template <class T>
std::unique_ptr<T[]> try_make_array(std::size_t length) {
    try {
        return std::make_unique<T[]>(length);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

/// A vector to be carved out of a workspace: its address goes to `*where`.
struct VectorRequest {
    double** where;
    std::size_t length;
};

/// A matrix of row pointers, its rows one after the other in memory.
struct MatrixRequest {
    double*** where;
    std::size_t rows;
    std::size_t columns;
};

/// A list of pointers, for the unknowns of a Newton system: rows without columns.
inline MatrixRequest pointer_list(double*** where, std::size_t length) {
    return {where, length, 0};
}

/// What a workspace throws when memory is short. No application sees it: each public operation that
/// takes work memory does so under with_work_memory.
struct WorkMemoryShort {};

class Workspace {
  public:
    explicit Workspace(std::initializer_list<VectorRequest> vectors,
                       std::initializer_list<MatrixRequest> matrices = {}) {
        std::size_t doubles = 0;
        std::size_t rows = 0;
        for (const VectorRequest& v : vectors) doubles += v.length;
        for (const MatrixRequest& m : matrices) {
            doubles += m.rows * m.columns;
            rows += m.rows;
        }
        elements_ = try_make_array<double>(doubles);
        rows_ = try_make_array<double*>(rows);
        if (elements_ == nullptr || rows_ == nullptr) throw WorkMemoryShort();
        carve(vectors, matrices);
    }

  private:
    void carve(std::initializer_list<VectorRequest> vectors,
               std::initializer_list<MatrixRequest> matrices) {
        double* next = elements_.get();
        double** next_row = rows_.get();
        for (const VectorRequest& v : vectors) {
            *v.where = next;
            next += v.length;
        }
        for (const MatrixRequest& m : matrices) {
            *m.where = next_row;
            for (std::size_t i = 0; i < m.rows; ++i, next += m.columns) *next_row++ = next;
        }
    }

    std::unique_ptr<double[]> elements_;
    std::unique_ptr<double*[]> rows_;
};

/// What the operation returns, or the report that it lacks memory. Exceptions of callbacks, also
/// those for want of memory, pass through.
template <class Operation>
int with_work_memory(Trajex& tx, const char* where, Operation&& operation) {
    try {
        return operation();
    } catch (const WorkMemoryShort&) {
        return report(&tx, Error::no_memory, where);
    }
}

}  // namespace trajex
