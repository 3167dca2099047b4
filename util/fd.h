// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

class Fd
{
public:
    /// Takes over `number`, which may be -1 for 'not open'.
    explicit Fd(int number) : number_(number) {}
    ~Fd() { Close(); }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;

    explicit operator bool() const { return number_ >= 0; }
    [[nodiscard]] int get() const { return number_; }

    /// Gives the descriptor away.
    int Release() { return std::exchange(number_, -1); }

    /// Ignores the result: a writer that must know whether data arrived reads it back.
    void Close()
    {
        if (number_ >= 0) {
            close(Release());
        }
    }

private:
    int number_;
};
