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

    /// Reads a line with its end, or as much as fits, and terminates it. Like fgets, but a NUL byte
    /// in the file is an ordinary byte. `line` must not be empty.
    ///
    /// @return the bytes read; 0 at the end of the file and after an error
    size_t ReadLine(std::span<char> line);

    /// Reads the next line that fits with its end and has no NUL byte. Skips all others, because a
    /// part of such a line could pass for another line.
    ///
    /// @return the bytes read; 0 at the end of the file and after an error
    size_t ReadWholeLine(std::span<char> line);

    /// Flushes and closes now, for a writer that must know the result. Returns false when
    /// either failed.
    bool Close()
    {
        std::FILE *stream = std::exchange(stream_, nullptr);
        return stream == nullptr || std::fclose(stream) == 0;
    }

private:
    std::FILE *stream_;
};
