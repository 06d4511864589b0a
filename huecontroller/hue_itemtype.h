#pragma once

#include <QtGlobal>

namespace hue {

// The kinds of bridge item that become hub devices.
enum ItemType : qint32
{
    ItemLight = 0,
    ItemGroup = 1,
};

} // namespace hue
