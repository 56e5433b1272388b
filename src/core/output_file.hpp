// A file that the library opens itself: closed on every way out, and checked, since an application
// cannot look at a stream it never sees.
#pragma once

#include <cstdio>

namespace trajex {

class [[nodiscard]] OutputFile {
  public:
    OutputFile(const char* name, const char* mode)
        : stream_(name != nullptr ? std::fopen(name, mode) : nullptr) {}
    ~OutputFile() { close(); }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Whether the file could be opened.
    explicit operator bool() const { return stream_ != nullptr; }

    std::FILE* stream() const { return stream_; }

    /// Closes the file. Returns false when something that was written to it did not get there: a
    /// full disk often shows here only.
    bool close() {
        if (stream_ == nullptr) return true;
        const bool sound = std::ferror(stream_) == 0;
        const bool closed = std::fclose(stream_) == 0;
        stream_ = nullptr;
        return sound && closed;
    }

  private:
    std::FILE* stream_;
};

}  // namespace trajex
