// A file that is complete or does not appear at all.
#pragma once

#include <array>
#include <csignal>
#include <cstdio>
#include <span>
#include <string>

/// A temporary file that is renamed at the end. Without the rename it is removed, also if the tool
/// is interrupted. At most three at a time. Each function that fails prints the reason.
class OutputFile
{
public:
    /// Refuses a path that is not a plain file, because the rename would replace it.
    explicit OutputFile(std::string path);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    explicit operator bool() const { return stream_ != nullptr; }
    [[nodiscard]] const char *path() const { return path_.c_str(); }
    /// The path of the file until the rename.
    [[nodiscard]] const char *scratch_path() const { return scratch_.c_str(); }

    bool Write(std::span<const char> bytes);
    /// Ends the writing and flushes everything to the disk.
    bool Finish();
    bool MoveToPlace();

    /// A path that a signal must remove; empty if there is none.
    using Unfinished = std::array<char, 4096>;

private:
    bool Fail() const; ///< prints errno's text

    std::string path_;
    std::string scratch_;
    Unfinished *unfinished_ = nullptr;
    std::FILE *stream_ = nullptr;
};

/// While it exists, the signals that end the tool wait. Steps in between cannot be separated.
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
