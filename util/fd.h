// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

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

    /// What closing could tell is passed over: who must know whether data arrived reads it back.
    void Close()
    {
        if (number_ >= 0) {
            close(number_);
            number_ = -1;
        }
    }

private:
    int number_;
};
