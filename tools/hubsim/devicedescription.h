#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

// One datapoint or parameter of a device, as its description lists it.
struct DataPointInfo
{
    enum Direction
    {
        Input,     // written by the hub: dataPointValueChanged
        Output,    // reported by the device: sendDataPoint
        Parameter, // written by the hub: parameterValueChanged
    };

    Direction direction = Input;
    int index = 0;          // hub index: position within its list, counted from 0
    int functionId = -1;    // "pairingId" / "parameterId" read as hexadecimal; -1 when unreadable
    QString functionIdText; // the attribute as written
    QString name;           // readable name from the file, or the short form below when it has none

    // "idp3", "odp0", "pm1": the short form that always names the datapoint.
    QString shortName() const;
    static QString directionName(Direction direction); // "input", "output", "parameter"
};

// The datapoints of a device description XML: the first "channel" of the document's
// "channels" element holds "inputs" and "outputs" with "dataPoint" elements (attribute
// "pairingId") and "parameters" with "parameter" elements (attribute "parameterId"). Each list
// is numbered in document order from 0; that number is the hub index. A readable name comes
// from the first of the attributes "name", "label", "description" that the element carries.
class DeviceDescription
{
public:
    static DeviceDescription parse(const QByteArray& xml);

    bool isValid() const { return m_error.isEmpty(); }
    QString error() const { return m_error; }
    // Remarks about the file that do not make it invalid (unreadable ids, further channels).
    QStringList warnings() const { return m_warnings; }
    const QVector<DataPointInfo>& dataPoints() const { return m_points; }

    const DataPointInfo* find(DataPointInfo::Direction direction, int index) const;

    // Finds a datapoint of one of `directions` by its index ("3"), its short form ("idp10" in
    // decimal as shortName() writes it, or "idp000A" with the identifier's four hexadecimal
    // digits) or its name (case-insensitive). On failure `error` says why (unknown, or a key
    // that several datapoints match).
    const DataPointInfo* resolve(const QVector<DataPointInfo::Direction>& directions, const QString& key,
                                 QString* error) const;

private:
    QVector<DataPointInfo> m_points;
    QString m_error;
    QStringList m_warnings;
};
