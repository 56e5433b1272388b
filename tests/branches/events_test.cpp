// What lies between two points of a branch of cycles, from marks alone.
#include "branches/events.hpp"

#include <gtest/gtest.h>

#include <numbers>
#include <string>

namespace trajex {
namespace {

constexpr EventNames of_cycles{
    .fold = "LPC", .branch = "BPC", .real = "", .flip = "PD", .pair = "NS"};

/// Signs of dp/ds and of the determinant, unstable exponents of each kind, distance from crossing.
Marks marks(int sigma, int beta, int real, int flip, int pairs, double reach, bool seen = true) {
    return {.sigma = sigma,
            .beta = beta,
            .unstable = real + flip + 2 * pairs,
            .real = real,
            .flip = flip,
            .reach = reach,
            .exponents = 4,
            .real_nearest = flip == 0,
            .nearest_counted = real > 0,
            .seen = seen};
}

std::string text(const Decoded& what) {
    std::string result;
    const auto add = [&result](bool there, const char* name) { result += there ? name : ""; };
    add(what.fold, "LPC ");
    add(what.branch || what.curved, "BPC ");
    add(what.flip != 0, "PD ");
    add(what.pairs != 0, "NS ");
    add(!what.consistent, "?");
    return result;
}

TEST(Events, OfCyclesFromMarks) {
    const struct {
        const char* what;
        Marks a, b;
        const char* expected;
    } cases[] = {
        {"fold", marks(1, 1, 0, 0, 0, 0.1), marks(-1, 1, 1, 0, 0, 0.1), "LPC "},
        {"trunk of a pitchfork", marks(1, 1, 0, 0, 0, 0.1), marks(1, -1, 1, 0, 0, 0.1), "BPC "},
        {"curved side of a pitchfork", marks(1, 1, 0, 0, 0, 0.1), marks(-1, -1, 0, 0, 0, 0.1),
         "BPC "},
        {"doubling", marks(1, 1, 0, 0, 0, 0.1), marks(1, 1, 0, 1, 0, 0.1), "PD "},
        {"torus", marks(1, 1, 0, 0, 0, 1), marks(1, 1, 0, 0, 1, 1), "NS "},
        {"a turn that no exponent knows of", marks(1, 1, 0, 0, 0, 1), marks(-1, 1, 0, 0, 0, 1),
         "LPC ?"},
        {"an unknown sign of a multiplier of 1e17", marks(1, 1, 1, 0, 0, 39),
         marks(1, 1, 0, 1, 0, 39), ""},
        {"a multiplier of 1e9 that becomes -1e9 in a turn", marks(1, 1, 1, 0, 0, 20),
         marks(-1, 1, 0, 1, 0, 20), "LPC PD "},
        {"a multiplier of 1e280 that does so", marks(1, 1, 1, 0, 0, 645),
         marks(-1, 1, 0, 1, 0, 645), ""},
        {"a multiplier of 1 within its error", marks(1, 1, 0, 0, 0, 0.1),
         marks(1, 1, 1, 0, 0, 1e-11), ""},
        {"the same, on the other side", marks(1, -1, 1, 0, 0, 0.1), marks(1, -1, 0, 0, 0, 1e-11),
         ""},
        {"a turn that is noise", marks(1, 1, 0, 0, 0, 0.1), marks(-1, 1, 0, 0, 0, 0.1, false), ""},
        {"a determinant of a poor mesh", marks(1, 1, 0, 0, 0, 40), marks(1, -1, 0, 0, 0, 40, false),
         ""},
        {"a fold that only multipliers show", marks(1, 1, 0, 0, 0, 0.1),
         marks(1, 1, 1, 0, 0, 0.1, false), "LPC "},
    };
    for (const auto& c : cases) {
        Marks b = c.b;
        reconcile(b, invariant(c.a));
        EXPECT_EQ(text(decode(c.a, b, {}, {}, of_cycles)), c.expected) << c.what;
    }
}

TEST(Events, KeepSignsOfMultipliersThatCannotHaveChanged) {
    const auto spectrum = [](double first, bool negative, double second) {
        Spectrum result(2);
        result[0].value = {first, negative ? std::numbers::pi : 0};
        result[0].kind = negative ? Exponent::Kind::alternating : Exponent::Kind::real;
        result[1].value = second;
        return result;
    };
    const struct {
        const char* what;
        Spectrum known, found;
        int sign;
        bool kept;
    } cases[] = {
        {"on a canard", spectrum(649, false, -1e4), spectrum(655, true, -1e4), -1, true},
        {"where it ends", spectrum(15, false, -1e4), spectrum(-2, true, -1e4), 1, true},
        {"through 0", spectrum(2, false, -1e4), spectrum(2, true, -1e4), 1, false},
        {"to 0", spectrum(15, false, -1e4), spectrum(-6, true, -1e4), 1, false},
        {"through a pair", spectrum(15, false, 10), spectrum(15, true, 10), 1, false},
    };
    for (const auto& c : cases) {
        Spectrum found = c.found;
        EXPECT_EQ(keep_kinds(c.known, 10, found), c.sign) << c.what;
        EXPECT_EQ(found[0].kind == c.known[0].kind, c.kept) << c.what;
    }
}

}  // namespace
}  // namespace trajex
