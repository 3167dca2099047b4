#include "tools/files.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "flash/mtd.h"
#include "tools/text.h"

namespace
{

/// A path that leads to the file, also if it has no name.
std::string PathOf(int fd)
{
    return Text("/proc/self/fd/", fd);
}

/// Copies standard input into memory. Returns the copy, or -1 if that fails.
int CopyStandardInput()
{
    const int copy = memfd_create("standard input", MFD_CLOEXEC);
    std::array<uint8_t, 65536> piece;
    ssize_t count = copy < 0 ? -1 : 1;
    while (count > 0) {
        count = read(STDIN_FILENO, piece.data(), piece.size());
        count = count > 0 ? full_write(copy, piece.data(), count) : count;
    }
    return count == 0 ? copy : -1;
}

/// The file that an output with this name makes or replaces.
std::string FindTarget(const std::string &name, bool replaces, std::span<const char *const> inputs)
{
    std::error_code error; // what fails here fails with a message when the output is opened
    FailIf(name == "-", "-: only 'extract --region' writes to standard output");
    if (!std::filesystem::exists(name, error)) {
        FailIf(std::filesystem::is_symlink(name, error), name, ": a link that leads nowhere");
        return name;
    }
    for (const char *input : inputs) {
        const std::string path = input == nullptr ? "" : input;
        FailIf(std::filesystem::equivalent(path == "-" ? "/dev/stdin" : path, name, error), name,
               ": the same file as the input ", path);
    }
    FailIf(!std::filesystem::is_regular_file(name, error), name,
           ": exists and is not a plain file");
    FailIf(!replaces, name, ": exists; --force replaces it");
    return std::filesystem::canonical(name, error);
}

} // namespace

InputFile::InputFile(const std::string &name)
    : name_(name == "-" ? "standard input" : name),
      // Opening a pipe would wait for a writer.
      fd_(name == "-" ? CopyStandardInput()
                      : open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)),
      path_(name == "-" ? PathOf(fd_.get()) : name)
{
    struct stat status = {};
    FailErrnoIf(!fd_ || fstat(fd_.get(), &status) != 0, name_);
    FailIf(!S_ISREG(status.st_mode), name_, ": ",
           S_ISDIR(status.st_mode) ? std::strerror(EISDIR) : "not a plain file");
    size_ = status.st_size;
}

int64_t InputFile::Read(void *bytes, size_t size, int64_t start) const
{
    const ssize_t count = pread(fd_.get(), bytes, size, start);
    FailErrnoIf(count < 0, name_);
    return count;
}

void InputFile::ForEachPiece(int64_t start, int64_t size,
                             const std::function<void(std::span<const uint8_t>)> &take) const
{
    std::array<uint8_t, 65536> piece;
    for (int64_t count = 0; size > 0; start += count, size -= count) {
        const auto wanted = static_cast<size_t>(std::min<int64_t>(size, piece.size()));
        count = Read(piece.data(), wanted, start);
        FailIf(count == 0, name_, ": changed while it was read");
        take(std::span{piece}.first(static_cast<size_t>(count)));
    }
}

OutputFile::OutputFile(const std::string &path, bool replaces, std::span<const char *const> inputs,
                       bool makes_folder)
    : name_(path), target_(FindTarget(path, replaces, inputs)), replaces_(replaces)
{
    const std::filesystem::path target{target_};
    std::filesystem::path folder = target.parent_path();
    std::error_code error;
    if (makes_folder && !std::filesystem::exists(folder, error)) {
        new_folder_ = folder;
        folder = folder.parent_path();
    }
    scratch_ = folder / Text(target.filename().string(), '.', getpid());
    fd_ = open((folder / ".").c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    if (fd_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR)) {
        fd_ = open(scratch_.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666);
        leftover_ = fd_ >= 0 ? scratch_ : "";
    }
    FailErrnoIf(fd_ < 0, name_);
}

OutputFile::~OutputFile()
{
    close(fd_);
    unlink(leftover_.c_str());
    rmdir(new_folder_.c_str()); // as long as it has files, this fails
}

std::string OutputFile::path() const
{
    return PathOf(fd_);
}

void OutputFile::Write(std::span<const uint8_t> bytes)
{
    FailErrnoIf(full_write(fd_, bytes.data(), static_cast<ssize_t>(bytes.size())) < 0, name_);
}

void OutputFile::Copy(const InputFile &input, int64_t start, int64_t size)
{
    input.ForEachPiece(start, size, [this](auto piece) { Write(piece); });
}

/// A new file gets its name at once. One that replaces another needs a name for the moment before.
void OutputFile::TakeName()
{
    mkdir(new_folder_.c_str(), 0777); // if that fails, the next call fails too
    if (leftover_.empty()) {
        const std::string &name = replaces_ ? scratch_ : target_;
        FailErrnoIf(linkat(AT_FDCWD, path().c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) !=
                        0,
                    name_);
        leftover_ = name;
    }
    const unsigned flags = replaces_ ? 0 : RENAME_NOREPLACE;
    const char *scratch = scratch_.c_str();
    const char *target = target_.c_str();
    // NFS does not know the flag.
    FailErrnoIf(leftover_ == scratch_ &&
                    renameat2(AT_FDCWD, scratch, AT_FDCWD, target, flags) != 0 &&
                    (errno != EINVAL || std::rename(scratch, target) != 0),
                name_);
    leftover_ = replaces_ ? "" : target_;
}

void OutputFile::Publish(std::span<OutputFile *const> files)
{
    for (const OutputFile *file : files) {
        FailErrnoIf(fsync(file->fd_) != 0, file->name_);
    }
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr); // for good: what ends by a signal has changed nothing
    std::ranges::for_each(files, &OutputFile::TakeName);
    for (OutputFile *file : files) {
        file->leftover_.clear();
    }
}
