#include "tools/files.h"

#include <fcntl.h>
#include <libgen.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

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
    return Format("/proc/self/fd/%d", fd);
}

void WriteAll(int fd, const std::string &name, std::span<const uint8_t> bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = write(fd, bytes.data(), bytes.size());
        if (count < 0) {
            FailErrno(name);
        }
        bytes = bytes.subspan(static_cast<size_t>(count));
    }
}

} // namespace

InputFile::InputFile(const std::string &name) : name_(name), path_(name)
{
    if (name == "-") {
        name_ = "standard input";
        fd_ = OpenStandardInput();
        path_ = PathOf(fd_);
    } else {
        // Opening a pipe would wait for a writer.
        fd_ = open(path(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    }
    struct stat status = {};
    if (fd_ < 0 || fstat(fd_, &status) != 0) {
        FailErrno(name_);
    }
    if (!S_ISREG(status.st_mode)) {
        Fail(name_, S_ISDIR(status.st_mode) ? std::strerror(EISDIR) : "not a plain file");
    }
    size_ = status.st_size;
}

InputFile::~InputFile()
{
    close(fd_);
}

size_t InputFile::Read(void *bytes, size_t size, int64_t start) const
{
    const ssize_t count = pread(fd_, bytes, size, start);
    if (count < 0) {
        FailErrno(name_);
    }
    return static_cast<size_t>(count);
}

void InputFile::CopyTo(int output, const std::string &output_name, int64_t start,
                       int64_t size) const
{
    std::array<uint8_t, 65536> piece;
    while (size > 0) {
        const auto wanted = static_cast<size_t>(std::min<int64_t>(size, piece.size()));
        const size_t count = Read(piece.data(), wanted, start);
        if (count == 0) {
            Fail(name_, "changed while it was read");
        }
        WriteAll(output, output_name, std::span{piece}.first(count));
        start += static_cast<int64_t>(count);
        size -= static_cast<int64_t>(count);
    }
}

OutputFile::OutputFile(std::string path, bool replaces, std::span<const char *const> inputs,
                       const std::string &folder)
    : name_(path), target_(std::move(path)), replaces_(replaces)
{
    FindTarget(inputs);
    scratch_ = folder.empty() ? target_ : folder + target_.substr(target_.rfind('/'));
    scratch_ += Format(".%d", getpid());
    std::string place = scratch_;
    fd_ = open(dirname(place.data()), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    if (fd_ >= 0) {
        path_ = PathOf(fd_);
    } else if (errno == EOPNOTSUPP || errno == EISDIR) {
        path_ = scratch_;
        fd_ = open(scratch_.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666);
        has_scratch_ = fd_ >= 0;
    }
    if (fd_ < 0) {
        FailErrno(name_);
    }
}

void OutputFile::FindTarget(std::span<const char *const> inputs)
{
    struct stat found = {};
    if (name_ == "-") {
        Fail("-", "only 'extract --region' writes to standard output");
    }
    if (stat(name_.c_str(), &found) != 0) {
        if (lstat(name_.c_str(), &found) == 0) {
            Fail(name_, "a link that leads nowhere");
        }
        return;
    }
    for (const char *input : inputs) {
        struct stat status = {};
        if (input != nullptr && stat(input, &status) == 0 && status.st_dev == found.st_dev &&
            status.st_ino == found.st_ino) {
            Fail(name_, Format("the same file as the input %s", input));
        }
    }
    if (!S_ISREG(found.st_mode)) {
        Fail(name_, "exists and is not a plain file");
    }
    if (!replaces_) {
        Fail(name_, "exists; --force replaces it");
    }
    const std::unique_ptr<char, decltype(&std::free)> real{realpath(name_.c_str(), nullptr),
                                                           std::free};
    target_ = real ? real.get() : target_;
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
    WriteAll(fd_, name_, bytes);
}

void OutputFile::Copy(const InputFile &input, int64_t start, int64_t size)
{
    input.CopyTo(fd_, name_, start, size);
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

void OutputFile::Publish(std::span<OutputFile *const> files, const std::string &new_folder)
{
    for (const OutputFile *file : files) {
        if (fsync(file->fd_) != 0) {
            FailErrno(file->name_);
        }
    }
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &previous); // nothing may end between two of the steps
    std::string failed;
    if (!new_folder.empty() && mkdir(new_folder.c_str(), 0777) != 0) {
        failed = new_folder;
    }
    for (OutputFile *file : files) {
        failed = failed.empty() && !file->TakeName() ? file->name_ : failed;
    }
    const int error = errno;
    for (const OutputFile *file : files) {
        if (!failed.empty() && file->is_new_ && !file->replaces_) {
            unlink(file->target_.c_str());
        }
    }
    if (!failed.empty() && failed != new_folder) {
        rmdir(new_folder.c_str());
    }
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    if (!failed.empty()) {
        Fail(failed, std::strerror(error));
    }
}
