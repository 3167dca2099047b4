#include "bringup/model.h"

#include <algorithm>
#include <cstdio>
#include <span>
#include <string_view>

#include "util/conf_reader.h"

namespace
{

constexpr std::string_view kSecondFamily[] = {"VM46", "VM37", "VM35", "VM36", "VM34", "VM42"};
constexpr std::string_view kFourChannels[] = {"VM02", "VM23", "VM04", "VM38", "VM37", "VM03"};

bool IsOneOf(std::span<const std::string_view> models, std::string_view model)
{
    return std::find(models.begin(), models.end(), model) != models.end();
}

} // namespace

ModelName ReadModel()
{
    ModelName model{};
    if (CUTIL_GetConfValue("/etc/cam_model.conf", "cam_model", model) < 0) {
        std::snprintf(model.data(), model.size(), "VM01");
    }
    return model;
}

int CMODEL_GetPlatform(const char *model)
{
    return IsOneOf(kSecondFamily, model) ? 2 : 0;
}

int CMODEL_GetChannelCount(const char *model)
{
    return IsOneOf(kFourChannels, model) ? 4 : 1;
}
