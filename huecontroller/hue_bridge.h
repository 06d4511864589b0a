#pragma once

#include <QObject>
#include <QtGlobal>

namespace hue {

// One Hue bridge. Its number identifies it inside the hub's device serials of its lights.
class CBridge : public QObject
{
    Q_OBJECT
public:
    explicit CBridge(quint32 number, QObject* parent = nullptr);

    quint32 number() const { return m_number; }

private:
    quint32 m_number;
};

} // namespace hue
