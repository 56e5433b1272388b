// The bifurcation record, the stability criteria over its eigenvalues, and its reports.
#include <cstring>
#include <fstream>
#include <sstream>
#include <type_traits>

#include "bifurcation/criteria.hpp"
#include "bifurcation/record.hpp"
#include "continuation/recorder.hpp"
#include "support.hpp"

namespace {

TEST(Record, IsDetachedWhenItIsDestroyed) {
    const auto tx = open_variational(Oscillator::flow, 2, nullptr, nullptr, 1e-6);
    TrajexBif* bif = tx->txb = TXCreateBif(tx.get());
    EXPECT_EQ(bif->order, 2);
    EXPECT_EQ(TXDestroyBif(tx.get(), bif), 1);
    EXPECT_EQ(tx->txb, nullptr);  // closing would destroy it again
    EXPECT_EQ(TXDestroyBif(tx.get(), nullptr), 0);
}

// The criteria, on spectra chosen for their ties and their ends.
using Values = std::vector<double>;

/// What a criterion of a handle with these eigenvalues gives, and the places it names.
Values of(auto criterion, const Values& er, Values ei = {}, auto... mode) {
    ei.resize(er.size());
    const auto tx = open_recording(Oscillator::flow, static_cast<int>(er.size()));
    tx->txb = TXCreateBif(tx.get());
    std::copy(er.begin(), er.end(), tx->txb->er);
    std::copy(ei.begin(), ei.end(), tx->txb->ei);
    int first = 9, second = 9;
    if constexpr (std::is_invocable_v<decltype(criterion), Trajex*, int*, int*>) {
        const double value = criterion(tx.get(), &first, &second);
        return {value, double(first), double(second)};
    } else {
        const double value = criterion(tx.get(), &first, mode...);
        return {value, double(first)};
    }
}

TEST(Criteria, NameTheCriticalEigenvalue) {
    EXPECT_EQ(of(CRIT, {0.5, -0.6, 1}, {0, 0.8, 0}, 1), (Values{1, 1}));
    EXPECT_EQ(of(CRIT, {0.75, -1.25, 1}, {}, 1), (Values{0.75, 0}));  // the first of equal ones
    EXPECT_EQ(of(CRIT, {0.5, 0.2, NAN, 0.9}, {}, 0), (Values{0.9, 3}));
    for (const int left_out : {0, 1}) {  // at least one is looked at
        EXPECT_EQ(of(CRIT, {3}, {4}, left_out), (Values{5, 0}));
    }
    EXPECT_EQ(of(EQUICRIT, {-3, 0.5, -0.2}), (Values{-0.2, 2}));
    EXPECT_EQ(of(EQUICRIT, {0.5, -0.5, -1}), (Values{0.5, 0}));
    // Of two: the greater real part first, then the greater imaginary part.
    EXPECT_EQ(of(CRIT2, {-1, 0.3, 1}), (Values{0, 2, 0}));
    EXPECT_EQ(of(CRIT2, {0.5, 0.5}, {-0.1, 0.1}), (Values{std::sqrt(0.26), 1, 0}));
    EXPECT_EQ(of(CRIT2, {0.25, 1, 0.25}), (Values{0.75, 1, 0}));
    EXPECT_EQ(of(EQUICRIT2, {-3, 0.5, -0.2}), (Values{-0.2, 2, 0}));
    EXPECT_EQ(of(EQUICRIT2, {-0.2, -0.2, 1}, {-0.5, 0.5, 0}), (Values{-0.2, 1, 0}));
    EXPECT_EQ(of(EQUICRIT2, {2, 1}), (Values{2, 0, 1}));
    EXPECT_EQ(of(CRIT2, {0.5}), (Values{INFINITY, 0, 0}));
}

TEST(Criteria, PutTheTrivialMultiplierLast) {
    Values er{0.5, 1, 0.2, 1}, ei{0.1, 0.01, 0.2, -0.01};
    SORTEIG(er.data(), ei.data(), 4);
    EXPECT_EQ(er, (Values{0.5, 1, 0.2, 1}));
    EXPECT_EQ(ei, (Values{0.1, -0.01, 0.2, 0.01}));
    const Values re{0.6, 0.5, -0.5}, im{0.8, 0, 0.5};  // the first is on the circle
    EXPECT_EQ(trajex::stable_multipliers(re.data(), im.data(), 3), 2);
    EXPECT_EQ(trajex::stable_eigenvalues(Values{-1, 0, 2, NAN, -1e-300}.data(), 5), 2);
}

// Every kind of path, both kinds of rule and box, every type with its names, a matrix: character by
// character as stored.
TEST(Reports, AreThoseStored) {
    std::ostringstream all;
    OpenHandle tx;
    TrajexBif* bif = nullptr;
    // A point with numbers of all sizes and signs.
    const auto describe = [&](int n, int m, trajex::PathKind kind) {
        static double own[] = {0.75, 1e-9};  // not the values in the record
        tx = open_variational(Oscillator::flow, n, nullptr, nullptr, 1e-6, &own[0], &own[1]);
        tx->nparam = m;
        bif = tx->txb = TXCreateBif(tx.get());
        bif->cindi[0] = kind;
        bif->steps = 1234, bif->T = 2 * pi;
        const double c[] = {0.5, -1234.5678}, y[] = {-2, 1.0 / 3};
        const double vectors[] = {
            0.25, -1.5, 0.5, 0, 0.6, -0.8, 1,    1e-5, 0,        // n = 1: er to right
            0,    1,    0,   2, 3,   -2.5, 1e10, -1.5, -1e-10};  // n = 2: er to intang, to right
        std::copy_n(c, m, bif->c);
        std::copy_n(y, n, bif->y);
        std::copy_n(vectors, 9 * n, bif->er);
        bif->cleft = 0.4, bif->cright = 0.6, bif->ctop = 0.45, bif->cbot = 0.55;
    };
    const auto add = [&](void (*report)(Trajex*, FILE*)) {
        const TextStream stream;
        report(tx.get(), stream);
        all << stream.text();
    };
    const auto add_box = [&](int type, const char* title, int direction) {
        bif->biftype = type, bif->indir = direction;
        std::strcpy(bif->btype, title);
        add(TXStateBifOutput);
    };
    for (int n = 1; n <= 2; ++n) {
        describe(n, 2, trajex::no_path);
        bif->cindi[1] = 1;
        for (int kind = trajex::no_path; kind <= trajex::equilibrium_curve; ++kind) {
            bif->cindi[0] = kind;
            add(TXStateOutput), add(TXPathOutput), add_box(0, "", 0);
        }
    }
    describe(2, 1, trajex::orbit_curve);
    add_box(trajex::not_determined, "", 0), add_box(trajex::pitchfork, " -(- 1->2", 1);
    add_box(trajex::torus, "", 2), add_box(trajex::transcritical, "", 3);
    add_box(trajex::saddle_node, " ) or ( ", 4), add_box(trajex::period_doubling, "", 0);
    describe(1, 2, trajex::equilibrium_path);
    add_box(trajex::saddle_node, " ) or ( ", 4), add_box(trajex::hopf, "", 0);
    for (int type = 0; type < 7; ++type) {
        all << TrajexBifName[type];
        for (const char* const icon : {TrajexBifIconLeft[type], TrajexBifIconRight[type]}) {
            all << ' ' << (icon == nullptr ? "none" : icon);
        }
        all << '\n';
    }
    double rows[2][2] = {{1, -0.25}, {1.0 / 3, 1e20}}, *m[] = {rows[0], rows[1]};
    testing::internal::CaptureStdout();
    SHOWMAT(2, 2, m);
    all << testing::internal::GetCapturedStdout();
    std::ostringstream stored;
    stored << std::ifstream(TX_TEST_DATA "/bifurcation/reports.txt").rdbuf();
    EXPECT_EQ(all.str(), stored.str());
}

}  // namespace
