#include "tools/output_file.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace
{

/// What an interrupt must remove; empty when nothing.
std::array<char, 4096> g_unfinished{};

void RemoveUnfinished()
{
    if (g_unfinished[0] != '\0') {
        unlink(g_unfinished.data());
        g_unfinished[0] = '\0';
    }
}

void HandleSignal(int signal_number)
{
    RemoveUnfinished();
    _exit(128 + signal_number);
}

void Watch(const std::string &path)
{
    path.copy(g_unfinished.data(), g_unfinished.size() - 1);
    for (const int signal_number : {SIGHUP, SIGINT, SIGTERM}) {
        signal(signal_number, HandleSignal);
    }
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
    const int fd = mkstemp(scratch_.data());
    if (fd < 0) {
        return;
    }
    Watch(scratch_);
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

bool OutputFile::Finish()
{
    const bool written = std::fflush(stream_) == 0 && std::ferror(stream_) == 0;
    const bool closed = std::fclose(stream_) == 0;
    stream_ = nullptr;
    return written && closed;
}

bool OutputFile::MoveToPlace()
{
    if (std::rename(scratch_.c_str(), path_.c_str()) != 0) {
        return false;
    }
    g_unfinished[0] = '\0';
    return true;
}
