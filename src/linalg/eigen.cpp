// Eigenvalues of a real matrix: balancing, stabilised elimination to Hessenberg form, double-shift
// QR. References: Parlett and Reinsch, Numer. Math. 13 (1969) 293; Martin and Wilkinson, ibid. 12
// (1968) 349; Martin, Peters and Wilkinson, ibid. 14 (1970) 219.
#include "linalg/eigen.hpp"

#include <algorithm>
#include <cmath>

#include "core/simd.hpp"

namespace trajex {

namespace {

struct Norms {
    double column;
    double row;
};

Norms off_diagonal_norms(double* const* a, std::size_t n, std::size_t i) {
    Norms norms{0, 0};
    for (std::size_t j = 0; j < n; ++j) {
        if (j == i) continue;
        norms.column += std::fabs(a[j][i]);
        norms.row += std::fabs(a[i][j]);
    }
    return norms;
}

// The power of two f that makes the norms of column · f and row / f about equal; 1 when there is
// little to gain, and where a norm is zero or infinite or f leaves the range of normal numbers.
double balancing_factor(Norms norms) {
    auto [c, r] = norms;
    if (c == 0 || r == 0 || !std::isfinite(c) || !std::isfinite(r)) return 1;
    double f = 1;
    const double s = c + r;
    for (; c < r / 2; c *= 4) f *= 2;
    for (; c > 2 * r; c /= 4) f /= 2;
    return (c + r) / f < 0.95 * s && std::isnormal(f) ? f : 1;
}

// Scales every index once; whether anything changed.
bool balance_once(double** a, std::size_t n) {
    bool changed = false;
    for (std::size_t i = 0; i < n; ++i) {
        const double f = balancing_factor(off_diagonal_norms(a, n, i));
        if (f == 1) continue;
        changed = true;
        for (std::size_t j = 0; j < n; ++j) a[i][j] *= 1 / f;
        for (std::size_t j = 0; j < n; ++j) a[j][i] *= f;
    }
    return changed;
}

}  // namespace

void balance(double** a, std::size_t n) {
    while (balance_once(a, n)) {
    }
}

namespace {

void swap_rows_and_columns(double** a, std::size_t n, std::size_t m, std::size_t pivot) {
    for (std::size_t j = m - 1; j < n; ++j) std::swap(a[m][j], a[pivot][j]);
    for (std::size_t i = 0; i < n; ++i) std::swap(a[i][m], a[i][pivot]);
}

std::size_t largest_below_diagonal(double* const* a, std::size_t n, std::size_t column) {
    std::size_t pivot = column + 1;
    double largest = 0;
    for (std::size_t i = column + 1; i < n; ++i) {
        if (std::fabs(a[i][column]) > largest) {
            largest = std::fabs(a[i][column]);
            pivot = i;
        }
    }
    return pivot;
}

// One column of the reduction. The rows i below the pivot lose y_i times the pivot row, and column
// m gains y_i times column i, for one i after the other. Taken row by row of memory instead,
// element m of row j gathers
//
//     y_i a_ji  for i < j,   then row j loses y_j times the pivot row,   then  y_i a_ji  for i >=
//     j,
//
// where the pivot row's own element m is what it had gathered when the turn of row j came.
class ColumnElimination {
  public:
    [[gnu::always_inline]] static inline void run(double** a, std::size_t n, std::size_t m) {
        ColumnElimination step(a, n, m);
        for (std::size_t i = m + 1; i < n;) {
            i = step.collect(i);
            step.gather_and_subtract();
        }
    }

  private:
    static constexpr std::size_t most = 128;  // multipliers that are dealt with at a time
    static constexpr std::size_t group = 4;   // rows whose sums are formed side by side

    ColumnElimination(double** a, std::size_t n, std::size_t m) : a_(a), n_(n), m_(m) {}

    // Turns elements below the pivot, from row i on, into multipliers. Returns the row to go on
    // with.
    [[gnu::always_inline]] inline std::size_t collect(std::size_t i) {
        const double pivot = a_[m_][m_ - 1];
        for (count_ = 0; i < n_ && count_ < most; ++i) {
            if (a_[i][m_ - 1] == 0) continue;
            a_[i][m_ - 1] /= pivot;
            row_[count_] = i;
            multiplier_[count_] = a_[i][m_ - 1];
            ++count_;
        }
        return i;
    }

