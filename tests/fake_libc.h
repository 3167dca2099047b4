// What the C library calls in fake_libc_*.cpp share. They are those that touch the outside: a
// definition in an executable wins over the shared library's, so the program needs no hooks for its
// tests.
#pragma once

#include <dlfcn.h>
#include <fcntl.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "tests/fake_board.h"

template<typename Function>
Function *Real(Function * /*type*/, const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}
#define REAL(function) Real(&function, #function)
// What the headers turn into another symbol where file offsets have 64 bits.
#define REAL64(function) Real(&function, #function "64")

inline constexpr auto Active = FakeBoard::Active;

/// The board, for calls that must never reach the machine that the tests run on.
inline FakeBoard &Board()
{
    return Active() != nullptr ? *Active() : (std::abort(), *Active());
}

inline bool Fails(const char *function, const std::string &path = "")
{
    return Active() != nullptr && Active()->Fails(function, path);
}

/// What a call returns that fails on purpose.
inline int FaultResult()
{
    return errno == 0 ? 0 : -1;
}

inline std::string MapPath(const char *path)
{
    return Active() != nullptr ? Active()->Map(path) : path;
}

/// A file that the program has open; of another descriptor, one without a path.
inline OpenFile &FileAt(int fd)
{
    static OpenFile other;
    return Active() != nullptr && Active()->open_files.contains(fd) ? Active()->open_files[fd]
                                                                    : other;
}

inline FakeDevice *DeviceAt(int fd)
{
    return Active() != nullptr ? Active()->DeviceAt(FileAt(fd).path) : nullptr;
}

/// Devices are there when the board has them; anything else is a file.
inline int OpenOnBoard(const char *function, const char *path, int flags)
{
    if (Fails(function, path)) {
        return -1;
    }
    const std::string real_path = Board().DeviceAt(path) != nullptr ? "/dev/null" : MapPath(path);
    const int fd = openat(AT_FDCWD, real_path.c_str(), flags, 0666);
    if (fd >= 0) {
        Board().open_files[fd] = {path, flags};
    }
    return fd;
}
