// The SHA-256 of a part of a file.
#pragma once

#include "tools/files.h"

/// 64 hexadecimal digits, or an empty text if fwpack was built without libcrypto. Fails if some
/// bytes cannot be read.
std::string Sha256(const InputFile &file, int64_t start, int64_t size);
