#include "cycles/condensation.hpp"

#include <algorithm>
#include <array>

namespace trajex {

namespace {

constexpr std::size_t largest_in_lanes = 40;  // order: four larger matrices leave the caches

}  // namespace

bool Condensation::factor(const Segments& segments, const std::vector<double>& scale) {
    n_ = segments.states();
    m_ = segments.inner_points();
    N_ = segments.intervals();
    scalars_ = segments.scalars();
    scale_ = scale;
    maps_.resize(N_ * height() * n_);
    columns_.resize(N_ * height() * scalars_);
    first_.resize(height() * n_ * lanes);
    sides_.resize(height() * (n_ + scalars_ + lanes) * lanes);
    is_alone_.assign(N_, 1);
    in_lanes_.resize(height() <= largest_in_lanes ? (N_ + lanes - 1) / lanes : 0);
    if (alone_.size() < N_) alone_.resize(N_);
    for (std::size_t group = 0; group < groups(); ++group) factor_group(segments, group);
    for (std::size_t i = 0; i < N_; ++i) {
        if (is_alone_[i] != 0 && !factor_alone(segments, i)) return false;
    }
    return true;
}

void Condensation::factor_group(const Segments& segments, std::size_t group) {
    LaneLu& lu = in_lanes_[group];
    const std::size_t width = n_ + scalars_;
    double* const inner = lu.matrix(height());
    std::array<std::size_t, lanes> members{};
    for (std::size_t lane = 0; lane < lanes; ++lane) members[lane] = segment(group, lane);
    segments.lane_blocks(members, scale_.data(), inner, first_.data());
    for (std::size_t row = 0; row < height(); ++row) {
        double* const side = sides_.data() + row * width * lanes;
        const double* const first = first_.data() + row * n_ * lanes;
        for (std::size_t k = 0; k < n_ * lanes; ++k) side[k] = -first[k];
    }
    for (std::size_t lane = 0; lane < lanes; ++lane)
        fill_scalars(segments, members[lane], {width, lanes, lane});
    const std::array<bool, lanes> good = lu.decompose();
    lu.solve(sides_.data(), width);
    for (std::size_t lane = 0; lane < lanes; ++lane) {
        const std::size_t i = members[lane];
        if (!good[lane]) continue;
        is_alone_[i] = 0;
        keep({width, lanes, lane}, i);
    }
}

bool Condensation::factor_alone(const Segments& segments, std::size_t i) {
    constexpr std::size_t vector = 4;  // rows are filled up to whole ones
    const std::size_t width = (n_ + scalars_ + vector - 1) / vector * vector;
    segments.blocks(i, scale_.data(), 1, alone_[i].matrix(height()), first_.data());
    if (!alone_[i].decompose_in_place() || alone_[i].singular()) return false;
    std::fill_n(sides_.data(), height() * width, 0.0);
    for (std::size_t row = 0; row < height(); ++row) {
        for (std::size_t b = 0; b < n_; ++b) sides_[row * width + b] = -first_[row * n_ + b];
    }
    fill_scalars(segments, i, {width, 1, 0});
    alone_[i].solve_many(sides_.data(), width);
    keep({width, 1, 0}, i);
    return true;
}

// The columns of the scalar unknowns go through the same substitution as those of x_i0 before them.
void Condensation::fill_scalars(const Segments& segments, std::size_t i, const Places& places) {
    const double* const C = segments.scalar_columns() + i * height() * scalars_;
    for (std::size_t row = 0; row < height(); ++row) {
        double* const side = sides_.data() + places.row(row) + n_ * places.stride;
        for (std::size_t c = 0; c < scalars_; ++c)
            side[c * places.stride] = C[row * scalars_ + c] / scale_[row % n_];
    }
}

void Condensation::keep(const Places& places, std::size_t i) {
    for (std::size_t row = 0; row < height(); ++row) {
        const double* const side = sides_.data() + places.row(row);
        double* const map = maps_.data() + (i * height() + row) * n_;
        double* const columns = columns_.data() + (i * height() + row) * scalars_;
        for (std::size_t b = 0; b < n_; ++b) map[b] = side[b * places.stride];
        for (std::size_t c = 0; c < scalars_; ++c) columns[c] = side[(n_ + c) * places.stride];
    }
}

template <class Solve>
void Condensation::solve_groups(double* columns, std::size_t k, const Solve& one_group) const {
    const std::size_t size = height() * k;
    lanes_.resize(size * lanes);
    for (std::size_t group = 0; group < groups(); ++group) {
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            const double* const from = columns + segment(group, lane) * size;
            for (std::size_t j = 0; j < size; ++j) lanes_[j * lanes + lane] = from[j];
        }
        one_group(in_lanes_[group], lanes_.data());
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            const std::size_t i = segment(group, lane);
            if (is_alone_[i] != 0) continue;
            double* const to = columns + i * size;
            for (std::size_t j = 0; j < size; ++j) to[j] = lanes_[j * lanes + lane];
        }
    }
}

void Condensation::solve(double* columns, std::size_t k) const {
    solve_groups(columns, k, [k](const LaneLu& lu, double* B) { lu.solve(B, k); });
    for (std::size_t i = 0; i < N_; ++i) {
        if (is_alone_[i] != 0) alone_[i].solve_many(columns + i * height() * k, k);
    }
}

void Condensation::solve_transposed(double* columns, std::size_t k) const {
    solve_groups(columns, k, [k](const LaneLu& lu, double* B) { lu.solve_transposed(B, k); });
    lanes_.resize(height());
    for (std::size_t i = 0; i < N_; ++i) {
        double* const block = columns + i * height() * k;
        for (std::size_t c = 0; is_alone_[i] != 0 && c < k; ++c) {
            for (std::size_t row = 0; row < height(); ++row) lanes_[row] = block[row * k + c];
            alone_[i].solve_transposed(lanes_.data());
            for (std::size_t row = 0; row < height(); ++row) block[row * k + c] = lanes_[row];
        }
    }
}

}  // namespace trajex
