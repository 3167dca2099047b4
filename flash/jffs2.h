// The file system image of /etc.
#pragma once

#include <cstdint>

/// Checks that a JFFS2 node begins at `offset` of the file `path` and at every further 64 KiB, to
/// the end of the file: the file system must be the last thing in it.
///
/// @return 0 when it does (also when nothing can be read at `offset`), -1 otherwise
int CFlash_CheckJffs2(const char *path, int32_t offset);
