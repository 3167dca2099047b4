#include "tools/sha256.h"

// Replaces sha256.cpp if the build has no libcrypto (QVE_LIBCRYPTO).
std::string Sha256(const InputFile & /*file*/, int64_t /*start*/, int64_t /*size*/)
{
    return "";
}
