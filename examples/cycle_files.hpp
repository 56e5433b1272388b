// Branches of equilibria and cycles for gnuplot: branches.csv has a block per branch with the
// columns parameter, minimum and maximum of one variable, period, stable, cycle, doubled; two empty
// lines between them. points.csv has a line per special point. Prints the table.
#pragma once

#include <cstdio>
#include <string>
#include <tx.hpp>

#include "output.hpp"

inline void write_cycles(const tx::Diagram& diagram, const std::string& parameter,
                         const std::string& variable, const OutputDirectory& directory) {
    std::fputs(diagram.text().c_str(), stdout);
    diagram.save(directory.path("diagram.json"));
    const File branches = directory.create("branches.csv");
    const File points = directory.create("points.csv");
    for (const tx::Branch& branch : diagram.branches()) {
        const bool cycle = branch.kind().find("cycles") != std::string::npos;
        const auto p = branch.column(parameter), stable = branch.column("stable");
        const auto least = branch.column(cycle ? "min " + variable : variable);
        const auto most = branch.column(cycle ? "max " + variable : variable);
        std::fprintf(branches.get(), "%s,min,max,period,stable,cycle\n", parameter.c_str());
        for (std::size_t k = 0; k < branch.size(); ++k) {
            std::fprintf(branches.get(), "%.12g,%.12g,%.12g,%.12g,%g,%d\n", p[k], least[k], most[k],
                         branch.point(k).period(), stable[k], cycle ? 1 : 0);
        }
        std::fputs("\n\n", branches.get());
    }
    for (const tx::Special& special : diagram.specials()) {
        const tx::Point point = special.point();
        const bool cycle = special.period() > 0;
        const std::string& name = variable;
        std::fprintf(points.get(), "%s,%s,%.12g,%.12g,%.12g\n", special.id().c_str(),
                     special.type().c_str(), special.parameter(parameter),
                     cycle ? 0.0 : special[name], special.period());
    }
}
