#pragma once

#include "hue_datapoints.h"
#include "hue_lighttype.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>
#include <QVector>

class QDomElement;

namespace hue {

// The description of one kind of light: which input datapoints, output datapoints and
// parameters its hub device has, and at which hub index each one sits. It is read from an XML
// file whose raw text is also what the hub gets when a device of this kind is registered.
//
// File format: the document element holds "channels"; its first "channel" holds "inputs" and
// "outputs" with "dataPoint" elements (attribute "pairingId") and "parameters" with
// "parameter" elements (attribute "parameterId"), ids in hexadecimal. Each list is numbered in
// document order from 0 and that number is the hub index. Everything else in the file is for
// the hub and is not looked at here.
class CDevice : public QObject
{
    Q_OBJECT
public:
    // A description file is a few kilobytes and a handful of levels deep; anything much larger
    // or deeper is not one and is refused before the DOM parser sees it.
    static constexpr qint64 kMaxFileBytes = 256 * 1024;
    static constexpr int kMaxDepth = 32;

    CDevice(LightType type, const QString& fileName, QObject* parent);

    LightType type() const { return m_type; }
    QString fileName() const { return m_fileName; }
    void setFileName(const QString& fileName) { m_fileName = fileName; }

    // Reads and parses the file. A file that cannot be read or parsed leaves the description
    // empty, so that every lookup answers -1; the service keeps running without that kind.
    bool load();
    // The raw file; empty (and logged) when it cannot be opened or is larger than kMaxFileBytes.
    QByteArray xml() const;
    // Replaces the maps with those of the given document; false when it is not a description.
    bool parseXML(const QByteArray& xml);

    // Hub index -> value; -1 for an index that is not in the description (logged) or whose id
    // is unknown to this service.
    EInputDatapoint inputDatapointForIndex(int index) const;
    EOutputDatapoint outputDatapointForIndex(int index) const;
    EParameter parameterForIndex(int index) const;

    // Value -> hub index; -1 when the description does not offer it.
    int inputDatapointIndex(EInputDatapoint datapoint) const;
    int outputDatapointIndex(EOutputDatapoint datapoint) const;
    int parameterIndex(EParameter parameter) const;

    // Capabilities of the light type alone.
    bool isOnOff() const { return lightTypeCapability(m_type) == LightOnOff; }
    bool isDimmable() const { return lightTypeCapability(m_type) == LightDimmable; }
    bool isColorTemp() const { return lightTypeCapability(m_type) == LightColorTemperature; }
    bool isRGBColor() const { return lightTypeCapability(m_type) == LightColor; }
    bool isExtendedColor() const { return lightTypeCapability(m_type) == LightExtendedColor; }
    bool supportsBrightness() const { return !isOnOff(); }
    bool supportsColorTemp() const { return isColorTemp() || isExtendedColor(); }
    bool supportsColor() const { return isRGBColor() || isExtendedColor(); }

private:
    void clear();
    void parseInputs(const QDomElement& inputs);
    void parseOutputs(const QDomElement& outputs);
    void parseParameters(const QDomElement& parameters);

    LightType m_type;
    QString m_fileName;
    QHash<int, EInputDatapoint> m_inputs;
    QVector<int> m_inputPositions;
    QHash<int, EOutputDatapoint> m_outputs;
    QVector<int> m_outputPositions;
    QHash<int, EParameter> m_parameters;
    QVector<int> m_parameterPositions;
};

} // namespace hue
