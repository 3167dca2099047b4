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

/// Opens standard input, or its copy in memory if it is a pipe. Returns -1 if that fails.
int OpenStandardInput()
{
    struct stat status = {};
    if (fstat(STDIN_FILENO, &status) != 0 || S_ISREG(status.st_mode)) {
        return dup(STDIN_FILENO);
    }
    const int copy = memfd_create("standard input", MFD_CLOEXEC);
    ssize_t count = copy < 0 ? -1 : 1;
    while (count > 0) {
        count = splice(STDIN_FILENO, nullptr, copy, nullptr, size_t{1} << 20, 0);
    }
    return count == 0 ? copy : -1;
}

std::string PathOf(int fd)
{
    return Text("/proc/self/fd/", fd);
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
        FailIf(input != nullptr && std::filesystem::equivalent(input, name, error), name,
               ": the same file as the input ", input);
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
      fd_(name == "-" ? OpenStandardInput()
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

OutputFile::OutputFile(const std::string &path, bool replaces, std::span<const char *const> inputs)
    : name_(path), target_(FindTarget(path, replaces, inputs)), replaces_(replaces)
{
    std::error_code error;
    const std::filesystem::path target{target_};
    std::filesystem::path folder = target.parent_path();
    if (!folder.empty() && !std::filesystem::exists(folder, error)) {
        folder = folder.parent_path(); // beside a new folder
    }
    scratch_ = folder / target.filename();
    scratch_ += Text('.', getpid());
    fd_ = open((folder / ".").c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    if (fd_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR)) {
        fd_ = open(scratch_.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666);
        has_scratch_ = fd_ >= 0;
    }
    FailErrnoIf(fd_ < 0, name_);
    path_ = has_scratch_ ? scratch_ : PathOf(fd_);
}

OutputFile::~OutputFile()
{
    close(fd_);
    if (has_scratch_) {
        unlink(scratch_.c_str());
    }
}

void OutputFile::Write(std::span<const uint8_t> bytes)
{
    FailErrnoIf(full_write(fd_, bytes.data(), static_cast<ssize_t>(bytes.size())) < 0, name_);
}

void OutputFile::Copy(const InputFile &input, int64_t start, int64_t size)
{
    input.ForEachPiece(start, size, [this](auto piece) { Write(piece); });
}

/// A name that others see exists only for the moment of the renaming. Returns false, with errno, if
/// it fails.
bool OutputFile::TakeName()
{
    const char *scratch = scratch_.c_str();
    const char *target = target_.c_str();
    has_scratch_ =
        has_scratch_ || linkat(AT_FDCWD, path_.c_str(), AT_FDCWD, scratch, AT_SYMLINK_FOLLOW) == 0;
    const unsigned flags = replaces_ ? 0 : RENAME_NOREPLACE;
    // NFS does not know the flag.
    is_new_ = has_scratch_ && (renameat2(AT_FDCWD, scratch, AT_FDCWD, target, flags) == 0 ||
                               (errno == EINVAL && std::rename(scratch, target) == 0));
    has_scratch_ = has_scratch_ && !is_new_;
    return is_new_;
}

void OutputFile::Publish(std::span<OutputFile *const> files, const char *folder)
{
    for (const OutputFile *file : files) {
        FailErrnoIf(fsync(file->fd_) != 0, file->name_);
    }
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &previous); // nothing may end between two of the steps
    const bool is_folder_new = folder != nullptr && mkdir(folder, 0777) == 0;
    std::string failed;
    for (OutputFile *file : files) {
        failed = failed.empty() && !file->TakeName() ? file->name_ : failed;
    }
    const int error = errno;
    for (const OutputFile *file : files) {
        if (!failed.empty() && file->is_new_ && !file->replaces_) {
            unlink(file->target_.c_str());
        }
    }
    if (!failed.empty() && is_folder_new) {
        rmdir(folder);
    }
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    FailIf(!failed.empty(), failed, ": ", std::strerror(error));
}
