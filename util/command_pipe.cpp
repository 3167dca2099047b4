#include "util/command_pipe.h"

#include <unistd.h>

#include <array>
#include <cstdio>

#include "util/fd.h"

pid_t CUTIL_ForkPipe(int &read_end, int &write_end)
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        return -1;
    }
    Fd child_reads{ends[0]};
    Fd parent_writes{ends[1]};
    if (pipe(ends.data()) != 0) {
        return -1;
    }
    Fd parent_reads{ends[0]};
    Fd child_writes{ends[1]};
    const pid_t id = fork();
    if (id >= 0) {
        read_end = (id == 0 ? child_reads : parent_reads).Release();
        write_end = (id == 0 ? child_writes : parent_writes).Release();
    }
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
