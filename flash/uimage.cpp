#include "flash/uimage.h"

#include <syslog.h>

#include <algorithm>
#include <cstdio>

#include "flash/crc32.h"
#include "util/byte_order.h"
#include "util/file.h"

namespace
{

using HeaderBytes = std::array<uint8_t, ImageHeader::kSize>;

constexpr size_t kHeaderCrcOffset = 4;

constexpr uint8_t kArchitectureArm = 2;
constexpr uint8_t kTypeStandalone = 1;
constexpr uint8_t kTypeKernel = 2;
constexpr uint8_t kTypeMulti = 4;
constexpr uint8_t kCompressionGzip = 1; // the highest code accepted; 0 is none

uint32_t HeaderCrc(HeaderBytes bytes)
{
    std::fill_n(bytes.begin() + kHeaderCrcOffset, 4, uint8_t{0});
    return CFlash_Crc32(0, bytes.data(), bytes.size());
}

/// What the CRCs cover is sound; is it meant for this board?
int CheckTarget(const ImageHeader &header)
{
    if (header.architecture != kArchitectureArm) {
        syslog(LOG_ALERT, "[CFlash_CheckImage] Unsupported Architecture\n");
        return -1;
    }
    if (header.type != kTypeStandalone && header.type != kTypeKernel && header.type != kTypeMulti) {
        syslog(LOG_ALERT, "[CFlash_CheckImage] Wrong Image Type\n");
        return -1;
    }
    if (header.compression > kCompressionGzip) {
        syslog(LOG_ALERT, "[CFlash_CheckImage] Unimplemented compression type %d\n",
               header.compression);
        return -1;
    }
    return 0;
}

} // namespace

ImageHeader DecodeImageHeader(const HeaderBytes &bytes)
{
    const auto word = [&bytes](size_t offset) { return LoadBe32(&bytes[offset]); };
    ImageHeader header{};
    header.magic = word(0);
    header.header_crc = word(kHeaderCrcOffset);
    header.time = word(8);
    header.data_size = word(12);
    header.load_address = word(16);
    header.entry_point = word(20);
    header.data_crc = word(24);
    header.operating_system = bytes[28];
    header.architecture = bytes[29];
    header.type = bytes[30];
    header.compression = bytes[31];
    std::copy_n(bytes.begin() + 32, header.name.size(), header.name.begin());
    return header;
}

int CFlash_CheckImage(const char *path, int32_t offset)
{
    File file{path, "r"};
    if (!file || std::fseek(file.get(), offset, SEEK_SET) != 0) {
        return -1;
    }
    HeaderBytes bytes;
    if (std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) {
        return -1;
    }
    const ImageHeader header = DecodeImageHeader(bytes);
    if (header.magic != kImageMagic) {
        syslog(LOG_ALERT, "[CFlash_CheckImage] Bad Magic Number : %d\n",
               static_cast<int32_t>(header.magic));
        return -1;
    }
    if (HeaderCrc(bytes) != header.header_crc) {
        syslog(LOG_ALERT, "[CFlash_CheckImage] crc32 error\n");
        return -1;
    }
    if (CFlash_Crc32Stream(0, file.get(), header.data_size) != header.data_crc) {
        syslog(LOG_ALERT, "[CFlash_CheckImage] filencrc32 error\n");
        return -1;
    }
    file.Close();
    // Deliberately last: an image for another CPU is refused only after its data was read.
    return CheckTarget(header);
}
