// A diagram as files: diagram.json, and for gnuplot branches.csv (the branches one after another,
// two empty lines between them) and points.csv (label, type, subtype, parameters, state of every
// special point). Prints the table.
#pragma once

#include <cstdio>
#include <tx.hpp>

#include "output.hpp"

inline void write_values(std::FILE* file, const std::vector<double>& values) {
    for (const double value : values) std::fprintf(file, ",%.15g", value);
}

inline void write_files(const tx::Diagram& diagram, const tx::System& system,
                        const OutputDirectory& directory, const std::string& name = "") {
    std::fputs(diagram.text().c_str(), stdout);
    diagram.save(directory.path(name + "diagram.json"));
    const File branches = directory.create(name + "branches.csv");
    for (const tx::Branch& branch : diagram.branches()) {
        std::fprintf(branches.get(), "%s\n\n", branch.csv().c_str());
    }
    const File points = directory.create(name + "points.csv");
    for (const tx::Special& special : diagram.specials()) {
        std::fprintf(points.get(), "%s,%s,%s", special.id().c_str(), special.type().c_str(),
                     special.subtype().c_str());
        std::vector<double> parameters;
        for (const std::string& parameter : system.parameters()) {
            parameters.push_back(special.parameter(parameter));
        }
        write_values(points.get(), parameters);
        write_values(points.get(), special.state());
        std::fputc('\n', points.get());
    }
}
