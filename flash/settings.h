// The user's settings that survive a firmware upgrade.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// Where one numeric setting lives.
struct SettingPlace {
    const char *path;
    const char *key;
};

/// The settings of the old /etc. /tmp keeps whole files, this object keeps single values.
class CarriedSettings
{
public:
    /// Copies the settings files to /tmp and reads the single values.
    void Save();

    /// Copies the files back into the new /etc and writes the values into its files. If the old
    /// /etc lacked a file, its value is the default; if the file lacked the key, the value of the
    /// file's last line.
    void Restore() const;

    static constexpr size_t kValueCount = 5;

private:
    std::array<int32_t, kValueCount> values_{};
    SettingPlace web_place_{};
    int32_t web_port_ = 0;
};