    [[gnu::always_inline]] inline void gather_and_subtract() {
        for (std::size_t t = 0; t < count_; ++t) {
            diagonal_[t] = a_[m_][m_];
            a_[m_][m_] += multiplier_[t] * a_[m_][row_[t]];
        }
        std::size_t j = 0;
        for (; j + group <= m_; j += group) gather<group>(j, 0, count_);
        for (; j < m_; ++j) gather<1>(j, 0, count_);
        std::size_t done = 0;  // multipliers of rows above j
        for (j = m_ + 1; j + group <= n_; j += group) {
            gather<group>(j, 0, done);
            const std::size_t next = finish_rows(j, j + group, done);
            gather<group>(j, next, count_);
            done = next;
        }
        gather_each(j, 0, done);
        const std::size_t next = finish_rows(j, n_, done);
        gather_each(j, next, count_);
    }

    // What rows [j, end) have to do with each other's multipliers, the first of which is `first`.
    // Returns the end of these multipliers.
    [[gnu::always_inline]] inline std::size_t finish_rows(std::size_t j, std::size_t end,
                                                          std::size_t first) {
        std::size_t last = first;
        while (last < count_ && row_[last] < end) ++last;
        for (std::size_t t = first; j < end; ++j) {
            gather<1>(j, first, t);
            if (t < last && row_[t] == j) subtract_pivot_row(t);
            gather<1>(j, t, last);
            if (t < last && row_[t] == j) ++t;
        }
        return last;
    }

    [[gnu::always_inline]] inline void subtract_pivot_row(std::size_t t) {
        const double y = multiplier_[t];
        double* const row = a_[row_[t]];
        const double* const pivot_row = a_[m_];
        row[m_] -= y * diagonal_[t];
        for (std::size_t k = m_ + 1; k < n_; ++k) row[k] -= y * pivot_row[k];
    }

    [[gnu::always_inline]] inline void gather_each(std::size_t j, std::size_t from,
                                                   std::size_t to) {
        for (; j < n_; ++j) gather<1>(j, from, to);
    }

    // Element m of rows j, j + 1, ... gathers with the multipliers [from, to).
    template <std::size_t rows>
    [[gnu::always_inline]] inline void gather(std::size_t j, std::size_t from, std::size_t to) {
        double sums[rows];
        for (std::size_t r = 0; r < rows; ++r) sums[r] = a_[j + r][m_];
        for (std::size_t t = from; t < to; ++t) {
            const double* const* const row = a_ + j;
            for (std::size_t r = 0; r < rows; ++r) sums[r] += multiplier_[t] * row[r][row_[t]];
        }
        for (std::size_t r = 0; r < rows; ++r) a_[j + r][m_] = sums[r];
    }

    double** a_;
    std::size_t n_;
    std::size_t m_;
    std::size_t count_ = 0;
    std::size_t row_[most];
    double multiplier_[most];
    double diagonal_[most];  // element m of the pivot row when the turn of this multiplier comes
};

}  // namespace

void reduce_to_hessenberg(double** a, std::size_t n) {
    for (std::size_t m = 1; m + 1 < n; ++m) {
        const std::size_t pivot = largest_below_diagonal(a, n, m - 1);
        if (pivot != m) swap_rows_and_columns(a, n, m, pivot);
        if (std::fabs(a[m][m - 1]) > 0) dispatch<ColumnElimination>(a, n, m);
    }
}

namespace {

using Index = std::ptrdiff_t;

// The reflection H = I - u v', u = (x, y, z), v = (1, q, r), of three neighbouring rows or columns.
// The last one of a sweep acts on two: z = r = 0, which are not used.
struct Reflection {
    double x, y, z;
    double q, r;

