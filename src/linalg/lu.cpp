// LU decomposition with partial pivoting and implicit scaling of the rows. Every element receives
// the updates of Crout's method, a_ij - l_i0 u_0j - l_i1 u_1j - ..., in this order, but the columns
// are taken by recursive halving, so that most updates are products of blocks that run along the
// rows. References: Golub and Van Loan, Matrix Computations, 3.2 and 3.4; Toledo, SIAM J. Matrix
// Anal. Appl. 18 (1997) 1065.
#include "linalg/lu.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "core/simd.hpp"
#include "linalg/range.hpp"

namespace trajex {

namespace {

// Replaces a pivot that is exactly zero: a singular matrix gives a huge solution, not a failure.
constexpr double smallest_pivot = 1.0e-20;

// Columns of a panel, which is decomposed without further division, and of a tile of an update.
constexpr std::size_t panel_width = 8;

// Columns whose updates are applied together: as many rows of U, a panel wide, stay in the cache.
constexpr std::size_t most_updates = 128;

bool is_zero_row(const double* row, std::size_t n) {
    return std::all_of(row, row + n, [](double x) { return x == 0; });
}

// A kernel: 1 / max |a_ij| for every row i. Returns whether all of these are ordinary numbers, well
// inside the exponent range; if not, there may be rows of zeros.
template <class Vector>
struct ScaleRows {
    [[gnu::always_inline]] static inline bool run(std::size_t n, double* const* a, double* scale) {
        double least = 1;
        double most = 1;
        for (std::size_t i = 0; i < n; ++i) {
            const double size = largest_size(a[i], n);
            least = std::min(least, size);
            most = std::max(most, size);
            scale[i] = 1 / size;
        }
        return in_middle_range(least) && in_middle_range(most);
    }

  private:
    [[gnu::always_inline]] static inline double largest_size(const double* row, std::size_t n) {
        constexpr std::size_t step = width<Vector>;
        Vector sizes{};
        std::size_t j = 0;
        for (; j + step <= n; j += step) {
            Vector v;
            load(v, row + j);
            keep_larger(sizes, v);
            keep_larger(sizes, -v);
        }
        double lanes[step];
        store(sizes, lanes);
        double largest = *std::max_element(lanes, lanes + step);
        for (; j < n; ++j) largest = std::max(largest, std::fabs(row[j]));
        return largest;
    }
};

// The sizes of the rows that are not empty, and whether there are rows of zeros.
struct RowSizes {
    double smallest = std::numeric_limits<double>::infinity();
    double largest = 0;
    bool some_zero = false;
};

// Rows of zeros get the scale 1.
[[gnu::noinline]] RowSizes measure_rows(std::size_t n, double* const* a, double* scale) {
    RowSizes sizes;
    for (std::size_t i = 0; i < n; ++i) {
        const double size = largest_size(a[i], n);
        if (size > 0) sizes.smallest = std::min(sizes.smallest, size);
        sizes.largest = std::max(sizes.largest, size);
        if (!is_zero_row(a[i], n)) continue;
        sizes.some_zero = true;
        scale[i] = 1;
    }
    return sizes;
}

struct Decomposition {
    std::size_t n = 0;
    double** a = nullptr;
    double* scale = nullptr;
    int* exchanges = nullptr;
    double pivot_floor = smallest_pivot;
    double parity = 1;
    bool singular = false;
};

// Below this the reciprocal of a number is infinite.
constexpr double smallest_with_reciprocal = 0x1p-1022;

// A pivot that is zero or denormal, or no number. Returns what the column below is still to be
// multiplied by: a denormal divides it here, since the quotients need not overflow.
[[gnu::noinline]] double treat_tiny(Decomposition& lu, std::size_t column, double value) {
    if (value == 0) {
        lu.a[column][column] = value = lu.pivot_floor;
        lu.singular = true;
    }
    if (!std::isinf(1 / value)) return 1 / value;
    for (std::size_t i = column + 1; i < lu.n; ++i) lu.a[i][column] /= value;
    return 1;
}

// Decomposes the columns [first, last), at most a panel, of all rows below; the updates from the
// columns before `first` are done.
class Panel {
  public:
    template <class Size>
    [[gnu::always_inline]] static inline void decompose(Size n, Decomposition& lu,
                                                        std::size_t first, std::size_t last) {
        double reciprocal = 1;
        decompose_from<0>(n, lu, first, last, reciprocal);
        for (std::size_t i = last; i < n; ++i) lu.a[i][last - 1] *= reciprocal;
    }

