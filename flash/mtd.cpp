#include "flash/mtd.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>

#include "util/error_text.h"
#include "util/fd.h"
#include "util/file.h"

static_assert(MEMGETINFO == 0x80204D01 && sizeof(mtd_info_user) == 32);
static_assert(MEMERASE == 0x40084D02 && sizeof(erase_info_user) == 8);

namespace
{

constexpr size_t kPieceSize = 512;

/// The widest word that the processor loads at once.
using Word = uint64_t;

using Piece = std::span<const uint8_t>;

Word LoadWord(const uint8_t *bytes)
{
    Word word;
    std::memcpy(&word, __builtin_assume_aligned(bytes, alignof(Word)), sizeof word);
    return word;
}

/// Compares two pieces of the same size word by word. Each is at the beginning of its buffer. The
/// small C library compares byte by byte and takes four times as long.
bool AreEqual(Piece a, Piece b)
{
    size_t same = 0;
    while (a.size() - same >= sizeof(Word) && LoadWord(&a[same]) == LoadWord(&b[same])) {
        same += sizeof(Word);
    }
    return std::ranges::equal(a.subspan(same), b.subspan(same));
}

enum class PieceResult { kDone, kDeviceFailed, kDifferent };

PieceResult WritePiece(int device, Piece piece)
{
    const ssize_t written = full_write(device, piece.data(), static_cast<ssize_t>(piece.size()));
    return written < 0 ? PieceResult::kDeviceFailed : PieceResult::kDone;
}

PieceResult ComparePiece(int device, Piece piece)
{
    alignas(Word) std::array<uint8_t, kPieceSize> read_back;
    if (full_read(device, read_back.data(), static_cast<ssize_t>(piece.size())) < 0) {
        return PieceResult::kDeviceFailed;
    }
    return AreEqual(piece, Piece{read_back}.first(piece.size())) ? PieceResult::kDone
                                                                 : PieceResult::kDifferent;
}

/// How writing a partition and comparing it differ.
struct Pass {
    const char *operation; ///< its name in the messages
    int device_flags;
    PieceResult (*handle)(int device, Piece piece);
};

// The create flag does nothing to a device node, and CFlash_Erase, which never creates, comes
// first.
constexpr Pass kWritePass{"CFlash_NWrite", O_WRONLY | O_CREAT, WritePiece};
constexpr Pass kComparePass{"CFlash_Confirm", O_RDONLY | O_CREAT, ComparePiece};

int Fail(const Pass &pass, const char *step, const char *path)
{
    const char *reason = ErrorText(errno);
    syslog(LOG_ALERT, "[%s] %s : %s : %s", pass.operation, step, path, reason);
    std::printf("[%s] %s : %s : %s\n", pass.operation, step, path, reason);
    return -1;
}

/// Hands the next `size` bytes of `source` to the pass, piece by piece.
int HandlePieces(const Pass &pass, const char *source, std::FILE *stream, const char *device,
                 int fd, int32_t size)
{
    alignas(Word) std::array<uint8_t, kPieceSize> buffer;
    // A size below zero, which a package header can state, leaves nothing to do. A source that ends
    // early is no failure here.
    for (int32_t remaining = size; remaining > 0 && std::feof(stream) == 0;) {
        const size_t wanted = std::min(static_cast<size_t>(remaining), buffer.size());
        const size_t count = std::fread(buffer.data(), 1, wanted, stream);
        remaining -= static_cast<int32_t>(count);
        if (std::ferror(stream) != 0) {
            return Fail(pass, "fread", source);
        }
        switch (pass.handle(fd, Piece{buffer}.first(count))) {
        case PieceResult::kDone:
            break;
        case PieceResult::kDeviceFailed:
            // Both passes have this label, also after a failed read.
            return Fail(pass, "full_write", device);
        case PieceResult::kDifferent:
            // The error text is that of the last call that failed. The log does not get this line.
            std::printf("[%s] cmp error : %s : %s\n", pass.operation, device, ErrorText(errno));
            return -1;
        }
    }
    return 0;
}

int RunPass(const Pass &pass, const char *source, const char *device, int32_t offset, int32_t size)
{
    sleep(1); // before anything else, even the test of the arguments
    if (source == nullptr || device == nullptr) {
        return -1;
    }
    syslog(LOG_ALERT, "[%s] offset : %d, size : %d", pass.operation, offset, size);

    // The C library's own buffer can be as small as two pieces: many reads, which take time.
    // cppcheck-suppress variableScope ; it must outlive the stream
    std::array<char, 8192> stream_buffer;
    const File stream{source, "r"};
    if (stream) {
        std::setvbuf(stream.get(), stream_buffer.data(), _IOFBF, stream_buffer.size());
    }
    if (!stream || std::fseek(stream.get(), offset, SEEK_SET) != 0) {
        return Fail(pass, "fseek", source);
    }
    const Fd fd{open(device, pass.device_flags, 0666)};
    if (!fd) {
        return Fail(pass, "open", device);
    }
    return HandlePieces(pass, source, stream.get(), device, fd.get(), size);
}

/// Erases block by block. Reports a block that fails and goes on: the compare after the write
/// rejects the partition.
void EraseBlocks(const char *device, int fd, const mtd_info_user &info)
{
    // 64 bits, so that a partition that ends at 4 GiB ends the loop too.
    for (uint64_t start = 0; start < info.size; start += info.erasesize) {
        std::fflush(stdout); // progress printed so far reaches the terminal before the long erase
        erase_info_user block{static_cast<uint32_t>(start), info.erasesize};
        if (ioctl(fd, MEMERASE, &block) < 0) {
            std::fprintf(stderr, "\n%s: MTD Erase failure: %s\n", device, ErrorText(errno));
            syslog(LOG_ALERT, "    [CFlash_Erase] MTD Erase failure [%s]\n", device);
        }
    }
}

template<typename Byte, typename Call>
ssize_t Repeat(Call call, int fd, Byte *bytes, ssize_t count)
{
    ssize_t total = 0;
    while (total < count) {
        const ssize_t result = call(fd, bytes + total, static_cast<size_t>(count - total));
        if (result < 0) {
            return -1;
        }
        total += result;
    }
    return total;
}

} // namespace

