#include "tools/kernel_image.h"

#include <span>

#include "flash/crc32.h"
#include "tools/text.h"
#include "util/file.h"

namespace
{

struct CodeName {
    uint8_t code;
    const char *name;
};

constexpr CodeName kOperatingSystems[] = {{2, "NetBSD"}, {5, "Linux"}, {17, "firmware"}};
constexpr CodeName kArchitectures[] = {{2, "ARM"},     {3, "x86"},      {5, "MIPS"},
                                       {7, "PowerPC"}, {22, "AArch64"}, {24, "x86-64"}};
constexpr CodeName kTypes[] = {{1, "standalone program"}, {2, "kernel"},     {3, "RAM disk"},
                               {4, "multi-file image"},   {5, "firmware"},   {6, "script"},
                               {7, "file system"},        {8, "device tree"}};
constexpr CodeName kCompressions[] = {{0, "not compressed"}, {1, "gzip"}, {2, "bzip2"},
                                      {3, "lzma"},           {4, "lzo"},  {5, "lz4"}};

std::string NameOf(uint8_t code, std::span<const CodeName> names)
{
    for (const CodeName &row : names) {
        if (row.code == code) {
            return row.name;
        }
    }
    return Format("code %d", code);
}

} // namespace

std::optional<KernelImage> ReadKernelImage(const char *path, int64_t offset)
{
    const File file{path, "r"};
    KernelImage image{};
    if (!file || !ReadImageHeader(file.get(), offset, image.header)) {
        return std::nullopt;
    }
    image.data_crc = CFlash_Crc32Stream(0, file.get(), image.header.data_size);
    return image;
}

std::string OperatingSystemName(const ImageHeader &header)
{
    return NameOf(header.operating_system, kOperatingSystems);
}

std::string ArchitectureName(const ImageHeader &header)
{
    return NameOf(header.architecture, kArchitectures);
}

std::string TypeName(const ImageHeader &header)
{
    return NameOf(header.type, kTypes);
}

std::string CompressionName(const ImageHeader &header)
{
    return NameOf(header.compression, kCompressions);
}

std::string WhyKernelRefused(const char *path, int64_t offset)
{
    ImageHeader header{};
    switch (FindImageFault(path, offset, header)) {
    case ImageFault::kNone:
        break;
    case ImageFault::kUnreadable:
        return "the file ends within the image's header";
    case ImageFault::kBadMagic:
        return Format("magic %08x, expected %08x", header.magic, kImageMagic);
    case ImageFault::kBadHeaderCrc:
        return Format("header CRC %08x, its bytes give %08x", header.header_crc,
                      header.computed_crc);
    case ImageFault::kBadDataCrc: {
        const auto image = ReadKernelImage(path, offset);
        return Format("data CRC %08x, the %u bytes behind the header give %08x", header.data_crc,
                      header.data_size, image ? image->data_crc : 0);
    }
    case ImageFault::kWrongArchitecture:
        return Format("architecture %s, expected ARM", ArchitectureName(header).c_str());
    case ImageFault::kWrongType:
        return Format("type %s, expected kernel, standalone program or multi-file image",
                      TypeName(header).c_str());
    case ImageFault::kWrongCompression:
        return Format("compression %s, expected none or gzip", CompressionName(header).c_str());
    }
    return "";
}