  private:
    template <std::size_t K, class Size>
    [[gnu::always_inline]] static inline void decompose_from(Size n, Decomposition& lu,
                                                             std::size_t first, std::size_t last,
                                                             double& reciprocal) {
        if constexpr (K < panel_width) {
            if (first + K == last) return;
            decompose_column<K>(n, lu, first, reciprocal);
            decompose_from<K + 1>(n, lu, first, last, reciprocal);
        }
    }

    // Column K of the panel. The pass that updates it also looks for its pivot, and divides the
    // column before by the pivot found there.
    template <std::size_t K, class Size>
    [[gnu::always_inline]] static inline void decompose_column(Size n, Decomposition& lu,
                                                               std::size_t first,
                                                               double& reciprocal) {
        double u[panel_width];
        for (std::size_t k = 0; k < K; ++k) {
            u[k] = lu.a[first + k][first + K];
            for (std::size_t p = 0; p < k; ++p) u[k] -= lu.a[first + k][first + p] * u[p];
            lu.a[first + k][first + K] = u[k];
        }
        const std::size_t column = first + K;
        std::size_t pivot = column;
        double value = 0;
        double largest = 0;
        for (std::size_t i = column; i < n; ++i) {
            double* const row = lu.a[i] + first;
            if constexpr (K > 0) row[K - 1] *= reciprocal;
            double sum = row[K];
            for (std::size_t p = 0; p < K; ++p) sum -= row[p] * u[p];
            row[K] = sum;
            const double size = lu.scale[i] * std::fabs(sum);
            const bool better = i == column || size >= largest;  // below, never a NaN
            pivot = better ? i : pivot;
            value = better ? sum : value;
            largest = size > largest ? size : largest;
        }
        exchange(n, lu, column, pivot);
        reciprocal = std::fabs(value) >= smallest_with_reciprocal ? 1 / value
                                                                  : treat_tiny(lu, column, value);
    }

    template <class Size>
    [[gnu::always_inline]] static inline void exchange(Size n, Decomposition& lu,
                                                       std::size_t column, std::size_t pivot) {
        lu.exchanges[column] = static_cast<int>(pivot);
        if (pivot == column) return;
        std::swap_ranges(lu.a[column], lu.a[column] + n, lu.a[pivot]);
        lu.scale[pivot] = lu.scale[column];
        lu.parity = -lu.parity;
    }
};

struct DecomposePanel {
    [[gnu::always_inline]] static inline void run(Decomposition* lu, std::size_t first,
                                                  std::size_t last) {
        Panel::decompose(lu->n, *lu, first, last);
    }
};

// A matrix that is no wider than a panel.
template <class>
struct DecomposeWhole {
    template <class Size>
    [[gnu::always_inline]] static inline void run(Size n, Decomposition* lu) {
        Panel::decompose(n, *lu, 0, n);
    }
};

// A kernel: applies the columns [first, last), which are done, to the columns [last, right):
//     rows [first, last) become U,   rows below A - L U.
// right - last is a multiple of the panel width.
template <class Vector>
struct UpdateColumns {
    [[gnu::always_inline]] static inline void run(const Decomposition* lu, std::size_t first,
                                                  std::size_t last, std::size_t right) {
        double u[most_updates * panel_width];  // the rows of U, one after the other
        for (std::size_t j = last; j < right; j += panel_width) {
            for (std::size_t i = first; i < last; i += tile_rows) {
                const std::size_t end = std::min(i + tile_rows, last);
                update_tile(lu->a, i, end, first, i - first, j, u);
                finish_rows(lu->a, i, end, first, j, u);
            }
            for (std::size_t i = last; i < lu->n; i += tile_rows) {
                const std::size_t end = std::min(i + tile_rows, lu->n);
                update_tile(lu->a, i, end, first, last - first, j, u);
            }
        }
    }

