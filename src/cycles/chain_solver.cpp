// Elimination from the inside out: points inside of segments, ends of segments, borders. The real
// factors serve complex systems too: a complex block of k columns is a real one of 2 k.
#include "cycles/chain_solver.hpp"

#include <algorithm>
#include <cmath>

#include "core/sized.hpp"

namespace trajex {

namespace {

double* parts_of(double* x) {
    return x;
}
double* parts_of(std::complex<double>* x) {
    return reinterpret_cast<double*>(x);
}

// y -= A x and y -= A' x for a real n x n block with rows `stride` apart.
template <class Size, class Scalar>
void subtract_product(const double* A, Size n, std::size_t stride, const Scalar* x, Scalar* y) {
    for (std::size_t a = 0; a < n; ++a) {
        Scalar sum{};
        for (std::size_t b = 0; b < n; ++b) sum += A[a * stride + b] * x[b];
        y[a] -= sum;
    }
}
template <class Size, class Scalar>
void subtract_transposed(const double* A, Size n, std::size_t stride, const Scalar* x, Scalar* y) {
    for (std::size_t a = 0; a < n; ++a) {
        for (std::size_t b = 0; b < n; ++b) y[b] -= A[a * stride + b] * x[a];
    }
}

// T x = y and T' x = y for an upper triangle, in place.
template <class Size, class Scalar>
void solve_upper(const double* T, Size n, Scalar* x) {
    for (std::size_t a = n; a-- > 0;) {
        for (std::size_t b = a + 1; b < n; ++b) x[a] -= T[a * n + b] * x[b];
        x[a] /= T[a * n + a];
    }
}
template <class Size, class Scalar>
void solve_upper_transposed(const double* T, Size n, Scalar* x) {
    for (std::size_t a = 0; a < n; ++a) {
        x[a] /= T[a * n + a];
        for (std::size_t b = a + 1; b < n; ++b) x[b] -= T[a * n + b] * x[a];
    }
}

}  // namespace

// ---- Ends of segments ----

// Step i takes [E; -Phi_i], the two blocks in the column of x_i, to [T_i; 0], and with it
//
//     x_0    x_{i+1}           x_0   x_{i+1}
//   [  P        0    ]       [ U_i     F_i  ]
//   [  0        I    ]  ->   [  P       E   ]
void ChainFactors::factor(const Condensation& segments) {
    n_ = segments.states();
    N_ = segments.intervals();
    sign_ = 1;
    if (qr_.size() < N_ - 1) qr_.resize(N_ - 1, Qr(n_));
    reflected_.resize((N_ - 1) * 2 * n_ * n_);
    coupled_.resize((N_ - 1) * 4 * n_ * n_);
    last_.assign(2 * n_ * n_, 0.0);
    for (std::size_t a = 0; a < n_; ++a) {
        for (std::size_t b = 0; b < n_; ++b)
            last_[a * 2 * n_ + b] = -segments.transfer(0)[a * n_ + b];
        last_[a * 2 * n_ + n_ + a] = 1;
    }
    for (std::size_t i = 1; i < N_; ++i) {
        double* const column = reflected_.data() + (i - 1) * 2 * n_ * n_;
        double* const others = coupled_.data() + (i - 1) * 4 * n_ * n_;
        std::fill_n(others, 4 * n_ * n_, 0.0);
        for (std::size_t a = 0; a < n_; ++a) {
            const double* const row = last_.data() + a * 2 * n_;
            std::copy_n(row + n_, n_, column + a * n_);
            std::copy_n(row, n_, others + a * 2 * n_);
            others[(n_ + a) * 2 * n_ + n_ + a] = 1;
        }
        for (std::size_t k = 0; k < n_ * n_; ++k) column[n_ * n_ + k] = -segments.transfer(i)[k];
        Qr& qr = qr_[i - 1];
        qr.factor_pair(column, others, n_);
        std::copy_n(others + 2 * n_ * n_, 2 * n_ * n_, last_.data());
        for (std::size_t a = 0; a < n_; ++a) {
            if (column[a * n_ + a] < 0) sign_ = -sign_;
        }
        if (qr.size() % 2 != 0) sign_ = -sign_;  // a reflection has determinant -1
    }
}

void ChainFactors::reduce(double* blocks, std::size_t k) {
    for (std::size_t i = 1; i < N_; ++i) {
        qr_[i - 1].apply_transposed(blocks + (i - 1) * n_ * k, k, k);
    }
}

void ChainFactors::restore(double* blocks, std::size_t k) {
    for (std::size_t i = N_ - 1; i > 0; --i) qr_[i - 1].apply(blocks + (i - 1) * n_ * k, k, k);
}

// ---- Borders ----

template <class Scalar>
void BorderedChain<Scalar>::reserve(std::size_t k) {
    n_ = segments_->states();
    m_ = segments_->inner_points();
    N_ = segments_->intervals();
    k_ = k;
    inner_rows_.resize(k * N_ * (m_ - 1) * n_);
    columns_.resize(N_ * m_ * n_ * k);
    reduced_.resize(N_ * n_ * k);
    end_rows_.assign(k * (N_ + 1) * n_, Scalar{});
    corner_.resize(k * k);
    blocks_.resize(N_ * n_);
    dense_side_.resize(n_ + k);
    ends_.resize((N_ + 1) * n_);
}

// J^-1 C and its last n rows, the columns of q in the chain.
template <class Scalar>
void BorderedChain<Scalar>::solve_columns(const Scalar* columns, std::size_t own) {
    const double* const scale = segments_->scale().data();
    const std::size_t height = m_ * n_;
    const std::size_t others = k_ - own;
    others_.resize(N_ * height * others);
    for (std::size_t j = 0; j < others_.size(); ++j)
        others_[j] = columns[j] / scale[j / others % n_];
    if (others > 0) segments_->solve(parts_of(others_.data()), others * parts);
    for (std::size_t row = 0; row < N_ * height; ++row) {
        Scalar* const to = columns_.data() + row * k_;
        const double* const given = segments_->scalar_columns() + row * own;
        for (std::size_t c = 0; c < own; ++c) to[c] = given[c];
        std::copy_n(others_.data() + row * others, others, to + own);
    }
    for (std::size_t i = 0; i < N_; ++i) {
        const Scalar* const block = columns_.data() + i * height * k_;
        std::copy_n(block + (height - n_) * k_, n_ * k_, reduced_.data() + i * n_ * k_);
    }
}

template <class Scalar>
bool BorderedChain<Scalar>::factor(const Condensation& segments, ChainFactors& chain,
                                   Scalar closing, std::size_t k, const Scalar* columns,
                                   const Scalar* rows, const Scalar* corner, std::size_t own) {
    segments_ = &segments;
    chain_ = &chain;
    closing_ = closing;
    reserve(k);
    if (k > 0) {
        solve_columns(columns, own);
        chain.reduce(parts_of(reduced_.data()), k * parts);
    }
    condense_borders(rows, corner);
    eliminate_borders();
    fill_dense();
    return dense_.decompose_in_place() && !dense_.singular();
}

// The points inside of segments leave the borders: b_i += sum_j b_ij W_ij, D -= sum_j b_ij (J^-1
// C)_ij.
template <class Scalar>
void BorderedChain<Scalar>::condense_borders(const Scalar* rows, const Scalar* corner) {
    std::copy_n(corner, k_ * k_, corner_.data());
    with_size(n_, [&](auto n) {
        for (std::size_t row = 0; row < k_; ++row) {
            for (std::size_t i = 0; i < N_; ++i)
                condense_border(n, row, i, rows + (row * N_ + i) * m_ * n);
        }
    });
}

template <class Scalar>
template <class Size>
void BorderedChain<Scalar>::condense_border(Size n, std::size_t row, std::size_t i,
                                            const Scalar* b) {
    const double* const scale = segments_->scale().data();
    const std::size_t inner = (m_ - 1) * n;
    Scalar* const end = end_rows_.data() + (row * (N_ + 1) + i) * n;
    for (std::size_t a = 0; a < n; ++a) end[a] = b[a] * scale[a];
    for (std::size_t j = 0; j < inner; ++j) {
        const Scalar inside = b[n + j] * scale[j % n];
        inner_rows_[(row * N_ + i) * inner + j] = inside;
        const double* const W = segments_->map(i) + j * n;
        for (std::size_t a = 0; a < n; ++a) end[a] += inside * W[a];
        const Scalar* const column = columns_.data() + (i * m_ * n + j) * k_;
        for (std::size_t c = 0; c < k_; ++c) corner_[row * k_ + c] -= inside * column[c];
    }
}

// The ends x_1 ... x_{N-1} leave the borders: with Y = b_i T_i^-1,
//     b_0 -= Y U_i,   b_{i+1} -= Y F_i,   D -= Y H_i   (H_i: the columns of q in row i).
template <class Scalar>
void BorderedChain<Scalar>::eliminate_borders() {
    with_size(n_, [&](auto n) {
        for (std::size_t row = 0; row < k_; ++row) {
            Scalar* const b = end_rows_.data() + row * (N_ + 1) * n;
            for (std::size_t i = 1; i < N_; ++i) {
                Scalar* const Y = b + i * n;
                solve_upper_transposed(chain_->T(i), n, Y);
                subtract_transposed(chain_->coupling(i), n, 2 * n, Y, b);
                subtract_transposed(chain_->coupling(i) + n, n, 2 * n, Y, b + (i + 1) * n);
                for (std::size_t a = 0; a < n; ++a) {
                    const Scalar* const H = reduced_.data() + ((i - 1) * n + a) * k_;
                    for (std::size_t c = 0; c < k_; ++c) corner_[row * k_ + c] -= Y[a] * H[c];
                }
            }
        }
    });
}

//     x_0          q
// [ P + s E        H ]
// [ b_0 + s b_N    D ]
template <class Scalar>
void BorderedChain<Scalar>::fill_dense() {
    const std::size_t size = n_ + k_;
    Scalar* const matrix = dense_.matrix(size);
    for (std::size_t a = 0; a < n_; ++a) {
        const double* const last = chain_->last() + a * 2 * n_;
        for (std::size_t b = 0; b < n_; ++b)
            matrix[a * size + b] = last[b] + closing_ * last[n_ + b];
        std::copy_n(reduced_.data() + ((N_ - 1) * n_ + a) * k_, k_, matrix + a * size + n_);
    }
    for (std::size_t row = 0; row < k_; ++row) {
        const Scalar* const b = end_rows_.data() + row * (N_ + 1) * n_;
        Scalar* const to = matrix + (n_ + row) * size;
        for (std::size_t a = 0; a < n_; ++a) to[a] = b[a] + closing_ * b[N_ * n_ + a];
        std::copy_n(corner_.data() + row * k_, k_, to + n_);
    }
}

template <class Scalar>
void BorderedChain<Scalar>::chain_solve(Scalar* blocks, Scalar* q) const {
    with_size(n_, [&](auto n) {
        Scalar* const side = dense_side_.data();
        std::copy_n(blocks + (N_ - 1) * n, n, side);
        for (std::size_t row = 0; row < k_; ++row) {
            const Scalar* const Y = end_rows_.data() + (row * (N_ + 1) + 1) * n;
            Scalar sum = q[row];
            for (std::size_t a = 0; a < (N_ - 1) * n; ++a) sum -= Y[a] * blocks[a];
            side[n + row] = sum;
        }
        dense_.solve(side);
        std::copy_n(side + n, k_, q);
        Scalar* const x = ends_.data();
        for (std::size_t a = 0; a < n; ++a) {
            x[a] = side[a];
            x[N_ * n + a] = closing_ * side[a];
        }
        for (std::size_t i = N_ - 1; i > 0; --i) {
            Scalar* const at = x + i * n;
            for (std::size_t a = 0; a < n; ++a) {
                const std::size_t row = (i - 1) * n + a;
                at[a] = blocks[row];
                for (std::size_t c = 0; c < k_; ++c) at[a] -= reduced_[row * k_ + c] * q[c];
            }
            subtract_product(chain_->coupling(i), n, 2 * n, x, at);
            subtract_product(chain_->coupling(i) + n, n, 2 * n, at + n, at);
            solve_upper(chain_->T(i), n, at);
        }
    });
}

// Tangents and null vectors are solutions without right-hand sides in the segments.
template <class Scalar>
void BorderedChain<Scalar>::solve(Scalar* r, Scalar* t) const {
    const bool given = std::any_of(r, r + N_ * m_ * n_, [](Scalar x) { return x != Scalar{}; });
    if (given)
        condense_sides(r, t);
    else
        std::fill(blocks_.begin(), blocks_.end(), Scalar{});
    chain_solve(blocks_.data(), t);
    with_size(n_, [&](auto n) {
        for (std::size_t i = N_; i-- > 0;) expand(n, i, t, r + i * m_ * n);
    });
}

// J^-1 r, of which the last n rows of each segment go into the chain and the others leave the
// borders.
template <class Scalar>
void BorderedChain<Scalar>::condense_sides(Scalar* r, Scalar* t) const {
    const double* const scale = segments_->scale().data();
    const std::size_t height = m_ * n_;
    const std::size_t inner = height - n_;
    for (std::size_t row = 0; row < N_ * height; row += n_) {
        for (std::size_t a = 0; a < n_; ++a) r[row + a] /= scale[a];
    }
    segments_->solve(parts_of(r), parts);
    for (std::size_t i = 0; i < N_; ++i) {
        const Scalar* const w = r + i * height;
        std::copy_n(w + inner, n_, blocks_.data() + i * n_);
        for (std::size_t row = 0; row < k_; ++row) {
            for (std::size_t j = 0; j < inner; ++j)
                t[row] -= inner_rows_[(row * N_ + i) * inner + j] * w[j];
        }
    }
    chain_->reduce(parts_of(blocks_.data()), parts);
}

// Inner points first keep w; then everything moves one point up: point k of the chain stands at k.
template <class Scalar>
template <class Size>
void BorderedChain<Scalar>::expand(Size n, std::size_t i, const Scalar* t, Scalar* w) const {
    const double* const scale = segments_->scale().data();
    const Scalar* const end = ends_.data() + i * n;
    for (std::size_t j = (m_ - 1) * n; j-- > 0;) {
        Scalar sum = w[j];
        const double* const W = segments_->map(i) + j * n;
        for (std::size_t a = 0; a < n; ++a) sum += W[a] * end[a];
        const Scalar* const column = columns_.data() + (i * m_ * n + j) * k_;
        for (std::size_t c = 0; c < k_; ++c) sum -= column[c] * t[c];
        w[n + j] = sum * scale[j % n];
    }
    for (std::size_t a = 0; a < n; ++a) w[a] = end[a] * scale[a];
}

// The steps of chain_solve transposed, in the opposite order; `ends_` holds the coefficients of the
// x_i and becomes the multipliers of the rows, in `blocks`.
template <class Scalar>
void BorderedChain<Scalar>::chain_solve_transposed(Scalar* blocks, Scalar* q) const {
    with_size(n_, [&](auto n) {
        Scalar* const c = ends_.data();
        for (std::size_t i = 1; i < N_; ++i) {
            Scalar* const w = blocks + (i - 1) * n;
            std::copy_n(c + i * n, n, w);
            solve_upper_transposed(chain_->T(i), n, w);
            subtract_transposed(chain_->coupling(i), n, 2 * n, w, c);
            subtract_transposed(chain_->coupling(i) + n, n, 2 * n, w, c + (i + 1) * n);
            for (std::size_t a = 0; a < n; ++a) {
                const Scalar* const H = reduced_.data() + ((i - 1) * n + a) * k_;
                for (std::size_t col = 0; col < k_; ++col) q[col] -= H[col] * w[a];
            }
        }
        Scalar* const side = dense_side_.data();
        for (std::size_t a = 0; a < n; ++a) side[a] = c[a] + closing_ * c[N_ * n + a];
        std::copy_n(q, k_, side + n);
        dense_.solve_transposed(side);
        std::copy_n(side, n, blocks + (N_ - 1) * n);
        std::copy_n(side + n, k_, q);
        for (std::size_t row = 0; row < k_; ++row) {
            const Scalar* const Y = end_rows_.data() + (row * (N_ + 1) + 1) * n;
            for (std::size_t a = 0; a < (N_ - 1) * n; ++a) blocks[a] -= Y[a] * q[row];
        }
        chain_->restore(parts_of(blocks), parts);
    });
}

// With multipliers lambda_i of the condensed rows and v of the borders, those of segment i are
//     y_i = J_i^-T (g_i, lambda_i),    g_ij = c_ij - b_ij' v    at the points inside.
template <class Scalar>
void BorderedChain<Scalar>::solve_transposed(Scalar* x, Scalar* q) const {
    const double* const scale = segments_->scale().data();
    const std::size_t height = m_ * n_;
    const std::size_t inner = height - n_;
    for (std::size_t row = 0; row < N_ * height; ++row) x[row] *= scale[row % n_];
    std::fill_n(ends_.data() + N_ * n_, n_, Scalar{});
    for (std::size_t i = 0; i < N_; ++i) {
        const Scalar* const c = x + i * height;
        Scalar* const end = ends_.data() + i * n_;
        std::copy_n(c, n_, end);
        for (std::size_t j = 0; j < inner; ++j) {
            const double* const W = segments_->map(i) + j * n_;
            for (std::size_t a = 0; a < n_; ++a) end[a] += W[a] * c[n_ + j];
            const Scalar* const column = columns_.data() + (i * height + j) * k_;
            for (std::size_t col = 0; col < k_; ++col) q[col] -= column[col] * c[n_ + j];
        }
    }
    chain_solve_transposed(blocks_.data(), q);
    for (std::size_t i = 0; i < N_; ++i) {
        Scalar* const y = x + i * height;
        for (std::size_t j = 0; j < inner; ++j) {
            y[j] = y[n_ + j];
            for (std::size_t row = 0; row < k_; ++row) {
                y[j] -= inner_rows_[(row * N_ + i) * inner + j] * q[row];
            }
        }
        std::copy_n(blocks_.data() + i * n_, n_, y + inner);
    }
    segments_->solve_transposed(parts_of(x), parts);
    for (std::size_t row = 0; row < N_ * height; ++row) x[row] /= scale[row % n_];
}

template <class Scalar>
int BorderedChain<Scalar>::determinant_sign() const {
    if constexpr (parts == 1)
        return chain_->sign() * dense_.sign_det();
    else
        return 0;
}

template class BorderedChain<double>;
template class BorderedChain<std::complex<double>>;

}  // namespace trajex
