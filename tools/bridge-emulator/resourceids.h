#pragma once

#include <string>
#include <string_view>

namespace bridgeemu {

// The UUIDs that name CLIP v2 resources. A bridge keeps a resource's id for its whole life, so
// the emulator derives them from what identifies the thing it stands for (the bridge id, the kind
// of resource and the light or group number): the same emulated bridge always shows the same ids.
std::string resourceUuid(std::string_view bridgeId, std::string_view kind, std::string_view key);

// A fresh random UUID, for things that are new every time (event ids).
std::string randomUuid();

} // namespace bridgeemu
