// A file that appears whole or not at all.
#pragma once

#include <cstdio>
#include <span>
#include <string>

/// Written beside its place and moved there at the end; what is not moved is removed, also when the
/// tool is interrupted. One at a time. What fails leaves its reason in errno.
class OutputFile
{
public:
    explicit OutputFile(const char *path);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    explicit operator bool() const { return stream_ != nullptr; }
    /// Where the file is until it is moved.
    [[nodiscard]] const char *scratch_path() const { return scratch_.c_str(); }

    bool Write(std::span<const char> bytes);
    /// Ends the writing, everything on the disk.
    bool Finish();
    bool MoveToPlace();

private:
    std::string path_;
    std::string scratch_;
    std::FILE *stream_ = nullptr;
};
