#include "hue_device.h"

#include "hue_xmlbounds.h"

#include "common/logginginterface.h"

#include <QDomDocument>
#include <QDomElement>
#include <QFile>

namespace hue {

namespace {

// Reads one id attribute as hexadecimal ("0x1A" and "1A" both give 26); false when it does not parse.
bool parseHexId(const QDomElement& element, const QString& attribute, const char* failureText, int& id)
{
    bool ok = false;
    id = element.attribute(attribute).toInt(&ok, 16);
    if (!ok)
        LOG_WARNING << failureText << element.attribute(attribute);
    return ok;
}

// Numbers the elements named `tag` under `list` in document order (the hub index) and records
// index -> value and value -> index. Elements with an unknown id still take up their index.
template <typename Enum, typename Lookup, typename OnUnknown>
void readList(const QDomElement& list, const QString& tag, const QString& idAttribute,
              const char* failureText, QHash<int, Enum>& map, QVector<int>& positions, Lookup lookup,
              OnUnknown onUnknown)
{
    int index = 0;
    for (QDomElement e = list.firstChildElement(tag); !e.isNull(); e = e.nextSiblingElement(tag), ++index) {
        int id = 0;
        const bool parsed = parseHexId(e, idAttribute, failureText, id);
        const Enum value = parsed ? lookup(id) : Enum(-1);
        if (parsed && value < 0)
            onUnknown(e.attribute(idAttribute));
        map.insert(index, value);
        if (value >= 0)
            positions[value] = index;
    }
}

template <typename Enum> int positionOf(const QVector<int>& positions, Enum value)
{
    return value >= 0 && value < positions.size() ? positions[value] : -1;
}

} // namespace

CDevice::CDevice(LightType type, const QString& fileName, QObject* parent)
    : QObject(parent), m_type(type), m_fileName(fileName)
{
    clear();
}

bool CDevice::load()
{
    if (!parseXML(xml())) {
        LOG_ERROR << "Invalid device spec file" << m_fileName;
        return false;
    }
    return true;
}

QByteArray CDevice::xml() const
{
    QFile file(m_fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        LOG_ERROR << "Failed to load device spec file" << m_fileName << file.errorString();
        return QByteArray();
    }
    // Read one byte past the limit to tell a file of exactly the limit from a larger one (the
    // size reported for special files is not to be trusted).
    QByteArray content = file.read(kMaxFileBytes + 1);
    if (content.size() > kMaxFileBytes) {
        LOG_ERROR << "Failed to load device spec file" << m_fileName << "larger than" << kMaxFileBytes
                  << "bytes";
        return QByteArray();
    }
    return content;
}

void CDevice::clear()
{
    m_inputs.clear();
    m_outputs.clear();
    m_parameters.clear();
    m_inputPositions.fill(-1, InputDatapointCount);
    m_outputPositions.fill(-1, OutputDatapointCount);
    m_parameterPositions.fill(-1, ParameterCount);
}

bool CDevice::parseXML(const QByteArray& xml)
{
    clear();
    const XmlShape shape = measureXml(xml, kMaxDepth);
    if (shape.deeperThan) {
        LOG_WARNING << "device description nests deeper than" << kMaxDepth << "levels";
        return false;
    }
    QDomDocument document;
    QString message;
    int line = 0;
    if (!document.setContent(xml, &message, &line)) {
        LOG_WARNING << "device description is not well-formed XML, line" << line << message;
        return false;
    }
    const QDomElement channel = document.documentElement()
                                    .firstChildElement(QStringLiteral("channels"))
                                    .firstChildElement(QStringLiteral("channel"));
    if (channel.isNull()) {
        LOG_WARNING << "device description has no channel";
        return false;
    }
    parseInputs(channel.firstChildElement(QStringLiteral("inputs")));
    parseOutputs(channel.firstChildElement(QStringLiteral("outputs")));
    parseParameters(channel.firstChildElement(QStringLiteral("parameters")));
    return true;
}

void CDevice::parseInputs(const QDomElement& inputs)
{
    readList(inputs, QStringLiteral("dataPoint"), QStringLiteral("pairingId"), "Failed to parse pairingId",
             m_inputs, m_inputPositions, inputDatapointForPairingId,
             [](const QString& id) { LOG_WARNING << "Unknown input datapoint with pairingId" << id; });
}

void CDevice::parseOutputs(const QDomElement& outputs)
{
    readList(outputs, QStringLiteral("dataPoint"), QStringLiteral("pairingId"), "Failed to parse pairingId",
             m_outputs, m_outputPositions, outputDatapointForPairingId,
             [](const QString& id) { LOG_WARNING << "Unknown output datapoint with pairingId" << id; });
}

void CDevice::parseParameters(const QDomElement& parameters)
{
    readList(parameters, QStringLiteral("parameter"), QStringLiteral("parameterId"),
             "Failed to parse parameterId", m_parameters, m_parameterPositions, parameterForParameterId,
             [](const QString& id) { LOG_WARNING << "Unkown parameter id" << id; });
}

EInputDatapoint CDevice::inputDatapointForIndex(int index) const
{
    const auto it = m_inputs.constFind(index);
    if (it == m_inputs.constEnd()) {
        LOG_WARNING << "Unknown input datapoint index" << index << m_fileName;
        return IDP_INVALID;
    }
    return *it;
}

EOutputDatapoint CDevice::outputDatapointForIndex(int index) const
{
    const auto it = m_outputs.constFind(index);
    if (it == m_outputs.constEnd()) {
        LOG_WARNING << "Unknown output datapoint index" << index << m_fileName;
        return ODP_INVALID;
    }
    return *it;
}

EParameter CDevice::parameterForIndex(int index) const
{
    const auto it = m_parameters.constFind(index);
    if (it == m_parameters.constEnd()) {
        LOG_WARNING << "Unknown parameter index" << index << m_fileName;
        return PARAM_INVALID;
    }
    return *it;
}

int CDevice::inputDatapointIndex(EInputDatapoint datapoint) const
{
    return positionOf(m_inputPositions, datapoint);
}

int CDevice::outputDatapointIndex(EOutputDatapoint datapoint) const
{
    return positionOf(m_outputPositions, datapoint);
}

int CDevice::parameterIndex(EParameter parameter) const
{
    return positionOf(m_parameterPositions, parameter);
}

} // namespace hue
