#include "tools/sha256.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <memory>

#include "tools/text.h"
#include "util/file.h"

// libcrypto does the work. The kernel could too, but many build machines and containers come
// without its AF_ALG sockets.
std::optional<std::string> Sha256(const char *path, int64_t start, int64_t size)
{
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context{EVP_MD_CTX_new(),
                                                                          EVP_MD_CTX_free};
    const File file{path, "r"};
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1 || !file ||
        fseeko(file.get(), start, SEEK_SET) != 0) {
        return std::nullopt;
    }
    std::array<char, 65536> piece;
    while (size > 0) {
        const size_t wanted = std::min(piece.size(), static_cast<size_t>(size));
        if (std::fread(piece.data(), 1, wanted, file.get()) != wanted ||
            EVP_DigestUpdate(context.get(), piece.data(), wanted) != 1) {
            return std::nullopt;
        }
        size -= static_cast<int64_t>(wanted);
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    if (EVP_DigestFinal_ex(context.get(), digest.data(), &length) != 1) {
        return std::nullopt;
    }
    std::string text;
    for (unsigned i = 0; i < length; ++i) {
        text += Format("%02x", digest[i]);
    }
    return text;
}
