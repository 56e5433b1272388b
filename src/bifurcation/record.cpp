// Making and releasing the bifurcation record, and the catalogue of bifurcation types.
#include "bifurcation/record.hpp"

#include <algorithm>
#include <functional>

#include "core/errors.hpp"
#include "core/workspace.hpp"

const char* const TrajexBifName[7] = {
    "NOT DETERMINED",  "TORUS",     "TRANSCRITICAL", "SADDLE-NODE",
    "PERIOD DOUBLING", "PITCHFORK", "HOPF"};
const char* const TrajexBifIconLeft[7] = {"?", "-oO-", "-/-", "(", "-(-", "-(-", nullptr};
const char* const TrajexBifIconRight[7] = {"?", "-Oo-", "-\\-", ")", "-)-", "-)-", nullptr};

namespace trajex {

namespace {

void carve(BifRecord& bif, std::size_t n, std::size_t m) {
    const std::size_t rows = n + m + 1;
    double* next = bif.block.get();
    const auto take = [&next](std::size_t length) {
        double* taken = next;
        next += length;
        return taken;
    };
    bif.y = take(n);
    bif.Phi = bif.rows.get();
    for (std::size_t i = 0; i < rows; ++i) bif.Phi[i] = take(rows);
    bif.c = take(m);
    for (double** vector : {&bif.er, &bif.ei, &bif.trans, &bif.tang, &bif.intang, &bif.top,
                            &bif.bot, &bif.left, &bif.right}) {
        *vector = take(n);
    }
}

std::unique_ptr<BifRecord> make_record(Trajex& tx) {
    const std::size_t n = order_of(tx);
    const std::size_t m = parameters_of(tx);
    const std::size_t rows = n + m + 1;
    auto bif = try_make<BifRecord>();
    if (bif == nullptr) return nullptr;
    bif->rows = try_make_array<double*>(rows);
    bif->block = try_make_array<double>(rows * rows + 10 * n + m);
    if (bif->rows == nullptr || bif->block == nullptr) return nullptr;
    bif->tx = &tx;
    bif->order = tx.order;
    bif->parameters = m;
    carve(*bif, n, m);
    return bif;
}

}  // namespace

int activate_parameter(Trajex& tx, const double* c, int* index) {
    int count = 0;
    for (int q = 0; q < tx.nparam; ++q) {
        tx.cp[q] = tx.c[q] == c ? 1 : 0;
        if (tx.cp[q] == 0) continue;
        *index = q;
        ++count;
    }
    return count;
}

bool find_parameter(const Trajex& tx, const double* c, int* index) {
    double** const end = tx.c + parameters_of(tx);
    double** const place = std::find(tx.c, end, c);
    *index = static_cast<int>(place - tx.c);
    return place != end && std::find(place + 1, end, c) == end;
}

bool BifRecord::contains(const double* address) const {
    const auto between = [address](const void* first, const void* end) {
        return !std::less<>()(static_cast<const void*>(address), first) &&
               std::less<>()(static_cast<const void*>(address), end);
    };
    const TrajexBif* const fields = this;
    return between(block.get(), c + values_from_c()) || between(fields, fields + 1);
}

}  // namespace trajex

using namespace trajex;

TrajexBif* TXCreateBif(Trajex* handle) {
    constexpr const char* where = "TXCreateBif";
    Trajex& tx = enter(handle, where);
    std::unique_ptr<BifRecord> bif = make_record(tx);
    if (bif == nullptr) report(&tx, Error::no_memory, where);
    return bif.release();
}

int TXDestroyBif(Trajex* handle, TrajexBif* txb) {
    Trajex& tx = enter(handle, "TXDestroyBif");
    if (txb == nullptr) return 0;
    if (tx.txb == txb) tx.txb = nullptr;
    const std::unique_ptr<BifRecord> owner(static_cast<BifRecord*>(txb));
    return 1;
}