  private:
    // Half of the sixteen registers hold a tile.
    static constexpr std::size_t across = panel_width / width<Vector>;
    static constexpr std::size_t tile_rows = std::max<std::size_t>(8 / across, 1);

    using Row = Vector[across];

    [[gnu::always_inline]] static inline void load_row(Row& row, const double* from) {
        for (std::size_t c = 0; c < across; ++c) load(row[c], from + c * width<Vector>);
    }
    [[gnu::always_inline]] static inline void store_row(const Row& row, double* to) {
        for (std::size_t c = 0; c < across; ++c) store(row[c], to + c * width<Vector>);
    }
    [[gnu::always_inline]] static inline void subtract(Row& row, double multiplier, const Row& u) {
        for (std::size_t c = 0; c < across; ++c) row[c] -= multiplier * u[c];
    }

    // Rows [i, end) of the tile at column j, minus their multipliers in `count` columns from
    // `first` on times as many rows of U. At the edge of the matrix the last row takes the places
    // of those missing: it is computed several times, with one result.
    [[gnu::always_inline]] static inline void update_tile(double* const* a, std::size_t i,
                                                          std::size_t end, std::size_t first,
                                                          std::size_t count, std::size_t j,
                                                          const double* u) {
        double* rows[tile_rows];
        Row tile[tile_rows];
        for (std::size_t r = 0; r < tile_rows; ++r) {
            rows[r] = a[std::min(i + r, end - 1)];
            load_row(tile[r], rows[r] + j);
        }
        for (std::size_t k = 0; k < count; ++k) {
            Row above;
            load_row(above, u + k * panel_width);
            for (std::size_t r = 0; r < tile_rows; ++r) {
                subtract(tile[r], rows[r][first + k], above);
            }
        }
        for (std::size_t r = 0; r < tile_rows; ++r) store_row(tile[r], rows[r] + j);
    }

