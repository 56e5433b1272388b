// Files for tests: a name of its own for each, removed at the end of the scope, or none at all.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace testing_support {

class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& suffix = "")
        : name_(testing::TempDir() + "tx_test_" + std::to_string(getpid()) + suffix) {}
    ~TemporaryFile() { std::filesystem::remove(name_); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const char* name() const { return name_.c_str(); }
    bool exists() const { return std::filesystem::exists(name_); }
    std::string text() const {
        std::ostringstream content;
        content << std::ifstream(name_).rdbuf();
        return content.str();
    }

  private:
    std::string name_;
};

/// A stream into memory.
class TextStream {
  public:
    TextStream() : stream_(open_memstream(&text_, &length_)) {}
    ~TextStream() {
        std::fclose(stream_);
        std::free(text_);
    }
    TextStream(const TextStream&) = delete;
    TextStream& operator=(const TextStream&) = delete;

    operator FILE*() const { return stream_; }
    std::string text() const {
        std::fflush(stream_);
        return {text_, length_};
    }

  private:
    char* text_ = nullptr;
    std::size_t length_ = 0;
    FILE* stream_;
};

/// A name that no file can be created under.
inline constexpr const char* impossible_file = "/no such directory/file";

/// The device on which every write fails for lack of space.
inline constexpr const char* full_device = "/dev/full";

}  // namespace testing_support
