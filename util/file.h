// A stdio stream that closes itself.
#pragma once

#include <cstdio>

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

    /// Flushes and closes now, for writers who must know. Returns false when either failed.
    bool Close()
    {
        std::FILE *stream = stream_;
        stream_ = nullptr;
        return stream == nullptr || std::fclose(stream) == 0;
    }

private:
    std::FILE *stream_;
};
