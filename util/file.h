// A stdio stream that closes itself.
#pragma once

#include <cstdio>
#include <span>
#include <utility>

class File
{
public:
    /// Opens `path`; test the result with operator bool.
    File(const char *path, const char *mode) : stream_(std::fopen(path, mode)) {}
    ~File() { Close(); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    explicit operator bool() const { return stream_ != nullptr; }
    [[nodiscard]] std::FILE *get() const { return stream_; }

    /// Reads up to the end of the line, that included, or as much of it as fits; terminates it. As
    /// fgets, but a NUL byte in the file is a byte like others. `line` must not be empty.
    ///
    /// @return the bytes read; 0 at the end of the file and after an error
    size_t ReadLine(std::span<char> line);

    /// Reads the next line that fits whole and has no NUL byte, its end included, and skips all
    /// others: what is left of such a line could pass for another one.
    ///
    /// @return the bytes read; 0 at the end of the file and after an error
    size_t ReadWholeLine(std::span<char> line);

    /// Flushes and closes now, for a writer that must know. Returns false when either failed.
    bool Close()
    {
        std::FILE *stream = std::exchange(stream_, nullptr);
        return stream == nullptr || std::fclose(stream) == 0;
    }

private:
    std::FILE *stream_;
};
