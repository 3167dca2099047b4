// The board's model and what depends on it.
#pragma once

#include <array>

using ModelName = std::array<char, 128>;

/// The model, such as "VM01", as "/etc/cam_model.conf" has it (key "cam_model"); "VM01" when that
/// file cannot be opened. Without the key it is the value of the file's last key line.
ModelName ReadModel();

/// The board family of the model: 2 for the second one, 0 for all other texts.
int CMODEL_GetPlatform(const char *model);

/// How many video inputs the model has: 4, or 1 for all other texts.
int CMODEL_GetChannelCount(const char *model);
