// The text reports of continuation runs: the state of a point, the box of a bifurcation, and the
// path line for plotting, all from the handle's bifurcation record.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>

#include "bifurcation/criteria.hpp"
#include "bifurcation/record.hpp"

namespace trajex {

namespace {

constexpr const char* frame =
    "+-------------------------------------------------------------------+\n";
constexpr const char* empty_line =
    "|                                                                   |\n";

/// The parameters that both the handle and the record know.
std::size_t reported_parameters(const Trajex& tx) {
    return std::min(parameters_of(tx), private_part(*tx.txb).parameters);
}

char sign_of_imaginary(double value) {
    return value > 0 ? '+' : '-';
}

void rule(FILE* file, char mark) {
    for (int column = 0; column < 68; ++column) std::fputc(mark, file);
    std::fputc('\n', file);
}

void write_title(const TrajexBif& bif, FILE* file) {
    char title[64] = "Bifurcation";
    if (bif.biftype != not_determined) {
        std::snprintf(title, sizeof title, "%s%s", TrajexBifName[bif.biftype], bif.btype);
    }
    std::fprintf(file, "|                        %-42s |\n", title);
}

void write_eigenvalue_rows(const Trajex& tx, FILE* file) {
    const TrajexBif& bif = *tx.txb;
    const std::size_t n = order_of(tx);
    const std::size_t m = reported_parameters(tx);
    for (std::size_t i = 0; i < std::max(n, m); ++i) {
        if (i < m) {
            std::fprintf(file, "| %- 12.6g   ", *tx.c[i]);
        } else {
            std::fprintf(file, "|%16s", "");
        }
        if (i < n) {
            std::fprintf(file, "%- 12.6g    % 8f%ci%-8f   %-12.6g |\n", bif.y[i], bif.er[i],
                         sign_of_imaginary(bif.ei[i]), std::fabs(bif.ei[i]),
                         modulus(bif.er, bif.ei, i));
        } else {
            std::fprintf(file, "%51s|\n", "");
        }
    }
}

void write_four(FILE* file, double left, double right, double top, double bottom) {
    std::fprintf(file, "|      %- 12.6g   %- 12.6g   %- 12.6g   %- 12.6g    |\n", left, right, top,
                 bottom);
}

void write_directions(const TrajexBif& bif, std::size_t n, FILE* file) {
    std::fprintf(file, "|                Transversal    Tangent                             |\n");
    for (std::size_t i = 0; i < n; ++i) {
        std::fprintf(file, "|                %- 12.6g   ", bif.trans[i]);
        if (bif.biftype == saddle_node) {
            std::fprintf(file, "%35s |\n", "");
        } else {
            std::fprintf(file, "%- 36.6g|\n", bif.tang[i]);
        }
    }
    std::fputs(empty_line, file);
}

void write_test_solutions(const TrajexBif& bif, std::size_t n, FILE* file) {
    const auto mark = [&](int direction) { return bif.indir == direction ? '*' : ' '; };
    std::fprintf(file,
                 "|      Left %c         Right %c        Top %c          Bottom %c        |\n",
                 mark(3), mark(4), mark(1), mark(2));
    write_four(file, bif.cleft, bif.cright, bif.ctop, bif.cbot);
    std::fprintf(file, "|      ............   ............   ............   ............    |\n");
    for (std::size_t i = 0; i < n; ++i) {
        write_four(file, bif.left[i], bif.right[i], bif.top[i], bif.bot[i]);
    }
}

}  // namespace

}  // namespace trajex

using namespace trajex;

void TXStateOutput(Trajex* tx, FILE* file) {
    const TrajexBif& bif = *tx->txb;
    const std::size_t n = order_of(*tx);
    const std::size_t m = reported_parameters(*tx);
    const int kind = bif.cindi[0];
    if (kind > orbit_curve) {
        std::fprintf(file, "   Step: %-6d \n", bif.steps);
    } else {
        std::fprintf(file, "   Step: %-6d   T=%-12.8g \n", bif.steps, bif.T);
    }
    std::fprintf(file, "   Parameters     State           Eigenvalue             Modulus\n");
    for (std::size_t i = 0; i < std::max(n, m); ++i) {
        if (i < m) {
            std::fprintf(file, "   %- 12.8g   ", bif.c[i]);
        } else {
            std::fprintf(file, "%18s", "");
        }
        if (i < n) {
            std::fprintf(file, "%- 12.8g    % 8f%ci%-8f    %-12.6g", bif.y[i], bif.er[i],
                         sign_of_imaginary(bif.ei[i]), std::fabs(bif.ei[i]),
                         modulus(bif.er, bif.ei, i));
        }
        std::fputc('\n', file);
    }
    if (kind >= orbit_path && kind <= equilibrium_curve) rule(file, "-=.:"[kind - 1]);
}

void TXStateBifOutput(Trajex* tx, FILE* file) {
    const TrajexBif& bif = *tx->txb;
    const std::size_t n = order_of(*tx);
    std::fprintf(file, "\n%s", frame);
    write_title(bif, file);
    std::fputs(empty_line, file);
    if (bif.cindi[0] <= orbit_curve) {
        std::fprintf(file, "|                            T=%-36g |\n", bif.T);
    }
    std::fputs(empty_line, file);
    std::fprintf(file, "| Parameters     State           Eigenvalue            Modulus      |\n");
    write_eigenvalue_rows(*tx, file);
    std::fputs(empty_line, file);
    if (bif.biftype != not_determined) {
        write_directions(bif, n, file);
        write_test_solutions(bif, n, file);
    }
    std::fputs(frame, file);
}

void TXPathOutput(Trajex* tx, FILE* file) {
    const TrajexBif& bif = *tx->txb;
    const int kind = bif.cindi[0];
    std::fprintf(file, "%.10g ", bif.c[bif.cindi[1]]);
    if (kind == orbit_curve || kind == equilibrium_curve) {
        std::fprintf(file, "%.10g ", bif.c[bif.cindi[2]]);
    }
    for (std::size_t i = 0; i < order_of(*tx); ++i) std::fprintf(file, "%.10g ", bif.y[i]);
    std::fputc('\n', file);
}
