// JSON output of fwpack: one object on one line, pure ASCII.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class JsonObject
{
public:
    /// Adds a text of any bytes. Bytes that are not printable ASCII become the code points of the
    /// same number, so every text is valid and no information is lost.
    void AddText(std::string_view name, std::string_view text);
    /// Adds the text, or null if it is empty.
    void AddTextOrNull(std::string_view name, std::string_view text);
    void AddNumber(std::string_view name, int64_t number);
    /// Adds existing JSON: true, null, an object or an array.
    void AddJson(std::string_view name, std::string_view json);

    [[nodiscard]] std::string Text() const { return "{" + members_ + "}"; }

private:
    std::string members_;
};