int CFlash_Erase(const char *device)
{
    syslog(LOG_ALERT, "[CFlash_Erase] =================> [%s]\n", device);

    Fd fd{open(device, O_RDWR)};
    if (!fd) {
        std::fprintf(stderr, "%s: %s\n", device, ErrorText(errno));
        syslog(LOG_ALERT, "    [CFlash_Erase] open [%s]\n", device);
        return -1;
    }
    mtd_info_user info{};
    // Without an erase block size there is nothing to step by.
    if (ioctl(fd.get(), MEMGETINFO, &info) < 0 || info.erasesize == 0) {
        fd.Close();
        std::fprintf(stderr, "%s: unable to get MTD device info\n", device);
        syslog(LOG_ALERT, "    [CFlash_Erase] unable to get MTD device info [%s]\n", device);
        return -1;
    }
    EraseBlocks(device, fd.get(), info);
    return 0;
}

int CFlash_NWrite(const char *source, const char *device, int32_t offset, int32_t size)
{
    return RunPass(kWritePass, source, device, offset, size);
}

int CFlash_Confirm(const char *source, const char *device, int32_t offset, int32_t size)
{
    return RunPass(kComparePass, source, device, offset, size);
}

ssize_t full_write(int fd, const void *buffer, ssize_t count)
{
    return Repeat(write, fd, static_cast<const uint8_t *>(buffer), count);
}

ssize_t full_read(int fd, void *buffer, ssize_t count)
{
    return Repeat(read, fd, static_cast<uint8_t *>(buffer), count);
}
