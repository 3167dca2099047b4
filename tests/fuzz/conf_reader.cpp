// The configuration reader in its three forms and its tokenizer, against a slow and obvious model.
//
// Input: the separator and the key; the size of the destination in tens; the file.
#include "util/conf_reader.h"

#include "tests/fuzz/fuzz.h"

namespace
{

struct Parsed {
    enum { kNothing, kComment, kToken } what = kNothing;
    std::string token = {};
    std::string rest = {}; ///< where parsing stopped
};

Parsed Parse(const std::string &text, char separator)
{
    const size_t begin = text.find_first_not_of(" \t");
    const std::string body = begin == std::string::npos ? "" : text.substr(begin);
    if (body.starts_with('#') || body.starts_with('[')) {
        return {Parsed::kComment, "", body};
    }
    const std::string line = body.substr(0, body.find_first_of("\r\n"));
    const size_t end = line.find(separator);
    if (end == std::string::npos && line.empty()) {
        return {};
    }
    std::string token = line.substr(0, end);
    if (token.ends_with(' ') || token.ends_with('\t')) {
        token.pop_back();
    }
    if (token.starts_with('"')) {
        token.erase(0, 1);
        token = token.substr(0, token.empty() ? 0 : token.size() - 1);
    }
    return {Parsed::kToken, token, body.substr(end == std::string::npos ? line.size() : end + 1)};
}

/// The longest line, key and value, and how a key is compared.
struct Form {
    size_t line;
    size_t key;
    size_t value;
    bool exact;
};

std::string LookUp(const std::string &file, const std::string &key, char separator, Form form)
{
    std::string value;
    for (size_t at = 0; at < file.size();) {
        std::string line = file.substr(at, form.line);
        line = line.substr(0, line.find('\n')) + (line.find('\n') != std::string::npos ? "\n" : "");
        at += line.size();
        const Parsed name = Parse(line.c_str(), separator);
        if (name.what != Parsed::kToken || name.rest[0] == '#' || name.rest[0] == '[') {
            continue;
        }
        const Parsed found = Parse(name.rest, separator);
        value = found.what == Parsed::kComment ? value : found.token.substr(0, form.value);
        const std::string cut = name.token.substr(0, form.key);
        if (form.exact ? cut == key : cut.starts_with(key)) {
            break;
        }
    }
    return value;
}

} // namespace

void Fuzz(const std::string &input)
{
    const auto fields = Fields(input, 3);
    const char separator = fields[0].empty() ? '=' : fields[0][0];
    const std::string key = fields[0].substr(fields[0].empty() ? 0 : 1).c_str();
    const size_t size = 10 * static_cast<size_t>(Digit(fields[1], 0));
    const std::string &file = fields[2];

    const auto expect = [&, size](const std::string &text, const std::vector<char> &destination) {
        if (size > 0) {
            EXPECT_EQ(destination.data(), text.substr(0, size - 1));
        }
    };
    FakeBoard board;
    board.Write("/etc/a.conf", file);
    const auto look_up = [&](auto function, char with, Form form, auto... more) {
        std::vector<char> destination(size, '-');
        const std::span<char> span{destination};
        EXPECT_EQ(board.Run(function, "/etc/a.conf", key.c_str(), span, more...), 0);
        expect(LookUp(file, key, with, form), destination);
    };
    look_up(CUTIL_GetConfValue, '=', {2047, 63, 2047, false});
    look_up(CUTIL_GetConfValueExact, '=', {2047, 1023, 2047, true});
    look_up(CUTIL_GetConfValueSep, separator, {255, 63, 191, false}, separator);

    std::vector<char> token(size, '-');
    const std::string text = file.c_str();
    const char *stop = CUTIL_ParseConfLineSep(separator, token, text.c_str());
    const Parsed parsed = Parse(text, separator);
    EXPECT_EQ(stop == nullptr, parsed.what == Parsed::kNothing);
    if (stop != nullptr) {
        EXPECT_EQ(stop, parsed.rest);
    }
    if (parsed.what == Parsed::kToken) {
        expect(parsed.token, token);
    } else {
        EXPECT_EQ(token, std::vector<char>(size, '-'));
    }
}
