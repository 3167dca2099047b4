#include "util/conf_reader.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "util/file.h"
#include "util/text.h"

namespace
{

bool IsBlank(char c)
{
    return c == ' ' || c == '\t';
}

bool IsCommentOrSection(char c)
{
    return c == '#' || c == '[';
}

bool IsLineEnd(char c)
{
    return c == '\0' || c == '\r' || c == '\n';
}

void CopyText(std::span<char> destination, std::string_view text)
{
    if (destination.empty()) {
        return;
    }
    const size_t length = std::min(text.size(), destination.size() - 1);
    std::copy_n(text.begin(), length, destination.begin());
    destination[length] = '\0';
}

/// Removes one trailing blank; a second one belongs to the token. Then, if the token begins with a
/// quote, removes its first and last character.
std::string_view Trim(std::string_view token)
{
    if (!token.empty() && IsBlank(token.back())) {
        token.remove_suffix(1);
    }
    if (!token.empty() && token.front() == '"') {
        token.remove_prefix(1);
        token.remove_suffix(token.empty() ? 0 : 1);
    }
    return token;
}

struct Buffers {
    std::span<char> line;
    std::span<char> key;
    std::span<char> value;
};

using KeyMatch = bool (*)(std::string_view found, std::string_view wanted);

/// Parses one line into the key and value buffers. Returns false when it is not a key line.
bool ReadLine(char separator, const Buffers &buffers)
{
    const char *rest = CUTIL_ParseConfLineSep(separator, buffers.key, buffers.line.data());
    // A line with a '#' or '[' right after the separator is no key line either.
    if (rest == nullptr || IsCommentOrSection(*rest)) {
        return false;
    }
    // At a '#' or '[' the parser leaves the value buffer alone, so the line takes over the value
    // of the line before it.
    if (CUTIL_ParseConfLineSep(separator, buffers.value, rest) == nullptr) {
        buffers.value.front() = '\0';
    }
    return true;
}

int LookUp(const char *path, const char *key, std::span<char> destination, char separator,
           KeyMatch matches, const Buffers &buffers)
{
    File file{path, "r"};
    if (!file) {
        return -1;
    }
    // A read that fails ends the file. The values read before it count.
    while (file.ReadLine(buffers.line) > 0) {
        if (ReadLine(separator, buffers) && matches(buffers.key.data(), key)) {
            break;
        }
    }
    CopyText(destination, buffers.value.data());
    return 0;
}

} // namespace

const char *CUTIL_ParseConfLineSep(char separator, std::span<char> token_out, const char *text)
{
    while (IsBlank(*text)) {
        ++text;
    }
    if (IsCommentOrSection(*text)) {
        return text;
    }
    const char *end = text;
    while (!IsLineEnd(*end) && *end != separator) {
        ++end;
    }
    const bool line_ended = IsLineEnd(*end);
    if (line_ended && end == text) {
        return nullptr;
    }
    CopyText(token_out, Trim({text, static_cast<size_t>(end - text)}));
    return line_ended ? end : end + 1;
}

const char *CUTIL_ParseConfLine(std::span<char> token_out, const char *text)
{
    return CUTIL_ParseConfLineSep('=', token_out, text);
}

int CUTIL_GetConfValue(const char *path, const char *key, std::span<char> destination)
{
    std::array<char, 2048> line{};
    std::array<char, 64> found_key{};
    std::array<char, 2048> value{};
    return LookUp(path, key, destination, '=', BeginsWith, {line, found_key, value});
}

int CUTIL_GetConfValueExact(const char *path, const char *key, std::span<char> destination)
{
    std::array<char, 2048> line{};
    std::array<char, 1024> found_key{};
    std::array<char, 2048> value{};
    const auto equals = [](std::string_view found, std::string_view wanted) {
        return found == wanted;
    };
    return LookUp(path, key, destination, '=', equals, {line, found_key, value});
}

int CUTIL_GetConfValueSep(const char *path, const char *key, std::span<char> destination,
                          char separator)
{
    std::array<char, 256> line{};
    std::array<char, 64> found_key{};
    std::array<char, 192> value{};
    return LookUp(path, key, destination, separator, BeginsWith, {line, found_key, value});
}
