// The single-instance interface does what the operations on a handle do: each call is compared bit
// by bit with its namesake on a handle of the test's own, in one walk side by side.
#include "support.hpp"

namespace {

constexpr auto oscillator = Oscillator::flow;
constexpr auto van_der_pol = VanDerPol::flow;

std::vector<std::array<double, 3>> samples;
void take(double t, double* y) {
    samples.push_back({t, y[0], y[1]});
}

TEST(SingleInstance, WalksBesideAHandle) {
    const OpenHandle own = open_recording(van_der_pol, 2, 1e-6, 0.01);
    Trajex* const tx = own.get();
    const TemporaryFile file, own_file{"_own"};
    double t = 0, u = 0, y[] = {1, 0.5}, v[] = {1, 0.5}, e[4] = {}, w[4] = {};
    const auto expect_same = [&](double result, double own_result) {
        EXPECT_EQ(result, own_result);
        EXPECT_EQ((std::array{t, y[0], y[1], e[0], e[1], e[2], e[3]}),
                  (std::array{u, v[0], v[1], w[0], w[1], w[2], w[3]}));
        EXPECT_EQ(file.text(), own_file.text());
        EXPECT_EQ(samples.size() % 2, 0U);
        for (std::size_t i = 0; 2 * i < samples.size(); ++i) {
            EXPECT_EQ(samples[i], samples[samples.size() / 2 + i]);
        }
    };
    ASSERT_EQ(openTrajex(2, 1e-6, 0.01), 1);
    EXPECT_EQ(order(), 2);
    expect_same(set_tol(1e-3), TXSetRelTol(tx, 1e-3));
    expect_same(set_abs_tol(1e-4), TXSetAbsTol(tx, 1e-4));
    expect_same(set_max_step(0.25), TXSetMaxStep(tx, 0.25));
    // The system is that of the call; the step size goes on from one to the other.
    for (const auto f : {van_der_pol, oscillator, van_der_pol}) {
        tx->fcn = f;
        expect_same(step(&t, y, f), TXStep(tx, &u, v));
    }
    tx->fcn = oscillator;
    expect_same(integrate(&t, 3, y, oscillator), TXIntegrate(tx, &u, 3, v));
    EXPECT_LE(tx->tlast - tx->tfirst, 0.25 + 1e-15);
    tx->fcn = van_der_pol;
    expect_same(interpolate(2.99, y, van_der_pol), TXInterpolate(tx, 2.99, v));

    TXSetCut(tx, first_component, 1e-8);
    int crossings = 0;
    for (int i = 0; i < 100; ++i) {
        const int crossed = poincare_step(&t, y, van_der_pol, first_component, 1e-8);
        expect_same(crossed, TXPoincareStep(tx, &u, v));
        crossings += crossed;
    }
    EXPECT_GT(crossings, 2);
    TXSetCut(tx, nullptr, 1e-8);
    expect_same(set_auto_cut(t, y, van_der_pol), TXSetAutoCut(tx, u, v));
    expect_same(cut_surface(e, e + 2), TXCutSurface(tx, w, w + 2));
    while (poincare_step(&t, y, van_der_pol, nullptr, 1e-8) == 0) TXPoincareStep(tx, &u, v);
    expect_same(1, TXPoincareStep(tx, &u, v));
    expect_same(auto_cut(t, e), TXAutoCut(tx, u, w));

    expect_same(lyap_calc(&t, y, 1e-5, 0.25, van_der_pol, 3, 8, e, 2),
                TXLyapCalc(tx, &u, v, 1e-5, 0.25, 3, 8, w, 2));
    expect_same(lyap_calc_file(file.name(), &t, y, 1e-5, 0.25, 3, 8, van_der_pol, e, 2, 4),
                TXLyapCalcFile(tx, own_file.name(), &u, v, 1e-5, 0.25, 3, 8, w, 2, 4));
    EXPECT_NE(file.text(), "");
    expect_same(ftablef(file.name(), "369", &t, t + 2, 5, y, van_der_pol),
                TXftablef(tx, own_file.name(), "369", &u, u + 2, 5, v));
    FILE *const stream = std::fopen(file.name(), "a"), *const own_stream =
                                                           std::fopen(own_file.name(), "a");
    tx->fcn = oscillator;
    const int written = ftablea(stream, "963", &t, t + 2, 5, y, oscillator);
    const int own_written = TXftablea(tx, own_stream, "963", &u, u + 2, 5, v);
    std::fclose(stream), std::fclose(own_stream);
    expect_same(written, own_written);
    const int sampled = ftableg(&t, t + 2, 5, y, oscillator, take);
    expect_same(sampled, TXftableg(tx, &u, u + 2, 5, v, take));
    EXPECT_EQ(samples.size(), 12U);

    // Zero is refused, unlike by the setters of a handle, but as width of a section it is taken as
    // it is, and no bisection meets it. The code is read without clearing it.
    const auto ended = ExitedWithCode(1);
    for (const double bad : {0.0, -1.0, not_a_number}) {
        EXPECT_EXIT(set_tol(bad), ended, "'set_tol': Tolerance not positive");
        EXPECT_EXIT(set_abs_tol(bad), ended, "'set_abs_tol': Tolerance not positive");
        EXPECT_EXIT(set_max_step(bad), ended, "'set_max_step': Max time step not positive");
    }
    const auto reach_section = [&](double eps) {
        while (poincare_step(&t, y, van_der_pol, first_component, eps) == 0) {
        }
    };
    EXPECT_EXIT(reach_section(0), ended, "'TXPoincareStep': Unable to bracket");
    EXPECT_EQ(set_max_poincare_steps(1), 1);
    EXPECT_EXIT(reach_section(1e-8), ended, "'TXPoincareStep': Unable to bracket");
    EXPECT_EQ(set_max_poincare_steps(-1), 0);
    for (const int code : {1, 1}) EXPECT_EQ(errorTrajex(), code);
    EXPECT_EQ(order(), 2);
    EXPECT_EQ(errorTrajex(), 0);
    EXPECT_EQ(closeTrajex(), 1);
}

}  // namespace
