#include "hue_upnpdescription.h"

#include "hue_xmlbounds.h"

#include <QDomDocument>
#include <QDomElement>

namespace hue {

UpnpDescription UpnpDescription::parse(const QByteArray& body)
{
    UpnpDescription description;
    const XmlShape shape = measureXml(body, kMaxDepth);
    if (shape.deeperThan) {
        description.result = TooDeep;
        return description;
    }
    if (shape.hasDoctype) {
        description.result = HasDoctype;
        return description;
    }
    QDomDocument document;
    if (!document.setContent(body, &description.message, &description.line, &description.column)) {
        description.result = ParseError;
        return description;
    }
    description.modelName = document.documentElement()
                                .firstChildElement(QStringLiteral("device"))
                                .firstChildElement(QStringLiteral("modelName"))
                                .text();
    description.result = Ok;
    return description;
}

bool UpnpDescription::looksLikeHueBridge() const
{
    return result == Ok && modelName.contains(QLatin1String("philips hue bridge"), Qt::CaseInsensitive);
}

} // namespace hue
