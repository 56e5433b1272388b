// What is refused, in one table: a call that is refused leaves everything as it was and a code,
// or ends the process under the policy to do so; without a handle every operation ends it. All
// under the name of the operation.
#include "operations.hpp"
#include "support.hpp"

namespace {

constexpr auto circles = Circles::flow;
void ignored_jacobian(double, double*, double**) {}
void no_sample(double, double*) {}
double stranger = 0.5;
double exponents[2] = {7, 7};
FILE* const no_file = nullptr;
double *const c1 = &Circles::c1, *const c2 = &Circles::c2;
constexpr int huge = std::numeric_limits<int>::max();

/// The arguments of a call that is to be refused: a handle or none, a value, variables.
struct Call {
    Trajex* tx;
    double x;
    double *t, *y, *T, *dc, **Phi;

    TrajexBif* bif() const { return tx != nullptr ? tx->txb : nullptr; }
    int hyperplane() const { return TXSetAutoCut(tx, 0, std::array{x, 0.0}.data()); }
    int curve(int (*run)(Trajex*, double*, double*, double*, int, ...), double* first,
              double* second) const {
        return run(tx, first, second, dc, 0);
    }
    int curve_without_section() const {
        if (tx != nullptr) tx->cut = nullptr;
        return curve(TXAuto2DCont, c1, c2);
    }
    int lyapunov(double eps, double interval, long transient, long counted, int count = 2,
                 const char* file = nullptr) const {
        return TXLyapCalcFile(tx, file, t, y, eps, interval, transient, counted, exponents, count,
                              1);
    }
};

struct Refusal {
    const char* name;
    int code;
    int (*call)(const Call& c);
    std::vector<double> values = {0};  // of x, one after the other
    double period = -1;                // of a record's orbit; negative for no record
};

const std::vector<double> not_positive{0, -1, not_a_number}, negative{-1, not_a_number};
const std::vector<double> no_time{-1, infinity, not_a_number}, no_length{infinity, not_a_number};
const std::vector<double> no_number{0, infinity, not_a_number}, no_count{0, 3}, no_limit{0, -1};
const std::vector<double> no_period{0, -1, infinity, 1e-300, not_a_number}, once{0};
constexpr const char* const no_name = nullptr;

// On a handle with a sub-record and a cut function.
const Refusal refusals[] = {
    {"TXSetMaxStep", 11, [](auto& c) { return TXSetMaxStep(c.tx, c.x); }, not_positive},
    {"TXSetRelTol", 5, [](auto& c) { return TXSetRelTol(c.tx, c.x); }, negative},
    {"TXSetAbsTol", 5, [](auto& c) { return TXSetAbsTol(c.tx, c.x); }, negative},
    {"TXSetNewtTol", 17, [](auto& c) { return TXSetNewtTol(c.tx, c.x); }, not_positive},
    {"TXSetCut", 16, [](auto& c) { return TXSetCut(c.tx, nullptr, c.x); }, not_positive},
    {"TXIntegrate", 7, [](auto& c) { return TXIntegrate(c.tx, c.t, c.x, c.y); }, no_time},
    {"TXInterpolate", 12, [](auto& c) { return TXInterpolate(c.tx, 0, c.y); }},
    {"TXSetAutoCut", 10, [](auto& c) { return c.hyperplane(); }, no_length},
    {"TXCutSurface", 8, [](auto& c) { return TXCutSurface(c.tx, c.y, c.y); }},
    {"TXAutoCut", 8, [](auto& c) { return int(TXAutoCut(c.tx, 0, c.y)); }},
    {"TXftablef", 25, [](auto& c) { return TXftablef(c.tx, no_name, "1", c.t, 1, 4, c.y); }},
    {"TXftablef", 25,
     [](auto& c) { return TXftablef(c.tx, impossible_file, "1", c.t, 1, 4, c.y); }},
    {"TXftablea", 25, [](auto& c) { return TXftablea(c.tx, no_file, "1", c.t, 1, 4, c.y); }},
    {"TXLyapCalcFile", 26, [](auto& c) { return c.lyapunov(1, 0.5, 0, 5, int(c.x)); }, no_count},
    {"TXLyapCalcFile", 23, [](auto& c) { return c.lyapunov(c.x, 0.5, 0, 5); }, no_number},
    {"TXLyapCalcFile", 7, [](auto& c) { return c.lyapunov(1, c.x, 0, 5); }, no_time},
    {"TXLyapCalcFile", 24, [](auto& c) { return c.lyapunov(1, 1, long(c.x), -1 - long(c.x)); },
     no_limit},
    {"TXLyapCalcFile", 25, [](auto& c) { return c.lyapunov(1, 0.5, 0, 5); }},
    {"TXLyapCalcFile", 25, [](auto& c) { return c.lyapunov(1, 0.5, 0, 5, 2, impossible_file); }},
    {"TXVarIntegrate", 7, [](auto& c) { return TXVarIntegrate(c.tx, c.t, c.x, c.y, c.Phi); },
     no_time},
    {"TXNonAutoOrbit", 7, [](auto& c) { return TXNonAutoOrbit(c.tx, 1, c.y, c.Phi, c.x); },
     no_period},
    {"TXLocateEquiBif", 28, [](auto& c) { return TXLocateEquiBif(c.tx, c.bif(), c1, no_file); }},
    {"TXCheckEquiBif", 28, [](auto& c) { return TXCheckEquiBif(c.tx, c.bif(), c1, 0.1, no_file); }},
    {"TXLocateBif", 28, [](auto& c) { return TXLocateBif(c.tx, c.bif(), c1, 0, no_file); }},
    {"TXCheckBif", 28, [](auto& c) { return TXCheckBif(c.tx, c.bif(), c1, 0.1, 0, no_file); }},
    {"TXEquiCont", 26, [](auto& c) { return TXEquiCont(c.tx, c.y, &stranger, c.dc, 0, 0); }},
    {"TXNonAutoCont", 26,
     [](auto& c) { return TXNonAutoCont(c.tx, 0, c.y, 5, &stranger, c.dc, 0, 0); }},
    {"TXAutoCont", 26,
     [](auto& c) { return TXAutoCont(c.tx, 0, c.y, 1, c.T, &stranger, c.dc, 0, 0); }},
    {"TXEqui2DCont", 28, [](auto& c) { return c.curve(TXEqui2DCont, c1, c2); }},
    {"TXAuto2DCont", 28, [](auto& c) { return c.curve(TXAuto2DCont, c1, c2); }},
    {"TXNonAuto2DCont", 28, [](auto& c) { return c.curve(TXNonAuto2DCont, c1, c2); }},
    {"TXEqui2DCont", 26, [](auto& c) { return c.curve(TXEqui2DCont, c1, c1); }, once, 0},
    {"TXEqui2DCont", 26, [](auto& c) { return c.curve(TXEqui2DCont, c1, &stranger); }, once, 0},
    {"TXEqui2DCont", 26, [](auto& c) { return c.curve(TXEqui2DCont, &stranger, c2); }, once, 0},
    {"TXAuto2DCont", 8, [](auto& c) { return c.curve_without_section(); }, once, 1},
};

Call arguments(Bench& b, double x) {
    return {b.tx.get(), x, &b.t, b.y, &b.T, &b.dc, b.Phi};
}

/// A pattern for the report: parentheses mean nothing.
std::string pattern(const std::string& name, std::string message) {
    std::replace(message.begin(), message.end(), '(', '.');
    std::replace(message.begin(), message.end(), ')', '.');
    return "'" + name + "': " + message;
}

TEST(RefusalDeathTest, ChangesNothingAndTellsWhy) {
    for (const auto& [name, code, call, values, period] : refusals) {
        for (const double bad : values) {
            SCOPED_TRACE(testing::Message() << name << ", code " << code << ", " << bad);
            Bench bench(true);
            if (period >= 0) bench.describe(1, 0, period, 3);
            std::vector<double> before = bench.outcome(0);
            const Trajex settings = *bench.tx;
            EXPECT_EQ(call(arguments(bench, bad)), 0);
            EXPECT_EQ(std::exchange(bench.tx->ErrorCode, 0), code);
            std::vector<double> after = bench.outcome(0);
            after.resize(before.size());  // a run has made itself a record
            EXPECT_EQ(after, before);
            EXPECT_EQ(bench.tx->hmax + bench.tx->RelTol + bench.tx->CutEps + bench.tx->NewtRelTol,
                      settings.hmax + settings.RelTol + settings.CutEps + settings.NewtRelTol);
            bench.tx->TerminateOnFatalError = 1;
            EXPECT_EXIT(call(arguments(bench, bad)), ExitedWithCode(1),
                        pattern(name, TrajexFatalError[code]));
        }
        Bench bench(true);
        EXPECT_EXIT(call({nullptr, 0, &bench.t, bench.y, &bench.T, &bench.dc, bench.Phi}),
                    ExitedWithCode(1), pattern(name, "Trajex not opened\n$"));
    }
}

// The other operations end the process without a handle, or without a sub-record. Those of a
// single instance do where it is not open.
TEST(RefusalDeathTest, WithoutAHandleEveryOperationEndsTheProcess) {
    Bench own(true);
    TXVarCloseTrajex(own.tx.get());
    static double *y, *t, **Phi;
    y = own.y, t = &own.t, Phi = own.Phi;
    const std::pair<const char*, void (*)(Trajex*)> calls[] = {
        {"TXNumJac", [](auto tx) { TXNumJac(tx, 0, y, Phi); }},
        {"TXEquiPoint", [](auto tx) { TXEquiPoint(tx, y); }},
        {"TXAutoOrbit", [](auto tx) { TXAutoOrbit(tx, 0, y, Phi, 1, t); }},
        {"TXNonAutoOrbit", [](auto tx) { TXNonAutoOrbit(tx, 0, y, Phi, 1); }},
        {"TXCloseTrajex", [](auto) { TXCloseTrajex(nullptr); }},
        {"TXOrder", [](auto) { TXOrder(nullptr); }},
        {"TXSetMaxPoincareSteps", [](auto) { TXSetMaxPoincareSteps(nullptr, 1); }},
        {"TXSetMaxPeriodSteps", [](auto) { TXSetMaxPeriodSteps(nullptr, 1); }},
        {"TXSetMaxNewtSteps", [](auto) { TXSetMaxNewtSteps(nullptr, 1); }},
        {"TXErrorTrajex", [](auto) { TXErrorTrajex(nullptr); }},
        {"TXStrError", [](auto) { TXStrErrorTrajex(nullptr); }},
        {"TXVarOpenTrajex", [](auto) { TXVarOpenTrajex(nullptr, ignored_jacobian, 0); }},
        {"TXEigen", [](auto) { TXEigen(nullptr, 2, Phi, y, y); }},
        {"TXLinZero", [](auto) { TXLinZero(nullptr, 2, Phi, y, y); }},
        {"closeTrajex", [](auto) { closeTrajex(); }},
        {"errorTrajex", [](auto) { errorTrajex(); }},
        {"order", [](auto) { order(); }},
        {"step", [](auto) { step(t, y, circles); }},
        {"integrate", [](auto) { integrate(t, 1, y, circles); }},
        {"interpolate", [](auto) { interpolate(0, y, circles); }},
        {"set_tol", [](auto) { set_tol(1e-3); }},
        {"set_max_step", [](auto) { set_max_step(1); }},
        {"set_abs_tol", [](auto) { set_abs_tol(1e-3); }},
        {"poincare_step", [](auto) { poincare_step(t, y, circles, first_component, 1e-6); }},
        {"set_max_poincare_steps", [](auto) { set_max_poincare_steps(5); }},
        {"cut_surface", [](auto) { cut_surface(y, y); }},
        {"auto_cut", [](auto) { auto_cut(0, y); }},
        {"set_auto_cut", [](auto) { set_auto_cut(0, y, circles); }},
        {"lyap_calc", [](auto) { lyap_calc(t, y, 1e-3, 1, circles, 0, 1, exponents, 2); }},
        {"lyap_calc_file",
         [](auto) { lyap_calc_file("", t, y, 1e-3, 1, 0, 1, circles, exponents, 2, 1); }},
        {"ftablef", [](auto) { ftablef("", "111", t, 1, 2, y, circles); }},
        {"ftableg", [](auto) { ftableg(t, 1, 2, y, circles, no_sample); }},
        {"ftablea", [](auto) { ftablea(stdout, "111", t, 1, 2, y, circles); }},
    };
    ASSERT_EQ(openTrajex(3, 1e-6, 0.01), 1);
    ASSERT_EQ(closeTrajex(), 1);
    for (const auto& [name, call] : calls) {
        EXPECT_EXIT(call(nullptr), ExitedWithCode(1), pattern(name, "Trajex not opened\n$"));
        EXPECT_EXIT(call(own.tx.get()), ExitedWithCode(1), pattern(name, "Trajex not opened"));
    }
}

// Opening always ends the process; a negative limit and an error code never do.
TEST(RefusalDeathTest, ByOpeningAndByLimits) {
    struct {
        int order;
        double RelTol, h;
        int code;
    } const openings[] = {{0, 1e-6, 0.01, 4},         {-1, -1, -1, 4}, {1, -1e-6, 0, 5},
                          {1, not_a_number, 0.01, 5}, {1, 1e-6, 0, 7}, {1, 1e-6, not_a_number, 7}};
    for (const auto& [order, RelTol, h, code] : openings) {
        EXPECT_EXIT(TXOpenTrajex(circles, order, RelTol, h), ExitedWithCode(1),
                    pattern("TXOpenTrajex", TrajexFatalError[code]));
    }
    const std::pair<int (*)(Trajex*, int), int Trajex::*> limits[] = {
        {TXSetMaxPoincareSteps, &Trajex::MaxPoincareSteps},
        {TXSetMaxPeriodSteps, &Trajex::MaxPeriodSteps},
        {TXSetMaxNewtSteps, &Trajex::MaxNewtSteps}};
    const OpenHandle tx = open_terminating(circles, 2);
    for (const auto& [set, field] : limits) {
        for (const int value : {12, -1, 0}) {
            EXPECT_EQ(set(tx.get(), value), value >= 0);
            EXPECT_EQ(tx->ErrorCode, value < 0);
            EXPECT_EQ((*tx).*field, value < 0 ? 12 : value);
        }
    }
}

// Which arguments of the opening of a sub-record are bad, and that the handle can be opened again.
TEST(Refusal, OfASubRecord) {
    const auto expect_refused = [](int code, int order, jac_t jac, auto... arguments) {
        const OpenHandle tx = open_recording(circles, order, 1e-6);
        EXPECT_EQ(TXVarOpenTrajex(tx.get(), jac, arguments...), 0);
        EXPECT_EQ(tx->ErrorCode, code);
        EXPECT_EQ(tx->TX == nullptr, code != 26);
        EXPECT_DOUBLE_EQ(tx->JacPert, 1e-3);
        EXPECT_EQ(tx->nparam, code == 26 ? 3 : 0);  // those before the null address
        EXPECT_TRUE(order > 2 || TXVarOpenTrajex(tx.get(), ignored_jacobian, 0) == 1);
    };
    double *const a = &Circles::c1, *const none = nullptr;
    for (const double eps : not_positive) {
        expect_refused(23, 2, nullptr, eps, 0);
        expect_refused(23, 2, ignored_jacobian, 1, jac_t{}, eps, a);
    }
    expect_refused(24, 2, ignored_jacobian, -1);
    expect_refused(26, 2, ignored_jacobian, 4, ignored_jacobian, a, a, a, none);
    expect_refused(15, 2, ignored_jacobian, huge, ignored_jacobian);  // beyond an int
    expect_refused(15, 46341, ignored_jacobian, 0);
    const double steppable[][2] = {
        {-1e-9, 0.1}, {not_a_number, 0.1}, {1e-9, 0}, {1e-9, -0.1}, {1e-9, not_a_number}};
    for (const auto& [RelTol, h] : steppable) {  // no step could be made on it
        const OpenHandle tx = open_recording(circles, 2);
        tx->RelTol = RelTol, tx->h = h;
        EXPECT_EQ(TXVarOpenTrajex(tx.get(), ignored_jacobian, 0), 0);
        EXPECT_TRUE(tx->ErrorCode == 15 && tx->TX == nullptr);
    }
}

}  // namespace