    // H times rows: numbers of one column, or vectors of several.
    template <class T>
    [[gnu::always_inline]] inline void from_left(T& a, T& b, T& c) const {
        T p = a + q * b;
        p += r * c;
        c -= z * p;
        b -= y * p;
        a -= x * p;
    }
    [[gnu::always_inline]] inline void from_left(double& a, double& b) const {
        const double p = a + q * b;
        b -= p * y;
        a -= p * x;
    }

    // Columns times H: numbers of one row, or vectors of several.
    template <class T>
    [[gnu::always_inline]] inline void from_right(T& a, T& b, T& c) const {
        T p = x * a + y * b;
        p += z * c;
        c -= r * p;
        b -= q * p;
        a -= p;
    }
    [[gnu::always_inline]] inline void from_right(double& a, double& b) const {
        const double p = x * a + y * b;
        b -= p * q;
        a -= p;
    }
};

// The double shift: the trace and determinant parts of the trailing 2 x 2 block.
struct Shift {
    double x, y, w;
};

struct Vector3 {
    double p, q, r;
};

double with_sign_of(double size, double reference) {
    return reference > 0 ? std::fabs(size) : -std::fabs(size);
}

// The active block, and where in it a QR step starts with which first column.
struct SweepStart {
    Index top, bottom;
    Index m;
    Vector3 v;
};

// Chases the bulge that a QR step makes at row m down to the bottom of the block. A reflection acts
// on its rows at once. Its columns, three elements of each row above, wait: the reflections that
// follow need only the nearest rows, and with several reflections at a time a row is read and
// written once.
class BulgeChase {
  public:
    [[gnu::always_inline]] static inline void run(double** a, const SweepStart* start) {
        BulgeChase chase(a, *start);
        for (Index k = start->m; k + 1 < start->bottom;) {
            chase.begin_batch(k);
            k = chase.collect(k);
            chase.apply_to_rows_above();
        }
        chase.apply_last();
    }

  private:
    static constexpr Index most = 16;  // reflections in a batch
    static constexpr Index group = 4;  // rows in a vector

    BulgeChase(double** a, const SweepStart& start) : a_(a), start_(start) {}

    // The rows above column k that wait are top, ..., edge - 1: as many as make whole vectors.
    [[gnu::always_inline]] inline void begin_batch(Index k) {
        first_ = k;
        count_ = 0;
        edge_ = k - (k - start_.top) % group;
    }

    // Makes reflections from column k on and applies them to everything but the rows that wait.
    // Returns the column to go on with. A batch has no gaps: it ends where there is nothing to do.
    [[gnu::always_inline]] inline Index collect(Index k) {
        for (; k + 1 < start_.bottom && count_ < most; ++k) {
            Reflection& h = batch_[count_];
            if (!make_reflection(k, h)) return k + 1;
            ++count_;
            apply_to_rows(k, h);
            for (Index i = edge_; i <= std::min(start_.bottom, k + 3); ++i) {
                h.from_right(a_[i][k], a_[i][k + 1], a_[i][k + 2]);
            }
        }
        return k;
    }

    // The reflection that clears column k - 1 below row k; false when it is clear.
    [[gnu::always_inline]] inline bool make_reflection(Index k, Reflection& h) {
        Vector3 v = start_.v;
        double size = 1;
        if (k != start_.m) {
            v = {a_[k][k - 1], a_[k + 1][k - 1], k + 1 < start_.bottom ? a_[k + 2][k - 1] : 0.0};
            size = std::fabs(v.p) + std::fabs(v.q) + std::fabs(v.r);
            if (size != 0) v = {v.p / size, v.q / size, v.r / size};
        }
        const double s = with_sign_of(std::sqrt(v.p * v.p + v.q * v.q + v.r * v.r), v.p);
        if (s == 0) return false;
        if (k != start_.m) {
            a_[k][k - 1] = -s * size;
        } else if (k != start_.top) {
            a_[k][k - 1] = -a_[k][k - 1];
        }
        const double p = v.p + s;
        h = {p / s, v.q / s, v.r / s, v.q / p, v.r / p};
        return true;
    }

