#include "tools/sha256.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <memory>

#include "tools/text.h"

// libcrypto does the work. The kernel could too, but many build machines and containers come
// without its AF_ALG sockets.
std::string Sha256(const InputFile &file, int64_t start, int64_t size)
{
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context{EVP_MD_CTX_new(),
                                                                          EVP_MD_CTX_free};
    bool is_good = EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
    std::array<char, 65536> piece;
    for (size_t count = 1; size > 0 && is_good; size -= static_cast<int64_t>(count)) {
        count = file.Read(piece.data(), std::min(piece.size(), static_cast<size_t>(size)), start);
        is_good = count > 0 && EVP_DigestUpdate(context.get(), piece.data(), count) == 1;
        start += static_cast<int64_t>(count);
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    if (!is_good || EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) != 1) {
        Fail(file.name(), "changed while it was read, or could not be hashed");
    }
    std::string text;
    for (size_t i = 0; i < 32; ++i) {
        text += Format("%02x", digest[i]);
    }
    return text;
}
