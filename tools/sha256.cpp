#include <openssl/evp.h>

#include <memory>

#include "tools/files.h"
#include "tools/text.h"

// libcrypto does the work. The kernel could too, but many build machines and containers come
// without its AF_ALG sockets.
std::string Sha256(const InputFile &file, int64_t start, int64_t size)
{
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context{EVP_MD_CTX_new(),
                                                                          EVP_MD_CTX_free};
    bool is_good = EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
    file.ForEachPiece(start, size, [&](std::span<const uint8_t> piece) {
        is_good = is_good && EVP_DigestUpdate(context.get(), piece.data(), piece.size()) == 1;
    });
    std::array<uint8_t, 32> digest{};
    is_good = is_good && EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) == 1;
    FailIf(!is_good, file.name(), ": could not be hashed");
    std::string text;
    for (const uint8_t byte : digest) {
        text += Hex(byte, 2);
    }
    return text;
}
