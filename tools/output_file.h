// A file that appears whole or not at all.
#pragma once

#include <array>
#include <csignal>
#include <cstdio>
#include <span>
#include <string>

/// Written beside its place and moved there at the end. What is not moved is removed, also when the
/// tool is interrupted. At most three at a time. Each function that fails prints why.
class OutputFile
{
public:
    /// Refuses a place that holds anything but a plain file: a rename would put one there.
    explicit OutputFile(std::string path);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    explicit operator bool() const { return stream_ != nullptr; }
    [[nodiscard]] const char *path() const { return path_.c_str(); }
    /// Where the file is until it is moved.
    [[nodiscard]] const char *scratch_path() const { return scratch_.c_str(); }

    bool Write(std::span<const char> bytes);
    /// Ends the writing, everything on the disk.
    bool Finish();
    bool MoveToPlace();

    /// A path that an ending signal must remove; empty when none.
    using Unfinished = std::array<char, 4096>;

private:
    bool Fail() const; ///< prints errno's text

    std::string path_;
    std::string scratch_;
    Unfinished *unfinished_ = nullptr;
    std::FILE *stream_ = nullptr;
};

/// While it lives, the signals that end the tool wait: what must happen together does.
class HeldSignals
{
public:
    HeldSignals();
    ~HeldSignals();
    HeldSignals(const HeldSignals &) = delete;
    HeldSignals &operator=(const HeldSignals &) = delete;

private:
    sigset_t previous_{};
};