    // The first columns, which were just written one by one, are also read one by one.
    [[gnu::always_inline]] inline void apply_to_rows(Index k, const Reflection& h) {
        double* const rows[3] = {a_[k], a_[k + 1], a_[k + 2]};
        const Index vectors_from = k + 2 + (start_.bottom - k - 1) % 4;
        Index j = k;
        for (; j < vectors_from; ++j) h.from_left(rows[0][j], rows[1][j], rows[2][j]);
        for (; j <= start_.bottom; j += 4) {
            Four a, b, c;
            load(a, rows[0] + j);
            load(b, rows[1] + j);
            load(c, rows[2] + j);
            h.from_left(a, b, c);
            store(a, rows[0] + j);
            store(b, rows[1] + j);
            store(c, rows[2] + j);
        }
    }

    [[gnu::always_inline]] inline void apply_to_rows_above() {
        Index i = start_.top;
        for (; i + 2 * group <= edge_; i += 2 * group) apply_batch<2>(i);
        if (i < edge_) apply_batch<1>(i);
    }

    // Applies the batch to some vectors of rows, from row i on. Two vectors side by side keep the
    // processor busy, since each reflection needs the result of the one before.
    template <Index vectors>
    [[gnu::always_inline]] inline void apply_batch(Index i) {
        Four a[vectors], b[vectors], c;
        for (Index g = 0; g < vectors; ++g) {
            read_column(i + g * group, first_, a[g]);
            read_column(i + g * group, first_ + 1, b[g]);
        }
        for (Index t = 0; t < count_; ++t) {
            const Reflection h = batch_[t];
            for (Index g = 0; g < vectors; ++g) {
                read_column(i + g * group, first_ + t + 2, c);
                h.from_right(a[g], b[g], c);
                write_column(i + g * group, first_ + t, a[g]);
                a[g] = b[g];
                b[g] = c;
            }
        }
        for (Index g = 0; g < vectors; ++g) {
            write_column(i + g * group, first_ + count_, a[g]);
            write_column(i + g * group, first_ + count_ + 1, b[g]);
        }
    }

    [[gnu::always_inline]] inline void read_column(Index i, Index j, Four& v) const {
        assign(v, a_[i][j], a_[i + 1][j], a_[i + 2][j], a_[i + 3][j]);
    }
    [[gnu::always_inline]] inline void write_column(Index i, Index j, const Four& v) const {
        a_[i][j] = v[0];
        a_[i + 1][j] = v[1];
        a_[i + 2][j] = v[2];
        a_[i + 3][j] = v[3];
    }

    // The last reflection combines two rows and columns only.
    [[gnu::always_inline]] inline void apply_last() {
        const Index k = start_.bottom - 1;
        Reflection h;
        if (!make_reflection(k, h)) return;
        for (Index j = k; j <= k + 1; ++j) h.from_left(a_[k][j], a_[k + 1][j]);
        for (Index i = start_.top; i <= k + 1; ++i) h.from_right(a_[i][k], a_[i][k + 1]);
    }

    double** a_;
    const SweepStart start_;
    Index first_ = 0;  // column of the first reflection of the batch
    Index count_ = 0;
    Index edge_ = 0;
    Reflection batch_[most];
};

class ShiftedQr {
  public:
    ShiftedQr(double** a, std::size_t n, double* re, double* im)
        : a_(a), bottom_(static_cast<Index>(n) - 1), re_(re), im_(im), norm_(norm(a, bottom_)) {}

    bool run() {
        while (bottom_ >= 0) {
            if (!find_eigenvalues_at_bottom()) return false;
        }
        return true;
    }

  private:
    static double norm(double* const* a, Index bottom) {
        if (bottom < 0) return 0;
        double sum = std::fabs(a[0][0]);
        for (Index i = 1; i <= bottom; ++i) {
            for (Index j = i - 1; j <= bottom; ++j) sum += std::fabs(a[i][j]);
        }
        return sum;
    }

    // Iterates until one eigenvalue or a pair splits off at the bottom of the active block.
    bool find_eigenvalues_at_bottom() {
        for (int iteration = 0;; ++iteration) {
            find_top();
            if (top_ == bottom_) {
                take_one();
                return true;
            }
            if (top_ == bottom_ - 1) {
                take_two();
                return true;
            }
            if (iteration == 30) return false;
            sweep(choose_shift(iteration));
        }
    }

