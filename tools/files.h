// The files that fwpack reads and writes. What fails throws a Failure.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "util/fd.h"

/// A plain file, or standard input under the name "-". The checks read a file twice, so standard
/// input, perhaps a pipe, goes into memory first.
class InputFile
{
public:
    explicit InputFile(const std::string &name);

    [[nodiscard]] const std::string &name() const { return name_; }  ///< for messages
    [[nodiscard]] const char *path() const { return path_.c_str(); } ///< for the board's checks
    [[nodiscard]] int64_t size() const { return size_; }

    /// Reads up to `size` bytes from `start` on. Returns their number.
    int64_t Read(void *bytes, size_t size, int64_t start) const;
    /// Reads `size` bytes and hands them over in pieces.
    void ForEachPiece(int64_t start, int64_t size,
                      const std::function<void(std::span<const uint8_t>)> &take) const;

private:
    std::string name_;
    Fd fd_;
    std::string path_;
    int64_t size_;
};

/// 64 hexadecimal digits. Null if fwpack was built without libcrypto.
[[gnu::weak]] std::string Sha256(const InputFile &file, int64_t start, int64_t size);

/// A file that is complete or does not appear at all. Until then it has no name, so whatever ends
/// fwpack leaves nothing. Where the file system has no such files, a signal leaves 'NAME.NUMBER'.
class OutputFile
{
public:
    /// Refuses what is not a plain file, an input, and without `replaces` a file that exists. Of a
    /// link, the file that it leads to is replaced.
    ///
    /// @param inputs  the names of the inputs; null for none
    OutputFile(const std::string &path, bool replaces, std::span<const char *const> inputs,
               bool makes_folder = false);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    [[nodiscard]] std::string path() const; ///< leads to the file while it has no name

    void Write(std::span<const uint8_t> bytes);
    void Copy(const InputFile &input, int64_t start, int64_t size);
    /// Writes all data to the disk and names the files. If that fails, the last of their
    /// destructors leaves none.
    static void Publish(std::span<OutputFile *const> files);

private:
    void TakeName();

    std::string name_;
    std::string target_;     ///< the file that a link leads to
    std::string scratch_;    ///< a temporary name
    std::string new_folder_; ///< to be made, or empty
    std::string leftover_;   ///< what the destructor removes, or empty
    int fd_ = -1;
    bool replaces_;
};
