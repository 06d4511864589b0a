#include "hue_xmlbounds.h"

#include <QXmlStreamReader>

namespace hue {

XmlShape measureXml(const QByteArray& xml, int maxDepth)
{
    XmlShape shape;
    QXmlStreamReader reader(xml);
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            if (++depth > shape.depth)
                shape.depth = depth;
            if (depth > maxDepth) {
                shape.deeperThan = true;
                return shape;
            }
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        case QXmlStreamReader::DTD:
            shape.hasDoctype = true;
            break;
        default:
            break;
        }
    }
    return shape;
}

} // namespace hue
