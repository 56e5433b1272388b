// What every example needs beside the library: files in the directory that it is given, and handles
// that close themselves.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "tx.h"

/// What was written may be lost as late as here: the program then says so and fails.
struct CloseFile {
    void operator()(FILE* file) const {
        const bool incomplete = std::ferror(file) != 0;
        if (std::fclose(file) == 0 && !incomplete) return;
        std::perror("Incomplete output");
        std::exit(1);
    }
};
using File = std::unique_ptr<FILE, CloseFile>;

struct CloseHandle {
    void operator()(Trajex* tx) const { TXCloseTrajex(tx); }
};
using Handle = std::unique_ptr<Trajex, CloseHandle>;

/// The directory named by the first argument of the program, or the current one.
class OutputDirectory {
  public:
    OutputDirectory(int argc, char** argv) : name_(argc > 1 ? argv[1] : ".") {}

    std::string path(const std::string& file) const { return name_ + "/" + file; }

    /// Creates a file there; the program ends where that is not possible.
    File create(const std::string& file) const {
        File created(std::fopen(path(file).c_str(), "w"));
        if (created == nullptr) {
            std::perror(path(file).c_str());
            std::exit(1);
        }
        return created;
    }

  private:
    std::string name_;
};
