// A file that appears whole or not at all.
#pragma once

#include <cstdio>
#include <string>

/// Written beside its place and moved there at the end; what is not moved is removed, also when the
/// tool is interrupted. One at a time.
class OutputFile
{
public:
    explicit OutputFile(const char *path);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    explicit operator bool() const { return stream_ != nullptr; }
    [[nodiscard]] std::FILE *get() const { return stream_; }
    [[nodiscard]] const std::string &scratch_path() const { return scratch_; }

    /// Ends the writing. Returns false, with errno set, when something was not written.
    bool Finish();
    /// Moves the finished file to its place. Returns false, with errno set, when it cannot.
    bool MoveToPlace();

private:
    std::string path_;
    std::string scratch_;
    std::FILE *stream_ = nullptr;
};
