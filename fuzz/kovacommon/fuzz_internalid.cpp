// Feeds arbitrary bytes to the identifier and scaling-speed parsers and to the binary identifier forms.
// Whatever is accepted must survive the way back through its text form unchanged.
#include <kovacommon/internalid.h>
#include <kovacommon/knxscalingspeed.h>

#include <QByteArray>
#include <QDataStream>

#include <cstdint>
#include <cstdlib>

namespace {

void discardMessage(QtMsgType, const QMessageLogContext&, const QString&) {}

// The text built from the fields alone (no cached text) must parse back to the same identifier.
void checkTextRoundTrip(const InternalId& id)
{
    if (!id.isValid())
        return;
    char wire[InternalId::WireSize];
    id.writeWire(wire);
    const InternalId rebuilt = InternalId::readWire(wire);
    if (rebuilt != id)
        abort();
    const QByteArray text = rebuilt.toString();
    const InternalId parsed(text);
    if (parsed != id || parsed.toString() != text || InternalId(id.toString()) != id)
        abort();
    if (id.isComponentOf(id) || (id.getKind() != InternalId::Device && !id.isComponentOf(id.toDeviceId())))
        abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    qInstallMessageHandler(discardMessage);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));

    const InternalId id(bytes);
    (void)id.toLoggingString();
    checkTextRoundTrip(id);

    if (size >= size_t(InternalId::WireSize))
        checkTextRoundTrip(InternalId::readWire(bytes.constData()));

    QDataStream stream(bytes);
    InternalId fromStream;
    stream >> fromStream;
    checkTextRoundTrip(fromStream);

    if (const auto speed = kova::KNXScalingSpeed::fromString(bytes)) {
        if (speed->targetPercent() > kova::KNXScalingSpeed::MaxPercent || speed->toString() != bytes)
            abort();
    }
    return 0;
}