    // The first row of the active block: the lowest one whose subdiagonal element is negligible.
    void find_top() {
        for (top_ = bottom_; top_ > 0; --top_) {
            double s = std::fabs(a_[top_ - 1][top_ - 1]) + std::fabs(a_[top_][top_]);
            if (s == 0) s = norm_;
            if (std::fabs(a_[top_][top_ - 1]) + s == s) return;
        }
    }

    void take_one() {
        set(bottom_, a_[bottom_][bottom_] + shifted_by_, 0);
        bottom_ -= 1;
    }

    // Roots of the trailing 2 x 2 block. The smaller real root comes from the product of both.
    void take_two() {
        const auto [x, y, w] = trailing_block();
        const double p = 0.5 * (y - x);
        const double q = p * p + w;
        const double root = std::sqrt(std::fabs(q));
        const double origin = x + shifted_by_;
        if (q >= 0) {
            const double z = p + with_sign_of(root, p);
            set(bottom_ - 1, origin + z, 0);
            set(bottom_, z != 0 ? origin - w / z : origin + z, 0);
        } else {
            set(bottom_ - 1, origin + p, -root);
            set(bottom_, origin + p, root);
        }
        bottom_ -= 2;
    }

    void set(Index i, double re, double im) {
        re_[i] = re;
        im_[i] = im;
    }

    Shift trailing_block() const {
        const Index n = bottom_;
        return {a_[n][n], a_[n - 1][n - 1], a_[n][n - 1] * a_[n - 1][n]};
    }

    // The eigenvalues of the trailing block, except for a stubborn matrix.
    Shift choose_shift(int iteration) {
        if (iteration != 10 && iteration != 20) return trailing_block();
        const Index n = bottom_;
        const double x = a_[n][n];
        shifted_by_ += x;
        for (Index i = 0; i <= n; ++i) a_[i][i] -= x;
        const double s = std::fabs(a_[n][n - 1]) + std::fabs(a_[n - 1][n - 2]);
        return {0.75 * s, 0.75 * s, -0.4375 * s * s};
    }

    // One implicit double-shift QR step.
    void sweep(const Shift& shift) {
        SweepStart start{top_, bottom_, 0, {}};
        start.m = find_start(shift, start.v);
        for (Index i = start.m + 2; i <= bottom_; ++i) {
            a_[i][i - 2] = 0;
            if (i != start.m + 2) a_[i][i - 3] = 0;
        }
        dispatch<BulgeChase>(a_, &start);
    }

    // The lowest row at which the step may start because two consecutive subdiagonal elements are
    // small, and the first column of the shifted product there.
    Index find_start(const Shift& shift, Vector3& v) const {
        for (Index m = bottom_ - 2;; --m) {
            const double z = a_[m][m];
            const double r = shift.x - z;
            const double s = shift.y - z;
            v.p = (r * s - shift.w) / a_[m + 1][m] + a_[m][m + 1];
            v.q = a_[m + 1][m + 1] - z - r - s;
            v.r = a_[m + 2][m + 1];
            const double size = std::fabs(v.p) + std::fabs(v.q) + std::fabs(v.r);
            v = {v.p / size, v.q / size, v.r / size};
            if (m == top_) return m;
            const double left = std::fabs(a_[m][m - 1]) * (std::fabs(v.q) + std::fabs(v.r));
            const double right = std::fabs(v.p) * (std::fabs(a_[m - 1][m - 1]) + std::fabs(z) +
                                                   std::fabs(a_[m + 1][m + 1]));
            if (left + right == right) return m;
        }
    }

    double** a_;
    Index top_ = 0;
    Index bottom_;
    double* re_;
    double* im_;
    double norm_;
    double shifted_by_ = 0;  // what the exceptional shifts took from the diagonal
};

}  // namespace

bool hessenberg_eigenvalues(double** a, std::size_t n, double* re, double* im) {
    return ShiftedQr(a, n, re, im).run();
}

}  // namespace trajex
