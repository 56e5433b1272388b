// A program in C++20 that sees the installed headers only: x' = c x - x^3 has a pitchfork at c = 0,
// whose branches are x^2 = c. Its exit status tells what went wrong.
#include <tx.hpp>

#include <cmath>
#include <cstdio>

int main() {
    const tx::System pitchfork{{"x"}, {{"c", -1.0}}, [](auto, auto& x, auto& c, auto& dx) {
                                   dx[0] = c[0] * x[0] - x[0] * x[0] * x[0];
                               }};
    const tx::Diagram diagram = pitchfork.diagram("c", {-1, 1}, {.start = {0}});
    std::fputs(diagram.text().c_str(), stdout);
    if (std::abs(diagram["BP1"].parameter("c")) > 1e-9) return 1;
    const std::span<const double> c = diagram.branches().back().column("c");
    const std::span<const double> x = diagram.branches().back().column("x");
    for (std::size_t i = 0; i < c.size(); ++i) {
        if (std::abs(x[i] * x[i] - c[i]) > 1e-9) return 2;
    }
    try {
        static_cast<void>(diagram["BP7"]);
    } catch (const tx::Error&) {  // thrown inside the library, caught here
        return 0;
    }
    return 3;
}
