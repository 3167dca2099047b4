#include "tools/output_file.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace
{

constexpr std::array<int, 3> kEndingSignals{SIGHUP, SIGINT, SIGTERM};

/// What an ending signal must remove; empty when nothing.
std::array<char, 4096> g_unfinished{};

void RemoveUnfinished()
{
    if (g_unfinished[0] != '\0') {
        unlink(g_unfinished.data());
        g_unfinished[0] = '\0';
    }
}

/// The signal has its default effect back already and ends the tool when this returns.
void HandleEndingSignal(int signal_number)
{
    RemoveUnfinished();
    raise(signal_number);
}

void HandleSignals()
{
    struct sigaction handler {
    };
    handler.sa_handler = HandleEndingSignal;
    handler.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal_number : kEndingSignals) {
        struct sigaction previous {
        };
        sigaction(signal_number, nullptr, &previous);
        if (previous.sa_handler != SIG_IGN) { // under nohup a hang-up stays ignored
            sigaction(signal_number, &handler, nullptr);
        }
    }
    // A file that reaches the user's limit is a failed write, not the end of the tool.
    signal(SIGXFSZ, SIG_IGN);
}

/// mkstemp, with no moment at which a signal would leave the file behind.
int MakeScratch(std::string &path)
{
    sigset_t ending;
    sigset_t previous;
    sigemptyset(&ending);
    for (const int signal_number : kEndingSignals) {
        sigaddset(&ending, signal_number);
    }
    sigprocmask(SIG_BLOCK, &ending, &previous);
    const int fd = mkstemp(path.data());
    if (fd >= 0) {
        path.copy(g_unfinished.data(), g_unfinished.size() - 1);
    }
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    return fd;
}

/// mkstemp makes a file for its owner alone; this is one as any program makes.
void TakeUsualMode(int fd)
{
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
}

} // namespace

OutputFile::OutputFile(const char *path) : path_(path), scratch_(path_ + ".XXXXXX")
{
    if (scratch_.size() >= g_unfinished.size()) {
        errno = ENAMETOOLONG;
        return;
    }
    HandleSignals();
    const int fd = MakeScratch(scratch_);
    if (fd < 0) {
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
    RemoveUnfinished();
}

bool OutputFile::Write(std::span<const char> bytes)
{
    return std::fwrite(bytes.data(), 1, bytes.size(), stream_) == bytes.size();
}

bool OutputFile::Finish()
{
    if (std::fflush(stream_) != 0 || fsync(fileno(stream_)) != 0) {
        return false;
    }
    std::FILE *stream = stream_;
    stream_ = nullptr;
    return std::fclose(stream) == 0;
}

bool OutputFile::MoveToPlace()
{
    if (std::rename(scratch_.c_str(), path_.c_str()) != 0) {
        return false;
    }
    g_unfinished[0] = '\0';
    return true;
}
