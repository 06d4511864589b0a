#include "logline.h"

#include <cstring>

const char* logMarker(int kind)
{
    switch (kind) {
    case LogInfo:
        return "--";
    case LogWarning:
        return "WW";
    case LogError:
        return "EE";
    case LogDebug:
    case LogDetail:
        return "**";
    default:
        return "??";
    }
}

QByteArray formatLogLine(int kind, const char* file, int line, qint64 pid, int indent, const QByteArray& message)
{
    const char* name = file ? file : "";
    if (const char* slash = std::strrchr(name, '/'))
        name = slash + 1;

    QByteArray out;
    out.reserve(40 + 3 * qMax(indent, 0) + message.size());
    out.append(logMarker(kind)).append(' ');
    const int nameLength = int(std::strlen(name));
    out.append(name, nameLength);
    if (nameLength < 20)
        out.append(20 - nameLength, ' ');
    const QByteArray lineText = QByteArray::number(line);
    if (lineText.size() < 5)
        out.append(5 - lineText.size(), ' ');
    out.append(lineText).append(' ').append(QByteArray::number(pid)).append(' ');
    if (indent > 0)
        out.append(3 * indent, ' ');
    out.append(message);
    return out;
}
