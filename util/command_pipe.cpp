#include "util/command_pipe.h"

#include <unistd.h>

#include <array>
#include <cstdio>

namespace
{

struct Pipe {
    int read_end = -1;
    int write_end = -1;

    bool Open()
    {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0) {
            return false;
        }
        read_end = ends[0];
        write_end = ends[1];
        return true;
    }

    void Close() const
    {
        close(read_end);
        close(write_end);
    }
};

} // namespace

pid_t CUTIL_ForkPipe(int &read_end, int &write_end)
{
    Pipe to_child;
    Pipe to_parent;
    if (!to_child.Open()) {
        return -1;
    }
    if (!to_parent.Open()) {
        to_child.Close();
        return -1;
    }
    const pid_t id = fork();
    if (id < 0) {
        to_child.Close();
        to_parent.Close();
        return -1;
    }
    const Pipe &in = id == 0 ? to_child : to_parent;
    const Pipe &out = id == 0 ? to_parent : to_child;
    close(in.write_end);
    close(out.read_end);
    read_end = in.read_end;
    write_end = out.write_end;
    return id;
}

int CUTIL_SendCommand(int fd, int32_t code, int32_t length, const void *data)
{
    if (fd == -1) {
        std::printf("ERROR ! CUTIL_SendCommand() invalid param => fd is (%d)\n", fd);
        return -1;
    }
    const std::array<int32_t, 2> header{code, length};
    const ssize_t header_result = write(fd, header.data(), sizeof header);
    if (header_result != static_cast<ssize_t>(sizeof header)) {
        std::printf("ERROR ! CUTIL_SendCommand() => header write return is (%d != %d)\n",
                    static_cast<int>(header_result), static_cast<int>(sizeof header));
        return -1;
    }
    if (length == 0) {
        return 0;
    }
    const ssize_t data_result = write(fd, data, static_cast<size_t>(length));
    if (data_result < 0 || data_result != length) { // a negative length is a count that fails
        std::printf("ERROR ! CUTIL_SendCommand() => data write return is (%d != %d)\n",
                    static_cast<int>(data_result), length);
        return -1;
    }
    return 0;
}
