#include "tools/output_file.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "tools/text.h"

namespace
{

constexpr std::array<int, 3> kEndingSignals{SIGHUP, SIGINT, SIGTERM};

std::array<OutputFile::Unfinished, 3> g_unfinished{};

void Remove(OutputFile::Unfinished &unfinished)
{
    if (unfinished[0] != '\0') {
        unlink(unfinished.data());
        unfinished[0] = '\0';
    }
}

/// The signal already has its default effect again and ends the tool after this returns.
void HandleEndingSignal(int signal_number)
{
    for (OutputFile::Unfinished &unfinished : g_unfinished) {
        Remove(unfinished);
    }
    raise(signal_number);
}

void HandleSignals()
{
    struct sigaction handler = {};
    handler.sa_handler = HandleEndingSignal;
    handler.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal_number : kEndingSignals) {
        struct sigaction previous = {};
        sigaction(signal_number, nullptr, &previous);
        if (previous.sa_handler != SIG_IGN) { // under nohup a hang-up stays ignored
            sigaction(signal_number, &handler, nullptr);
        }
    }
    // At the user's file size limit, a write fails instead of ending the tool.
    signal(SIGXFSZ, SIG_IGN);
}

/// mkstemp, with no moment at which a signal leaves the file behind.
// cppcheck-suppress constParameterReference ; mkstemp writes the name
int MakeScratch(std::string &path, OutputFile::Unfinished &unfinished)
{
    const HeldSignals held;
    const int fd = mkstemp(path.data());
    if (fd >= 0) {
        unfinished[path.copy(unfinished.data(), unfinished.size() - 1)] = '\0';
    }
    return fd;
}

/// Gives the file the usual permissions. mkstemp makes a file for its owner only.
void TakeUsualMode(int fd)
{
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
}

bool IsPlainFileOrNone(const char *path)
{
    struct stat status = {};
    return stat(path, &status) != 0 || S_ISREG(status.st_mode);
}

} // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)), scratch_(path_ + ".XXXXXX")
{
    if (!IsPlainFileOrNone(path_.c_str())) {
        Refuse(path_.c_str(), "exists and is not a plain file");
        return;
    }
    if (scratch_.size() >= Unfinished{}.size()) {
        Refuse(path_.c_str(), std::strerror(ENAMETOOLONG));
        return;
    }
    HandleSignals();
    unfinished_ = std::ranges::find(g_unfinished, '\0', [](const Unfinished &u) { return u[0]; });
    const int fd = MakeScratch(scratch_, *unfinished_);
    if (fd < 0) {
        unfinished_ = nullptr;
        Fail();
        return;
    }
    TakeUsualMode(fd);
    stream_ = fdopen(fd, "w");
}

OutputFile::~OutputFile()
{
    if (stream_ != nullptr) {
        std::fclose(stream_);
    }
    if (unfinished_ != nullptr) {
        Remove(*unfinished_);
    }
}

bool OutputFile::Fail() const
{
    return Refuse(path(), std::strerror(errno));
}

bool OutputFile::Write(std::span<const char> bytes)
{
    return std::fwrite(bytes.data(), 1, bytes.size(), stream_) == bytes.size() || Fail();
}

bool OutputFile::Finish()
{
    if (std::fflush(stream_) != 0 || fsync(fileno(stream_)) != 0) {
        return Fail();
    }
    std::FILE *stream = std::exchange(stream_, nullptr);
    return std::fclose(stream) == 0 || Fail();
}

bool OutputFile::MoveToPlace()
{
    if (std::rename(scratch_.c_str(), path()) != 0) {
        return Fail();
    }
    (*std::exchange(unfinished_, nullptr))[0] = '\0';
    return true;
}

HeldSignals::HeldSignals()
{
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal_number : kEndingSignals) {
        sigaddset(&ending, signal_number);
    }
    sigprocmask(SIG_BLOCK, &ending, &previous_);
}

HeldSignals::~HeldSignals()
{
    sigprocmask(SIG_SETMASK, &previous_, nullptr);
}
