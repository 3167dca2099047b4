// The file system image of /etc.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>

/// A block that does not begin with a JFFS2 node.
struct ForeignBlock {
    int64_t start; ///< in the file
    std::array<uint8_t, 2> magic;
};

/// Looks for a JFFS2 node at `offset` and at every further 64 KiB, to the end of the stream: the
/// file system must be the last thing in it. What cannot be read counts as the end.
///
/// @return the first block without a node
std::optional<ForeignBlock> FindForeignBlock(std::FILE *stream, int64_t offset);

/// Makes the same search in the file `path`.
///
/// @return 0 when every block has its node; -1 when one has none or the file cannot be opened
int CFlash_CheckJffs2(const char *path, int64_t offset);