    // The updates that rows [i, end) of U give each other; the results also go to `u`.
    [[gnu::always_inline]] static inline void finish_rows(double* const* a, std::size_t i,
                                                          std::size_t end, std::size_t first,
                                                          std::size_t j, double* u) {
        for (std::size_t k = i; k < end; ++k) {
            Row row, above;
            load_row(row, a[k] + j);
            for (std::size_t p = i; p < k; ++p) {
                load_row(above, u + (p - first) * panel_width);
                subtract(row, a[k][p], above);
            }
            store_row(row, a[k] + j);
            store_row(row, u + (k - first) * panel_width);
        }
    }
};

constexpr std::size_t in_whole_panels(std::size_t columns) {
    return (columns + panel_width - 1) / panel_width * panel_width;
}

// The columns on the right of each division are whole panels; an incomplete one is the first.
// NOLINTNEXTLINE(misc-no-recursion): halving, so that the depth is the logarithm of n
void decompose_columns(Decomposition& lu, std::size_t first, std::size_t last) {
    const std::size_t width = last - first;
    if (width <= panel_width) {
        dispatch<DecomposePanel>(&lu, first, last);
        return;
    }
    const std::size_t left_at_most = std::min(width / 2, most_updates);
    const std::size_t middle = last - in_whole_panels(width - left_at_most);
    decompose_columns(lu, first, middle);
    dispatch<UpdateColumns>(&lu, first, middle, last);
    decompose_columns(lu, middle, last);
}

}  // namespace

namespace {

// Multiplies the matrix by a power of two where its range asks for it, but never so that a row
// gets lost at the lower end. Returns the exponent e of 2^-e.
[[gnu::noinline]] int bring_into_range(std::size_t n, double** a, double* scale,
                                       const RowSizes& sizes) {
    constexpr int room = 900;
    int e = range_exponent(sizes.largest);
    if (e > 0) e = std::min(e, std::max(std::ilogb(sizes.smallest) + room, 0));
    for (std::size_t i = 0; i < n; ++i) scale_by_power(a[i], n, -e);
    dispatch<ScaleRows>(n, a, scale);
    for (std::size_t i = 0; i < n; ++i) {
        if (std::isinf(scale[i])) scale[i] = std::numeric_limits<double>::max();
    }
    return e;
}

[[gnu::always_inline]] inline void decompose_scaled(Decomposition& lu) {
    if (lu.n == 0) return;
    if (lu.n <= panel_width) {
        dispatch_sized<DecomposeWhole>(lu.n, &lu);
    } else {
        decompose_columns(lu, 0, lu.n);
    }
}

}  // namespace

LuOutcome lu_decompose_any(std::size_t n, double** a, int* exchanges, double* scale,
                           RowExponents& exponents) {
    exponents.clear();
    double largest = 1;
    if (dispatch<ScaleRows>(n, a, scale)) {
        if (n > 0) largest = 1 / *std::min_element(scale, scale + n);
    } else {
        const RowSizes sizes = measure_rows(n, a, scale);
        if (sizes.smallest >= 1e-100 && sizes.largest <= 1e100) {
            if (sizes.largest > 0) largest = sizes.largest;
        } else {
            for (std::size_t i = 0; i < n; ++i) {
                exponents.scale_next(a[i], n, largest_size(a[i], n));
            }
            dispatch<ScaleRows>(n, a, scale);
            measure_rows(n, a, scale);  // for the scale of rows of zeros
        }
    }
    Decomposition lu{n, a, scale, exchanges, smallest_pivot * largest};
    decompose_scaled(lu);
    return {lu.parity, lu.singular};
}

bool lu_decompose(std::size_t n, double** a, int* exchanges, double& parity, double* scale) {
    parity = 1;
    int e = 0;
    if (!dispatch<ScaleRows>(n, a, scale)) {
        const RowSizes sizes = measure_rows(n, a, scale);
        if (sizes.some_zero) return false;
        e = bring_into_range(n, a, scale, sizes);
    }
    Decomposition lu{n, a, scale, exchanges};
    decompose_scaled(lu);
    if (e != 0) {
        for (std::size_t i = 0; i < n; ++i) scale_by_power(a[i] + i, n - i, e);
    }
    parity = lu.parity;
    return true;
}

namespace {

// Forward substitution in `count` rows from i on, with the columns from `first` on. The rows only
// share b, so that the processor works on one sum while it waits for another.
template <std::size_t count>
void substitute_forward(double* const* a, std::size_t first, std::size_t i, double* b) {
    double sums[count];
    for (std::size_t r = 0; r < count; ++r) sums[r] = b[i + r];
    for (std::size_t j = first; j < i; ++j) {
        for (std::size_t r = 0; r < count; ++r) sums[r] -= a[i + r][j] * b[j];
    }
    for (std::size_t r = 1; r < count; ++r) {
        for (std::size_t q = 0; q < r; ++q) sums[r] -= a[i + r][i + q] * sums[q];
    }
    for (std::size_t r = 0; r < count; ++r) b[i + r] = sums[r];
}

}  // namespace

void lu_substitute(std::size_t n, double* const* a, const int* exchanges, double* b) {
    for (std::size_t i = 0; i < n; ++i) std::swap(b[i], b[exchanges[i]]);
    std::size_t first = 0;
    while (first < n && b[first] == 0) ++first;  // zeros stay zeros
    std::size_t i = first;
    for (; i + 4 <= n; i += 4) substitute_forward<4>(a, first, i, b);
    switch (n - i) {
        case 3:
            substitute_forward<3>(a, first, i, b);
            break;
        case 2:
            substitute_forward<2>(a, first, i, b);
            break;
        case 1:
            substitute_forward<1>(a, first, i, b);
            break;
        default:
            break;
    }
    double next = 0;
    for (i = n; i-- > 0;) {
        double sum = b[i];
        if (i + 1 < n) sum -= a[i][i + 1] * next;
        for (std::size_t j = i + 2; j < n; ++j) sum -= a[i][j] * b[j];
        b[i] = next = sum / a[i][i];
    }
}

}  // namespace trajex
