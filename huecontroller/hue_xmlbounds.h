#pragma once

#include <QByteArray>

namespace hue {

// Limits for XML from files and from the network. The DOM parser recurses once per element
// level, so a document nested a few ten thousand levels deep overflows the stack; these checks
// run first, with a pull parser that keeps its open elements on the heap.
struct XmlShape
{
    int depth = 0;           // deepest element level reached (the document element is 1)
    bool deeperThan = false; // stopped because the limit was passed
    bool hasDoctype = false; // a document type declaration (entity definitions) was seen
};

// Reads `xml` up to its end, a well-formedness error, or the first element deeper than
// `maxDepth`, whichever comes first.
XmlShape measureXml(const QByteArray& xml, int maxDepth);

} // namespace hue
