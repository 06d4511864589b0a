#include "huecontroller/hue_controller.h"
#include "huecontroller/hue_device.h"
#include "huecontroller/hue_globals.h"

#include "common/logginginterface.h"

#include <QFile>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

using namespace hue;

namespace {

QByteArray specWith(const QByteArray& inputs, const QByteArray& outputs = {},
                    const QByteArray& parameters = {})
{
    return "<device><channels><channel><inputs>" + inputs + "</inputs><outputs>" + outputs +
           "</outputs><parameters>" + parameters + "</parameters></channel></channels></device>";
}

QByteArray dataPoints(const QStringList& ids, const char* element = "dataPoint",
                      const char* attr = "pairingId")
{
    QByteArray xml;
    for (const QString& id : ids)
        xml += QByteArray("<") + element + " " + attr + "=\"" + id.toLatin1() + "\"/>";
    return xml;
}

} // namespace

class TestDevice : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_log.clear();
        setLogSink([this](int, const QByteArray& line) { m_log << line; });
    }
    void cleanup() { setLogSink({}); }

    void inputIndexes_data()
    {
        QTest::addColumn<QStringList>("ids");
        QTest::addColumn<QList<int>>("values"); // by hub index
        QTest::addColumn<QString>("logged");
        QTest::addRow("unknown id keeps its index")
            << QStringList{"0x1", "0x99", "0x11"}
            << QList<int>{IDP_SWITCH_ON_OFF, -1, IDP_ABSOLUTE_SET_VALUE_CONTROL}
            << "Unknown input datapoint with pairingId 0x99";
        QTest::addRow("hex without 0x")
            << QStringList{"1A", "1ac"} << QList<int>{IDP_BRIGHTNESS, IDP_TIMED_DIMMING} << QString();
        QTest::addRow("unparsable id")
            << QStringList{"zz", "0x17"} << QList<int>{-1, IDP_HSV_COLOR} << "Failed to parse pairingId zz";
    }
    void inputIndexes()
    {
        QFETCH(QStringList, ids);
        QFETCH(QList<int>, values);
        QFETCH(QString, logged);
        CDevice device(LightExtendedColor, QString(), nullptr);
        QVERIFY(device.parseXML(specWith(dataPoints(ids))));
        for (int index = 0; index < values.size(); ++index) {
            QCOMPARE(int(device.inputDatapointForIndex(index)), values[index]);
            if (values[index] >= 0)
                QCOMPARE(device.inputDatapointIndex(EInputDatapoint(values[index])), index);
        }
        QCOMPARE(device.inputDatapointIndex(IDP_HUE), -1);
        if (!logged.isEmpty())
            QVERIFY2(m_log.join('\n').contains(logged.toLatin1()), m_log.join('\n'));
    }

    void outputsAndParameters()
    {
        CDevice device(LightDimmable, QString(), nullptr);
        QVERIFY(device.parseXML(specWith({}, dataPoints({"0x110", "0x1AD", "0x1"}),
                                         dataPoints({"0x15", "0x77", "0x25"}, "parameter", "parameterId"))));
        QCOMPARE(device.outputDatapointForIndex(1), ODP_INFO_TIMED_DIMMING);
        QCOMPARE(device.outputDatapointForIndex(2), ODP_INVALID);
        QCOMPARE(device.outputDatapointIndex(ODP_INFO_ACTUAL_DIMMING_VALUE), 0);
        QCOMPARE(device.parameterForIndex(0), PARAM_TIMER_DURATION);
        QCOMPARE(device.parameterForIndex(1), PARAM_INVALID);
        QCOMPARE(device.parameterIndex(PARAM_SWITCH_ON_MODE), 2);
        QCOMPARE(device.parameterIndex(PARAM_MAX_BRIGHTNESS_DAY), -1);
        QVERIFY(m_log.join('\n').contains("Unknown output datapoint with pairingId 0x1"));
        QVERIFY(m_log.join('\n').contains("Unkown parameter id 0x77"));

        // Indexes past the lists are unknown to the description, and said so.
        m_log.clear();
        QCOMPARE(device.inputDatapointForIndex(0), IDP_INVALID);
        QCOMPARE(device.outputDatapointForIndex(3), ODP_INVALID);
        QCOMPARE(device.parameterForIndex(-1), PARAM_INVALID);
        const QByteArray log = m_log.join('\n');
        QVERIFY(log.contains("Unknown input datapoint index 0"));
        QVERIFY(log.contains("Unknown output datapoint index 3"));
        QVERIFY(log.contains("Unknown parameter index -1"));
    }

    void unreadableFileLeavesEmptyDescription()
    {
        CDevice device(LightOnOff, QStringLiteral("/nonexistent/hue-onoff.xml"), nullptr);
        QVERIFY(!device.load());
        const QByteArray log = m_log.join('\n');
        QVERIFY(log.contains("Failed to load device spec file"));
        QVERIFY(log.contains("Invalid device spec file"));
        QCOMPARE(device.inputDatapointIndex(IDP_SWITCH_ON_OFF), -1);
        QVERIFY(!device.parseXML("<device><channels/></device>"));
        QVERIFY(!device.parseXML("<device"));

        // Too deep for the DOM parser's recursion, or too large to be a description.
        m_log.clear();
        QVERIFY(!device.parseXML(QByteArray("<a>").repeated(30000) + QByteArray("</a>").repeated(30000)));
        QVERIFY(m_log.join('\n').contains("device description nests deeper than 32 levels"));
        QTemporaryDir dir;
        QFile large(dir.filePath(QStringLiteral("large.xml")));
        QVERIFY(large.open(QIODevice::WriteOnly) && large.write(QByteArray(CDevice::kMaxFileBytes + 1, ' ')));
        large.close();
        CDevice oversized(LightOnOff, large.fileName(), nullptr);
        QVERIFY(oversized.xml().isEmpty());
        QVERIFY(m_log.join('\n').contains("larger than 262144 bytes"));
    }

    void capabilities_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("expected"); // onoff dimmable ct rgb ext | brightness ct colour
        const char* rows[] = {"10000000", "01000100", "00100110", "00010101", "00001111"};
        for (int t = 0; t < LightTypeCount; ++t)
            QTest::addRow("%s", lightSpecFileName(LightType(t))) << t << QString(rows[t % 5]);
    }
    void capabilities()
    {
        QFETCH(int, type);
        QFETCH(QString, expected);
        const CDevice d(LightType(type), QString(), nullptr);
        const bool got[] = {d.isOnOff(),           d.isDimmable(),      d.isColorTemp(),
                            d.isRGBColor(),        d.isExtendedColor(), d.supportsBrightness(),
                            d.supportsColorTemp(), d.supportsColor()};
        QString actual;
        for (bool b : got)
            actual += b ? '1' : '0';
        QCOMPARE(actual, expected);
    }

    // Every shipped description parses completely, and what it offers is what its type can do.
    void shippedDescriptions_data() { capabilities_data(); }
    void shippedDescriptions()
    {
        QFETCH(int, type);
        ConstDataDir = QStringLiteral(HUE_CONST_DATA_DIR);
        CController controller;
        controller.loadLightSpecs();
        const CDevice* d = controller.deviceByType(LightType(type));
        QVERIFY(d);
        QCOMPARE(int(d->type()), type);
        QVERIFY2(m_log.isEmpty(), m_log.join('\n'));

        QSet<int> inputs;
        for (int i = 0; i < InputDatapointCount; ++i) {
            const int index = d->inputDatapointIndex(EInputDatapoint(i));
            if (index >= 0) {
                QCOMPARE(int(d->inputDatapointForIndex(index)), i);
                inputs << i;
            }
        }
        QSet<int> outputs;
        for (int o = 0; o < OutputDatapointCount; ++o) {
            if (d->outputDatapointIndex(EOutputDatapoint(o)) >= 0)
                outputs << o;
        }
        QVERIFY(inputs.contains(IDP_SWITCH_ON_OFF) && outputs.contains(ODP_INFO_ON_OFF));
        for (int i : {IDP_RELATIVE_SET_VALUE_CONTROL, IDP_ABSOLUTE_SET_VALUE_CONTROL, IDP_BRIGHTNESS,
                      IDP_TIMED_DIMMING})
            QCOMPARE(inputs.contains(i), d->supportsBrightness());
        QCOMPARE(outputs.contains(ODP_INFO_ACTUAL_DIMMING_VALUE), d->supportsBrightness());
        QCOMPARE(inputs.contains(IDP_COLOR_TEMPERATURE), d->supportsColorTemp());
        QCOMPARE(outputs.contains(ODP_INFO_COLOR_TEMPERATURE), d->supportsColorTemp());
        for (int i : {IDP_RGB_COLOR, IDP_HSV_COLOR, IDP_HUE, IDP_SATURATION})
            QCOMPARE(inputs.contains(i), d->supportsColor());
        QCOMPARE(outputs.contains(ODP_INFO_RGB_COLOR), d->supportsColor());
        QCOMPARE(outputs.contains(ODP_INFO_COLOR_MODE), d->isExtendedColor());
        QVERIFY(d->parameterIndex(PARAM_SWITCH_ON_MODE) >= 0);
        QCOMPARE(d->parameterIndex(PARAM_MAX_BRIGHTNESS_NIGHT) >= 0, d->supportsBrightness());
    }

private:
    QByteArrayList m_log;
};

QTEST_GUILESS_MAIN(TestDevice)
#include "tst_device.moc"
