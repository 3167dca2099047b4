// The firmware package: a header, then the contents of three flash partitions back to back.
//
// The installer and the host tool share what is here, so both refuse the same packages.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <variant>

/// The header, words little-endian. Layout 1 has 20 bytes, layout 3 has 64.
///
///     layout 1: magic, version, size 1, size 2, size 3
///     layout 3: magic, version, (any word), size 1, size 2, size 3, (40 bytes of anything)
struct FirmwarePackageHeader {
    static constexpr size_t kStartSize = 8; ///< magic and version, the same in both layouts
    static constexpr size_t kMaxSize = 64;

    uint32_t magic;              ///< the first four characters of the device marker
    int32_t version;             ///< of the layout
    std::array<int32_t, 3> size; ///< of regions 1 to 3, in bytes
};

/// How the two layouts differ.
struct PackageLayout {
    int32_t version;
    int32_t header_length;   ///< bytes
    size_t sizes_offset;     ///< of the word that holds the size of region 1
    bool checks_file_system; ///< region 3 must be a JFFS2 image
};

/// All layouts.
constexpr std::array<PackageLayout, 2> kPackageLayouts{{
    {1, 20, 8, true},
    {3, 64, 12, false},
}};

/// The layout with this version, or null when there is none.
const PackageLayout *FindPackageLayout(int32_t version);

/// A package that was opened and measured.
struct Package {
    FirmwarePackageHeader header;
    PackageLayout layout;
    int64_t file_size; ///< bytes

    /// Where region `index` (0 to 2) begins in the file. Sizes below zero can put it before the
    /// beginning.
    [[nodiscard]] int64_t RegionStart(size_t index) const;
    /// What the file size must be.
    [[nodiscard]] int64_t ExpectedFileSize() const { return RegionStart(3); }
};

/// What a board accepts.
struct PackageExpectation {
    bool check_marker; ///< compare the magic word with the marker
    uint32_t marker;   ///< see MarkerWord
    int32_t version;
};

/// Why a package is refused before its regions are read.
enum class HeaderFault {
    kUnreadable, ///< cannot be opened, is shorter than its header, or cannot be measured
    kWrongMarker,
    kWrongVersion,
    kUnknownLayout,
};

/// A package that is refused by its header.
struct HeaderRefusal {
    HeaderFault fault;
    FirmwarePackageHeader header; ///< as far as it was read; the rest is zero
};

/// Why a package is refused for what its regions hold.
enum class ContentsFault { kNone, kWrongFileSize, kBadKernelImage, kBadFileSystem };

/// The first four characters of a marker text as the word in a header. Zero bytes pad a shorter
/// text.
uint32_t MarkerWord(std::span<const char> marker);

/// Opens the package, checks that it is meant for this board, and reads its sizes. Logs the words
/// that it compares.
std::variant<Package, HeaderRefusal> ReadPackage(const char *path,
                                                 const PackageExpectation &expectation);

/// Checks what the regions hold: the file size, the kernel image in region 1 and, in layout 1, the
/// file system in region 3. What is wrong goes to the system log.
ContentsFault FindContentsFault(const char *path, const Package &package);
