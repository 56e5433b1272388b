// Eigenvalues of an upper Hessenberg matrix by double-shift QR iteration on the active block.
// Reference: Martin, Peters and Wilkinson, Numer. Math. 14 (1970) 219.
#include <algorithm>
#include <cmath>

#include "core/simd.hpp"
#include "linalg/eigen.hpp"
#include "linalg/range.hpp"

namespace trajex {

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

// The trailing 2 x 2 block as far as the double shift needs it: its diagonal, from the bottom, and
// the product of the other two elements.
struct Shift {
    double x, y, w;
};

struct Vector3 {
    double p, q, r;
};

constexpr int other_shift_every = 10;

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
template <class Vector>
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
    static constexpr Index group = width<Vector>;
    static constexpr Index side_by_side = 2;

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
        const Index vectors_from = k + 2 + (start_.bottom - k - 1) % group;
        Index j = k;
        for (; j < vectors_from; ++j) h.from_left(rows[0][j], rows[1][j], rows[2][j]);
        for (; j <= start_.bottom; j += group) {
            Vector a, b, c;
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
        for (; i + side_by_side * group <= edge_; i += side_by_side * group) {
            apply_batch<side_by_side>(i);
        }
        for (; i < edge_; i += group) apply_batch<1>(i);
    }

    // Applies the batch to some vectors of rows, from row i on. Vectors side by side keep the
    // processor busy, since each reflection needs the result of the one before.
    template <Index vectors>
    [[gnu::always_inline]] inline void apply_batch(Index i) {
        Vector a[vectors], b[vectors], c;
        for (Index g = 0; g < vectors; ++g) {
            gather(a[g], a_ + i + g * group, first_);
            gather(b[g], a_ + i + g * group, first_ + 1);
        }
        for (Index t = 0; t < count_; ++t) {
            const Reflection h = batch_[t];
            for (Index g = 0; g < vectors; ++g) {
                gather(c, a_ + i + g * group, first_ + t + 2);
                h.from_right(a[g], b[g], c);
                scatter(a[g], a_ + i + g * group, first_ + t);
                a[g] = b[g];
                b[g] = c;
            }
        }
        for (Index g = 0; g < vectors; ++g) {
            scatter(a[g], a_ + i + g * group, first_ + count_);
            scatter(b[g], a_ + i + g * group, first_ + count_ + 1);
        }
    }

    // The last reflection combines two rows and columns only.
    [[gnu::always_inline]] inline void apply_last() {
        const Index k = start_.bottom - 1;
        Reflection h{};
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
    ShiftedQr(double** a, std::size_t n, double* re, double* im, int limit)
        : a_(a),
          bottom_(static_cast<Index>(n) - 1),
          re_(re),
          im_(im),
          norm_(norm(a, bottom_)),
          limit_(limit) {}

    // The eigenvalues found are given 2^exponent times.
    bool run(int exponent) {
        const Index last = bottom_;
        const int e = exponent + (in_middle_range(norm_) ? 0 : bring_into_range());
        while (bottom_ >= 0 && find_eigenvalues_at_bottom()) {
        }
        if (e != 0) {
            const auto count = static_cast<std::size_t>(last - bottom_);
            scale_by_power(re_ + bottom_ + 1, count, e);
            scale_by_power(im_ + bottom_ + 1, count, e);
        }
        return bottom_ < 0;
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

    struct Row {
        double* first;
        std::size_t count;
    };
    Row hessenberg_row(Index i) const {
        const Index first = std::max<Index>(i - 1, 0);
        return {a_[i] + first, static_cast<std::size_t>(bottom_ - first + 1)};
    }

    // Multiplies the matrix by 2^-e, so that the products of its elements stay in range.
    int bring_into_range() {
        double largest = 0;
        for (Index i = 0; i <= bottom_; ++i) {
            const auto [first, count] = hessenberg_row(i);
            largest = std::max(largest, largest_size(first, count));
        }
        const int e = range_exponent(largest);
        if (e == 0) return 0;
        for (Index i = 0; i <= bottom_; ++i) {
            const auto [first, count] = hessenberg_row(i);
            scale_by_power(first, count, -e);
        }
        norm_ = norm(a_, bottom_);
        return e;
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
            if (iteration == limit_) return false;
            sweep(choose_shift(iteration));
        }
    }

    // The first row of the active block: the lowest one whose subdiagonal element is negligible.
    // The element is left as it is, and may count again when its neighbours have changed.
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

    // Roots of the trailing 2 x 2 block; of two real ones the second from their product.
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

    // The eigenvalues of the trailing block; now and then others, for a matrix that these leave
    // unchanged.
    Shift choose_shift(int iteration) {
        if (iteration == 0 || iteration % other_shift_every != 0) return trailing_block();
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
    int limit_;
    double shifted_by_ = 0;  // what the exceptional shifts took from the diagonal
};

}  // namespace

bool hessenberg_eigenvalues(double** a, std::size_t n, double* re, double* im, int exponent,
                            int limit) {
    return ShiftedQr(a, n, re, im, limit).run(exponent);
}

namespace {

// Multiplies the matrix by 2^-e, and returns e.
[[gnu::noinline]] int bring_into_range(double** a, std::size_t n, double largest) {
    const int e = range_exponent(largest);
    if (e != 0) {
        for (std::size_t i = 0; i < n; ++i) scale_by_power(a[i], n, -e);
    }
    return e;
}

}  // namespace

bool matrix_eigenvalues(double** a, std::size_t n, double* re, double* im, int limit) {
    double largest = 0;
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) largest = std::max(largest, std::fabs(a[i][j]));
    }
    const int e = in_middle_range(largest) ? 0 : bring_into_range(a, n, largest);
    balance(a, n);
    reduce_to_hessenberg(a, n);
    return hessenberg_eigenvalues(a, n, re, im, e, limit);
}

}  // namespace trajex
