#include "flash/uimage.h"

#include <syslog.h>

#include <algorithm>

#include "flash/crc32.h"
#include "util/byte_order.h"
#include "util/file.h"

namespace
{

constexpr size_t kHeaderCrcOffset = 4;

constexpr uint8_t kArchitectureArm = 2;
constexpr uint8_t kTypeStandalone = 1;
constexpr uint8_t kTypeKernel = 2;
constexpr uint8_t kTypeMulti = 4;
constexpr uint8_t kCompressionGzip = 1; // the highest code accepted; 0 is none

} // namespace

bool ReadImageHeader(std::FILE *stream, int64_t offset, ImageHeader &header)
{
    std::array<uint8_t, ImageHeader::kSize> bytes;
    if (fseeko(stream, offset, SEEK_SET) != 0 ||
        std::fread(bytes.data(), 1, bytes.size(), stream) != bytes.size()) {
        return false;
    }
    const auto word = [&bytes](size_t at) { return LoadBe32(&bytes[at]); };
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

    std::fill_n(bytes.begin() + kHeaderCrcOffset, 4, uint8_t{0});
    header.computed_crc = CFlash_Crc32(0, bytes.data(), bytes.size());
    return true;
}

ImageFault FindImageFault(const char *path, int64_t offset, ImageHeader &header)
{
    const File file{path, "r"};
    if (!file || !ReadImageHeader(file.get(), offset, header)) {
        return ImageFault::kUnreadable;
    }
    if (header.magic != kImageMagic) {
        return ImageFault::kBadMagic;
    }
    if (header.header_crc != header.computed_crc) {
        return ImageFault::kBadHeaderCrc;
    }
    if (CFlash_Crc32Stream(0, file.get(), header.data_size) != header.data_crc) {
        return ImageFault::kBadDataCrc;
    }
    if (header.architecture != kArchitectureArm) {
        return ImageFault::kWrongArchitecture;
    }
    if (header.type != kTypeStandalone && header.type != kTypeKernel && header.type != kTypeMulti) {
        return ImageFault::kWrongType;
    }
    return header.compression > kCompressionGzip ? ImageFault::kWrongCompression
                                                 : ImageFault::kNone;
}

int CFlash_CheckImage(const char *path, int64_t offset)
{
    ImageHeader header{};
    switch (FindImageFault(path, offset, header)) {
    case ImageFault::kNone:
        return 0;
    case ImageFault::kUnreadable:
        break;
    case ImageFault::kBadMagic:
        syslog(LOG_ALERT, "[CFlash_CheckImage] Bad Magic Number : %d\n",
               static_cast<int32_t>(header.magic));
        break;
    case ImageFault::kBadHeaderCrc:
        syslog(LOG_ALERT, "[CFlash_CheckImage] crc32 error\n");
        break;
    case ImageFault::kBadDataCrc:
        syslog(LOG_ALERT, "[CFlash_CheckImage] filencrc32 error\n");
        break;
    case ImageFault::kWrongArchitecture:
        syslog(LOG_ALERT, "[CFlash_CheckImage] Unsupported Architecture\n");
        break;
    case ImageFault::kWrongType:
        syslog(LOG_ALERT, "[CFlash_CheckImage] Wrong Image Type\n");
        break;
    case ImageFault::kWrongCompression:
        syslog(LOG_ALERT, "[CFlash_CheckImage] Unimplemented compression type %d\n",
               header.compression);
        break;
    }
    return -1;
}
