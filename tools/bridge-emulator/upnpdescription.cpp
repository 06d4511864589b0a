#include "upnpdescription.h"

namespace bridgeemu {

std::string escapeXml(const std::string& text)
{
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&apos;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

std::string upnpDescription(const BridgeIdentity& identity, int urlBasePort)
{
    const std::string serial = macDigits(identity.mac);
    const std::string port = std::to_string(urlBasePort);
    // The UDN of every Hue bridge is this fixed UUID prefix followed by its MAC address.
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
           "<root xmlns=\"urn:schemas-upnp-org:device-1-0\">\n"
           "<specVersion>\n<major>1</major>\n<minor>0</minor>\n</specVersion>\n"
           "<URLBase>http://127.0.0.1:" +
           port +
           "/</URLBase>\n"
           "<device>\n"
           "<deviceType>urn:schemas-upnp-org:device:Basic:1</deviceType>\n"
           "<friendlyName>" +
           escapeXml(identity.name) +
           " (127.0.0.1)</friendlyName>\n"
           "<manufacturer>Signify</manufacturer>\n"
           "<modelDescription>Philips hue Personal Wireless Lighting</modelDescription>\n"
           "<modelName>Philips hue bridge 2015</modelName>\n"
           "<modelNumber>" +
           escapeXml(identity.modelId) +
           "</modelNumber>\n"
           "<serialNumber>" +
           serial +
           "</serialNumber>\n"
           "<UDN>uuid:2f402f80-da50-11e1-9b23-" +
           serial +
           "</UDN>\n"
           "<presentationURL>index.html</presentationURL>\n"
           "<iconList>\n<icon>\n<mimetype>image/png</mimetype>\n<height>48</height>\n<width>48</width>\n"
           "<depth>24</depth>\n<url>hue_logo_0.png</url>\n</icon>\n</iconList>\n"
           "</device>\n"
           "</root>\n";
}

std::shared_ptr<const PatternBody> shapedDescription(const DescriptionShape& shape,
                                                     const BridgeIdentity& identity, int urlBasePort)
{
    auto body = std::make_shared<PatternBody>();
    const std::string normal = upnpDescription(identity, urlBasePort);
    const std::string rootStart = "<root xmlns=\"urn:schemas-upnp-org:device-1-0\">\n";
    const std::size_t afterRoot = normal.find(rootStart) + rootStart.size();
    if (shape.mode == DescriptionShape::Mode::Deep) {
        const std::size_t inner = shape.amount > 1 ? shape.amount - 1 : 0;
        body->add(normal.substr(0, afterRoot))
            .add("<device>", inner)
            .add("</device>", inner)
            .add("</root>\n");
    } else if (shape.mode == DescriptionShape::Mode::Huge) {
        // The padding comes before the device, so that a reader must get through all of it to
        // find the serial number.
        const std::string open = "<!--", close = "-->\n";
        const std::size_t fixed = normal.size() + open.size() + close.size();
        body->add(normal.substr(0, afterRoot))
            .add(open)
            .add("x", shape.amount > fixed ? shape.amount - fixed : 0)
            .add(close)
            .add(normal.substr(afterRoot));
    } else {
        body->add(normal);
    }
    return body;
}

} // namespace bridgeemu
