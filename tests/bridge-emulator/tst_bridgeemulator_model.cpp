// The light model without sockets: colour conversions that keep a light's representations in
// line, the gamut clamp, and the light-set text of the command line.
#include <lightcolor.h>
#include <lightset.h>

#include <QtTest>

#include <cmath>

using namespace bridgeemu;

class TestBridgeEmulatorModel : public QObject
{
    Q_OBJECT
private slots:
    void colorTemperatureRoundTrip()
    {
        // Every colour temperature a lamp offers maps to a point on the white curve and back to
        // (nearly) itself, so that a light switched to ct reports a matching xy.
        for (int mired = 153; mired <= 500; mired += 7) {
            const XY point = xyFromMired(mired);
            QVERIFY2(std::abs(miredFromXY(point) - mired) <= mired / 25, qPrintable(QString::number(mired)));
        }
        const XY warm = xyFromMired(500);
        const XY cold = xyFromMired(153);
        QVERIFY(warm.x > 0.5 && cold.x < 0.32);
    }

    void hueSaturationRoundTrip_data()
    {
        QTest::addColumn<int>("hue");
        QTest::addColumn<int>("sat");
        QTest::addRow("red") << 0 << 254;
        QTest::addRow("cyan") << 32768 << 200;
        QTest::addRow("magenta") << 54613 << 150;
    }

    void hueSaturationRoundTrip()
    {
        QFETCH(int, hue);
        QFETCH(int, sat);
        int backHue = -1;
        int backSat = -1;
        hueSaturationFromXY(xyFromHueSaturation(hue, sat), backHue, backSat);
        const int hueDistance = std::min(std::abs(backHue - hue), 65536 - std::abs(backHue - hue));
        QVERIFY2(hueDistance <= 700, qPrintable(QString("%1 -> %2").arg(hue).arg(backHue)));
        QVERIFY2(std::abs(backSat - sat) <= 8, qPrintable(QString("%1 -> %2").arg(sat).arg(backSat)));
    }

    void gamutClamp_data()
    {
        QTest::addColumn<int>("gamut");
        QTest::addColumn<double>("x");
        QTest::addColumn<double>("y");
        QTest::addColumn<double>("expectedX");
        QTest::addColumn<double>("expectedY");
        QTest::addRow("inside C stays") << int(GamutType::C) << 0.3 << 0.3 << 0.3 << 0.3;
        QTest::addRow("beyond red of A") << int(GamutType::A) << 0.8 << 0.2 << 0.704 << 0.296;
        QTest::addRow("beyond green of B") << int(GamutType::B) << 0.2 << 0.8 << 0.409 << 0.518;
        QTest::addRow("onto the red-green edge of C") << int(GamutType::C) << 0.5 << 0.6 << 0.429 << 0.5055;
    }

    void gamutClamp()
    {
        QFETCH(int, gamut);
        QFETCH(double, x);
        QFETCH(double, y);
        QFETCH(double, expectedX);
        QFETCH(double, expectedY);
        const XY clamped = clampToGamut({x, y}, gamutOf(GamutType(gamut)));
        QCOMPARE(roundXY(clamped.x), expectedX);
        QCOMPARE(roundXY(clamped.y), expectedY);
    }

    void lightSet_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("kinds"); // one letter per light: o d t c e; empty for an error
        QTest::addRow("counts, one left out, zero, gamut suffix") << "extended:2,ct,onoff:0,color-b:1"
                                                                  << "eetc";
        // Unknown kind, bad count, gamut on a white light, unknown gamut.
        for (const char* bad : {"spot:2", "ct:x", "dimmable-c:1", "color-d:1"})
            QTest::addRow("%s", bad) << QString(bad) << QString();
    }

    void lightSet()
    {
        QFETCH(QString, text);
        QFETCH(QString, kinds);
        std::string error;
        const auto specs = parseLightSet(text.toStdString(), &error);
        QCOMPARE(bool(specs), !kinds.isEmpty());
        if (!specs) {
            QVERIFY(!error.empty());
            return;
        }
        QString letters;
        for (const LightSpec& light : *specs)
            letters += QLatin1Char("odtce"[int(light.kind)]);
        QCOMPARE(letters, kinds);
        QVERIFY(specs->back().gamut == GamutType::B);
    }
};

QTEST_MAIN(TestBridgeEmulatorModel)
#include "tst_bridgeemulator_model.moc"
