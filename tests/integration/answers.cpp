// Prints what the program knows, for a comparison with the scripts: answers settings, answers
// layouts, or answers KEY FILE... for the value and the number in each file.

// The tables have no names outside of these files.
#include "flash/package.cpp"  // NOLINT(bugprone-suspicious-include)
#include "flash/settings.cpp" // NOLINT(bugprone-suspicious-include)

#include <string_view>

int main(int argc, char **argv)
{
    const std::string_view question = argc > 1 ? argv[1] : "";
    if (question == "settings") {
        for (const char *command : kSaveCommands) {
            std::puts(command);
        }
        for (const CarriedValue &value : kValues) {
            std::printf("%s:%s\n", value.place.path, value.place.key);
        }
        std::printf("%s:%s\n%s:%s\n", kLighttpdPort.path, kLighttpdPort.key, kWebsPort.path,
                    kWebsPort.key);
    } else if (question == "layouts") {
        for (const PackageLayout &layout : kPackageLayouts) {
            std::printf("%d %d %zu\n", static_cast<int>(layout.version),
                        static_cast<int>(layout.header_length),
                        static_cast<size_t>(layout.sizes_offset));
        }
    }
    for (int i = 2; i < argc; ++i) {
        std::array<char, 256> text{};
        CUTIL_GetConfValue(argv[i], argv[1], text);
        std::printf("%s\n%d\n", text.data(), ParseLeadingInteger(text.data()));
    }
}
