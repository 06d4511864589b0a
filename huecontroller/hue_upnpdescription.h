#pragma once

#include <QByteArray>
#include <QString>

namespace hue {

// What a UPnP description document says about the device behind it, read without any I/O so
// that tests and the fuzzer can feed it anything an answering device may send.
struct UpnpDescription
{
    enum Result
    {
        Ok,
        ParseError, // not well-formed: line, column and message say where and why
        TooDeep,    // nested deeper than kMaxDepth: refused before the DOM parser sees it
        HasDoctype, // a document type declaration, which a device description never needs
    };

    // A bridge's document is about 2 KB and 5 levels deep.
    static constexpr qint64 kMaxBytes = 64 * 1024;
    static constexpr int kMaxDepth = 16;

    Result result = ParseError;
    int line = 0;
    int column = 0;
    QString message;
    // root element > "device" > "modelName"; empty when the document has none.
    QString modelName;

    static UpnpDescription parse(const QByteArray& body);
    bool looksLikeHueBridge() const;
};

} // namespace hue
