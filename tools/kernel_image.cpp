#include "tools/kernel_image.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>

#include "flash/crc32.h"
#include "tools/board_log.h"
#include "tools/fwpack.h"
#include "util/file.h"

namespace
{

struct CodeName {
    uint8_t code;
    const char *name;
};

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

struct Fault {
    const char *logged; ///< by this the board's log line is known
    std::string (*describe)(const KernelImage &);
};

constexpr Fault kFaults[] = {
    {"] Bad Magic Number",
     [](const KernelImage &image) {
         return Format("magic %08x, expected %08x", image.header.magic, kImageMagic);
     }},
    {"] crc32 error",
     [](const KernelImage &image) {
         return Format("header CRC %08x, its bytes give %08x", image.header.header_crc,
                       image.header_crc);
     }},
    {"] filencrc32 error",
     [](const KernelImage &image) {
         return Format("data CRC %08x, the %u bytes behind the header give %08x",
                       image.header.data_crc, image.header.data_size, image.data_crc);
     }},
    {"] Unsupported Architecture",
     [](const KernelImage &image) {
         return Format("architecture %s, expected ARM", ArchitectureName(image.header).c_str());
     }},
    {"] Wrong Image Type",
     [](const KernelImage &image) {
         return Format("type %s, expected kernel, standalone program or multi-file image",
                       TypeName(image.header).c_str());
     }},
    {"] Unimplemented compression",
     [](const KernelImage &image) {
         return Format("compression %s, expected none or gzip",
                       CompressionName(image.header).c_str());
     }},
};

} // namespace

std::optional<KernelImage> ReadKernelImage(const char *path, int32_t offset)
{
    const File file{path, "r"};
    std::array<uint8_t, ImageHeader::kSize> bytes{};
    if (!file || std::fseek(file.get(), offset, SEEK_SET) != 0 ||
        std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) {
        return std::nullopt;
    }
    KernelImage image{DecodeImageHeader(bytes), 0, 0};
    std::fill_n(bytes.begin() + 4, 4, uint8_t{0}); // the CRC leaves itself out
    image.header_crc = CFlash_Crc32(0, bytes.data(), bytes.size());
    image.data_crc = CFlash_Crc32Stream(0, file.get(), image.header.data_size);
    return image;
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

std::string DescribeKernelFault(const char *path, int32_t offset)
{
    const std::string logged = LastLogLine();
    const auto image = ReadKernelImage(path, offset);
    for (const Fault &fault : kFaults) {
        if (image && logged.find(fault.logged) != std::string::npos) {
            return fault.describe(*image);
        }
    }
    return "the file ends within the image's header";
}
