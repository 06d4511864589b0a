#include "hue_bridge.h"

namespace hue {

CBridge::CBridge(quint32 number, QObject* parent) : QObject(parent), m_number(number) {}

} // namespace hue
