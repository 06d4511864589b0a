// libFuzzer target for the reader of UPnP description documents (GET of the "LOCATION" that a
// device announces by SSDP): the depth and document-type checks and the DOM read after them.
//
// The whole input is the document. What the reader reports must agree with the shape check
// it is built on: a document it reads has no document type and is nested no deeper than the
// limit, and only a document it reads can look like a Hue bridge.
#include "huecontroller/hue_upnpdescription.h"
#include "huecontroller/hue_xmlbounds.h"

#include <QtGlobal>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > std::size_t(hue::UpnpDescription::kMaxBytes))
        return 0; // the listener drops longer answers unread
    const QByteArray body(reinterpret_cast<const char*>(data), int(size));
    const hue::UpnpDescription description = hue::UpnpDescription::parse(body);
    const hue::XmlShape shape = hue::measureXml(body, hue::UpnpDescription::kMaxDepth);
    switch (description.result) {
    case hue::UpnpDescription::Ok:
        if (shape.deeperThan || shape.hasDoctype || shape.depth > hue::UpnpDescription::kMaxDepth)
            abort();
        break;
    case hue::UpnpDescription::TooDeep:
        if (!shape.deeperThan)
            abort();
        break;
    case hue::UpnpDescription::HasDoctype:
        if (!shape.hasDoctype)
            abort();
        break;
    case hue::UpnpDescription::ParseError:
        if (!description.modelName.isEmpty())
            abort();
        break;
    }
    if (description.looksLikeHueBridge() && description.result != hue::UpnpDescription::Ok)
        abort();
    return 0;
}
