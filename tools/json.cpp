#include "tools/json.h"

#include "tools/text.h"

namespace
{

std::string Quoted(std::string_view text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (c >= ' ' && c <= '~') {
            quoted += c;
        } else {
            quoted += Format("\\u%04x", static_cast<unsigned char>(c));
        }
    }
    return quoted + '"';
}

} // namespace

void JsonObject::AddText(std::string_view name, std::string_view text)
{
    AddJson(name, Quoted(text));
}

void JsonObject::AddTextOrNull(std::string_view name, std::string_view text)
{
    AddJson(name, text.empty() ? "null" : Quoted(text));
}

void JsonObject::AddNumber(std::string_view name, int64_t number)
{
    AddJson(name, std::to_string(number));
}

void JsonObject::AddJson(std::string_view name, std::string_view json)
{
    members_ += members_.empty() ? "" : ", ";
    members_ += Quoted(name);
    members_ += ": ";
    members_ += json;
}
