#include <common/logginginterface.h>
#include <huecontroller/hue_colorconvert.h>
#include <kovacommon/internalid.h>

#include <QtTest>

#include <cmath>

using namespace hue;

Q_DECLARE_METATYPE(XYPoint)
Q_DECLARE_METATYPE(XYGamut)
Q_DECLARE_METATYPE(Matrix3x3)
// A scalar conversion behind one signature, so that the cases of all of them share one table.
using Scale = double (*)(double value, int miredMin, int miredMax);
Q_DECLARE_METATYPE(Scale)

// Readable values in QCOMPARE failures.
namespace hue {
char* toString(const XYPoint& value)
{
    return qstrdup(qPrintable(value.toString()));
}
char* toString(const Matrix3x3& value)
{
    return qstrdup(qPrintable(value.toString()));
}
} // namespace hue

namespace {

const XYGamut kA = ColorConvert::gamutA(), kB = ColorConvert::gamutB(), kC = ColorConvert::gamutC();
const XYGamut kFull = ColorConvert::fullGamut();
const Matrix3x3 kToXyz = ColorConvert::calculateRGBtoXYZMatrix(kC, ColorConvert::whitepointC());
const Matrix3x3 kToRgb = kToXyz.inverse();

bool near(const XYPoint& a, const XYPoint& b, float tolerance = 1e-6f)
{
    return std::fabs(a.x - b.x) <= tolerance && std::fabs(a.y - b.y) <= tolerance;
}

// The largest difference of one 8-bit channel between two packed RGB values.
int channelDistance(uint a, uint b)
{
    const auto diff = [a, b](int shift) { return std::abs(int(a >> shift & 0xFF) - int(b >> shift & 0xFF)); };
    return std::max({diff(16), diff(8), diff(0)});
}

const Scale kBriToApi = [](double v, int, int) { return ColorConvert::convertHueBrightnessToApi(int(v)); };
const Scale kBriToHue = [](double v, int, int) { return double(ColorConvert::convertApiBrightnessToHue(v)); };
const Scale kHueToApi = [](double v, int, int) { return ColorConvert::convertHueHueToApi(int(v)); };
const Scale kHueToHue = [](double v, int, int) { return double(ColorConvert::convertApiHueToHue(v)); };
const Scale kSatToApi = [](double v, int, int) { return ColorConvert::convertHueSaturationToApi(int(v)); };
const Scale kSatToHue = [](double v, int, int) { return ColorConvert::convertApiSaturationToHue(v); };
const Scale kCtToPercent = [](double v, int lo, int hi) {
    return double(ColorConvert::convertMiredToPercent(int(v), lo, hi, InternalId()));
};
const Scale kPercentToCt = [](double v, int lo, int hi) {
    return double(ColorConvert::convertPercentToMired(float(v), lo, hi));
};

constexpr int ToRgb = 1, FromRgb = 2, BothWays = 3; // which conversions a row checks

} // namespace

class TestColorConvert : public QObject
{
    Q_OBJECT

private slots:
    void scales_data()
    {
        QTest::addColumn<Scale>("scale");
        QTest::addColumn<double>("input");
        QTest::addColumn<double>("expected");
        QTest::addColumn<int>("lo"); // mired limits
        QTest::addColumn<int>("hi");
        const auto row = [](const char* name, Scale scale, double input, double expected, int lo = 0,
                            int hi = 0) {
            QTest::addRow("%s", name) << scale << input << expected << lo << hi;
        };
        row("bri 0 clamps", kBriToApi, 0, 1);
        row("100% -> 254", kBriToHue, 100, 254);
        row("0.5% -> 1", kBriToHue, 0.5, 1);
        row("1.2% rounds up", kBriToHue, 1.2, 2);
        row("1.19% rounds down", kBriToHue, 1.19, 1);
        row("hue 32768", kHueToApi, 32768, 50.00076295109483);
        row("100% -> 65535", kHueToHue, 100, 65535);
        row("50%: half rounds away", kHueToHue, 50, 32768);
        row("75%: half rounds away", kSatToHue, 75, 191);
        row("default 303: 50.17", kCtToPercent, 303, 50, 153, 454);
        row("IKEA 153 clamps", kCtToPercent, 153, 100, 250, 454);
        row("OSRAM 454 clamps", kCtToPercent, 454, 0, 153, 370);
        row("equal limits", kCtToPercent, 300, 0, 300, 300);
        row("inverted limits: lower bound last", kCtToPercent, 300, 100, 454, 153);
        row("0% -> warmest", kPercentToCt, 0, 454, 153, 454);
        row("150%: 2.5 rounds away", kPercentToCt, 150, 3, 153, 454);
        row("400%: negative gives 0", kPercentToCt, 400, 0, 153, 454);
    }

    void scales()
    {
        QFETCH(Scale, scale);
        QFETCH(double, input);
        QFETCH(int, lo);
        QFETCH(int, hi);
        QTEST(scale(input, lo, hi), "expected");
    }

    void percentMiredRoundTrips()
    {
        for (const auto& [lo, hi] : {std::pair{250, 454}, {153, 370}, {153, 454}}) {
            for (int p = 0; p <= 100; ++p) {
                const unsigned mired = ColorConvert::convertPercentToMired(float(p), lo, hi);
                QVERIFY(mired >= unsigned(lo) && mired <= unsigned(hi));
                QCOMPARE(ColorConvert::convertMiredToPercent(int(mired), lo, hi, InternalId()), float(p));
            }
        }
    }

    void hsb_data()
    {
        QTest::addColumn<uint>("hsb"); // brightness << 24 | saturation << 16 | hue
        QTest::addColumn<uint>("rgb");
        QTest::addColumn<int>("direction");
        QTest::addRow("black") << 0x00000000u << 0x000000u << BothWays;
        QTest::addRow("white") << 0xFE000000u << 0xFFFFFFu << BothWays;
        QTest::addRow("grey: half rounds up") << 0x7F000000u << 0x808080u << BothWays;
        QTest::addRow("red") << 0xFEFE0000u << 0xFF0000u << BothWays;
        QTest::addRow("blue") << 0xFEFEAAABu << 0x0000FFu << BothWays;
        QTest::addRow("magenta: red wins the tie") << 0xFEFED555u << 0xFF00FFu << BothWays;
        QTest::addRow("orange from HSB") << 0xFE7F1555u << 0xFFBF80u << ToRgb;
        QTest::addRow("orange to HSB") << 0xFE7F152Au << 0xFFBF80u << FromRgb;
        QTest::addRow("negative sixths get a full turn") << 0xFEFEFFD5u << 0xFF0001u << FromRgb;
        QTest::addRow("top byte ignored") << 0xFEFEAAABu << 0xAB0000FFu << FromRgb;
    }

    void hsb()
    {
        QFETCH(uint, hsb);
        QFETCH(uint, rgb);
        QFETCH(int, direction);
        if (direction & ToRgb)
            QCOMPARE(ColorConvert::convertHSBToRGB(hsb & 0xFFFF, (hsb >> 16) & 0xFF, hsb >> 24), rgb);
        if (direction & FromRgb)
            QCOMPARE(ColorConvert::convertRGBToHSB(rgb), hsb);
    }

    void hsbRoundTripStaysClose()
    {
        for (int i = 0; i < 18 * 18 * 18; ++i) { // every channel in steps of 15
            const uint rgb = ColorConvert::getRgb(i % 18 * 15, i / 18 % 18 * 15, i / 324 * 15);
            const uint hsb = ColorConvert::convertRGBToHSB(rgb);
            const uint back = ColorConvert::convertHSBToRGB(hsb & 0xFFFF, (hsb >> 16) & 0xFF, hsb >> 24);
            QVERIFY2(channelDistance(rgb, back) <= 1, qPrintable(QString::number(rgb, 16)));
        }
        // Values beyond the bridge's ranges clip per channel.
        QCOMPARE(ColorConvert::convertHSBToRGB(0, 300, 254), 0xFF0000u);
        QCOMPARE(ColorConvert::convertHSBToRGB(0, 0, 300), 0xFFFFFFu);
    }

    void gamutClamp_data()
    {
        QTest::addColumn<XYGamut>("gamut");
        QTest::addColumn<XYPoint>("point");
        QTest::addColumn<bool>("inside");
        QTest::addColumn<XYPoint>("moved");
        QTest::addRow("C red corner") << kC << kC.red << true << kC.red;
        QTest::addRow("full: just below") << kFull << XYPoint{0.5f, -0.001f} << false << XYPoint{0.5f, 0};
        QTest::addRow("onto red-green")
            << kC << XYPoint{0.4f, 0.8f} << false << XYPoint{0.269048f, 0.625619f};
        QTest::addRow("onto blue-red") << kC << XYPoint{0.5f, 0} << false << XYPoint{0.415716f, 0.174728f};
        QTest::addRow("onto green-blue")
            << kC << XYPoint{0.1f, 0.3f} << false << XYPoint{0.15953f, 0.298448f};
        QTest::addRow("beyond red") << kC << XYPoint{0.8f, 0.2f} << false << kC.red;
        QTest::addRow("beyond blue") << kC << XYPoint{0, 0} << false << kC.blue;
    }

    void gamutClamp()
    {
        QFETCH(XYGamut, gamut);
        QFETCH(XYPoint, point);
        QFETCH(XYPoint, moved);
        QTEST(ColorConvert::checkPointInLampsReach(point, gamut), "inside");
        const XYPoint actual = ColorConvert::moveIntoLampsReach(point, gamut);
        QVERIFY2(near(actual, moved), qPrintable(actual.toString()));
    }

    void matrixAlgebra()
    {
        const Matrix3x3 m(1, 2, 3, 0, 1, 4, 5, 6, 0);
        QCOMPARE(m.det(), 1.0);
        QCOMPARE(m.inverse(), Matrix3x3(-24, 18, 5, 20, -15, -4, -5, 4, 1));
        QCOMPARE(m * m.inverse(), Matrix3x3::identity());
        QVERIFY(m * Vector3(1, 1, 1) == Vector3(6, 5, 11));
        // Singular: zero, rank 2, rank 1, a zero column. The inverse is zero, not the identity.
        for (const Matrix3x3& singular :
             {Matrix3x3(), Matrix3x3(1, 2, 3, 4, 5, 6, 7, 8, 9), Matrix3x3(1, 2, 3, 2, 4, 6, -1, -2, -3),
              Matrix3x3(1, 0, 3, 4, 0, 6, 7, 0, 9)}) {
            QCOMPARE(singular.det(), 0.0);
            QCOMPARE(singular.inverse(), Matrix3x3());
        }
    }

    void gamutMatricesAndEdgeCases()
    {
        const std::pair<XYGamut, XYPoint> gamuts[] = {{kA, ColorConvert::whitepointA()},
                                                      {kB, ColorConvert::whitepointB()},
                                                      {kC, ColorConvert::whitepointC()}};
        for (const auto& [gamut, white] : gamuts) {
            // RGB white lands on the white point; the two matrices are inverse to each other.
            const Matrix3x3 toXyz = ColorConvert::calculateRGBtoXYZMatrix(gamut, white);
            const Matrix3x3 identity = toXyz * ColorConvert::calculateXYZtoRGBMatrix(gamut, white);
            for (int i = 0; i < 9; ++i)
                QVERIFY(std::fabs(identity[i] - (i % 4 == 0 ? 1.0 : 0.0)) < 1e-9);
            for (int i = 0; i < 3; ++i)
                QVERIFY(std::fabs((toXyz * Vector3(1, 1, 1))[i] - ColorConvert::xyToXYZ(white)[i]) < 1e-9);
        }
        // Corners on one line: no matrix, so no colour rather than a wrong one.
        const XYGamut collinear{{0.2f, 0.2f}, {0.4f, 0.4f}, {0.6f, 0.6f}};
        QCOMPARE(ColorConvert::calculateXYZtoRGBMatrix(collinear, ColorConvert::whitepointC()), Matrix3x3());
        QVERIFY(!ColorConvert::checkPointInLampsReach({0.3f, 0.3f}, collinear));
        QVERIFY(!ColorConvert::checkPointInLampsReach({NAN, 0.3f}, kFull));
        // At a corner one edge gives the corner exactly (t = 0), the other one rounding off it
        // (t = 1), at the same float distance: the earlier edge (red-green, blue-red, green-blue) wins.
        QCOMPARE(ColorConvert::moveIntoLampsReach({-0.5f, -0.5f}, kA), kA.blue);
        QCOMPARE(ColorConvert::moveIntoLampsReach({1.06999993f, -0.389999986f}, kB), kB.red);
    }

    void xy_data()
    {
        QTest::addColumn<uint>("rgb");
        QTest::addColumn<XYPoint>("xy");
        QTest::addColumn<int>("bri");
        QTest::addColumn<int>("direction");
        const XYPoint white = ColorConvert::whitepointC();
        QTest::addRow("white") << 0xFFFFFFu << white << 255 << BothWays;
        QTest::addRow("red corner") << 0xFF0000u << kC.red << 86 << BothWays;
        QTest::addRow("orange") << 0xFF8000u << XYPoint{0.61286894f, 0.36742407f} << 121 << BothWays;
        QTest::addRow("dark green: linear segment")
            << 0xFF0A00u << XYPoint{0.69069176f, 0.30898241f} << 86 << BothWays;
        QTest::addRow("blue") << 0x0000FFu << kC.blue << 8 << FromRgb;
        QTest::addRow("black: 0,0 is outside C") << 0x000000u << kC.blue << 0 << FromRgb;
        QTest::addRow("white, half") << 0xBCBCBCu << white << 127 << ToRgb;
        QTest::addRow("beyond red, clamped") << 0xFF0000u << XYPoint{0.8f, 0.2f} << 254 << ToRgb;
        QTest::addRow("small channels: linear segment")
            << 0x0AFF05u << XYPoint{0.17188628f, 0.69785032f} << 254 << ToRgb;
        QTest::addRow("warm, scaled into range") << 0xFFC37Du << XYPoint{0.5f, 0.4f} << 200 << ToRgb;
    }

    void xy()
    {
        QFETCH(uint, rgb);
        QFETCH(XYPoint, xy);
        QFETCH(int, bri);
        QFETCH(int, direction);
        if (direction & ToRgb)
            QCOMPARE(ColorConvert::convertXYToRGB(xy.x, xy.y, bri, kToRgb, kC), rgb);
        if (direction & FromRgb) {
            XYPoint actual;
            int actualBri = -1;
            ColorConvert::convertRgbToXY(&actual.x, &actual.y, &actualBri, rgb, kToXyz, kC);
            QVERIFY2(near(actual, xy), qPrintable(actual.toString()));
            QCOMPARE(actualBri, bri);
        }
    }

    void rgbXyRoundTripStaysClose()
    {
        // Colours with one full channel (red, green, blue in turn; the others in steps of 17) come
        // back from xy when the bridge brightness keeps their luminance (bri / 254 >= Y, sure from
        // bri 128 on): the rescaling to the largest channel undoes the rounding.
        int checked = 0;
        for (int i = 0; i < 3 * 16 * 16; ++i) {
            const int full = 16 - 8 * (i / 256), a = i % 16 * 17, b = i / 16 % 16 * 17;
            const uint rgb = 0xFFu << full | uint(a) << (full + 8) % 24 | uint(b) << (full + 16) % 24;
            float x, y;
            int bri;
            ColorConvert::convertRgbToXY(&x, &y, &bri, rgb, kToXyz, kC);
            // Inside, or on an edge up to float rounding.
            QVERIFY(near({x, y}, ColorConvert::moveIntoLampsReach({x, y}, kC)));
            if (bri >= 128) {
                const uint back = ColorConvert::convertXYToRGB(x, y, bri, kToRgb, kC);
                QVERIFY2(channelDistance(rgb, back) <= 1, qPrintable(QString::number(rgb, 16)));
                ++checked;
            }
        }
        QVERIFY(checked > 200);
        // y = 0 divides by zero on purpose; the result must still be a packed colour.
        QVERIFY(ColorConvert::convertXYToRGB(0.3f, 0.0f, 254, kToRgb, kFull) <= 0xFFFFFFu);
    }

    void lookup_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<XYGamut>("gamut"); // the full gamut where lookupGamut falls back
        QTest::addColumn<QString>("model");
        QTest::addColumn<XYPoint>("white");
        const XYPoint wa = ColorConvert::whitepointA(), wb = ColorConvert::whitepointB(),
                      wc = ColorConvert::whitepointC();
        QTest::addRow("type A") << "A" << kA << "" << wa;
        QTest::addRow("type beats model") << "C" << kC << "LCT001" << wc;
        QTest::addRow("model LCT001 -> B") << "" << kB << "LCT001" << wb;
        QTest::addRow("lower-case type ignored") << "b" << kA << "LST001" << wa;
        QTest::addRow("model is case-sensitive") << "" << kFull << "lct001" << wc;
        QTest::addRow("unknown") << "" << kFull << "LCT015" << wc;
    }

    void lookup()
    {
        QFETCH(QString, type);
        QFETCH(QString, model);
        QFETCH(XYGamut, gamut);
        const bool known = gamut != kFull;
        QVERIFY(ColorConvert::lookupGamut(type, "ignored", model) == (known ? gamut : kC));
        QVERIFY(ColorConvert::lookupGamutLimits(type, "ignored", model) == gamut);
        QTEST(ColorConvert::lookupWhitepoint(type, "ignored", model), "white");
        const XYGamut fallback{{0.5f, 0.5f}, {0.1f, 0.2f}, {0.3f, 0.4f}};
        QVERIFY(ColorConvert::lookupGamut(type, "", model, fallback) == (known ? gamut : fallback));
    }

    void textForms()
    {
        QCOMPARE(ColorConvert::convertRgbToHtmlString(0xFF8000), "ff8000");
        QCOMPARE(ColorConvert::convertRgbToHtmlString(0x120A0B0C), "0a0b0c");
        QCOMPARE(ColorConvert::convertHSVToString(0x1234, 5, 0xAB), "123405ab");
        QCOMPARE(ColorConvert::convertHSVToString(0xAB, 1, 2), "00ab0102");
    }

    void parse_data()
    {
        QTest::addColumn<bool>("hsv"); // convertStringToHSV, else convertStringToRgb
        QTest::addColumn<QString>("text");
        QTest::addColumn<uint>("value");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QString>("log"); // the end of the one log line of a failure
        QTest::addRow("rgb with #") << false << "#ff8000" << 0xFF8000u << true << "";
        QTest::addRow("upper case, tail ignored") << false << "0A0B0Cxyz" << 0x0A0B0Cu << true << "";
        QTest::addRow("empty: no log") << false << "" << 0u << false << "";
        QTest::addRow("too short") << false << "#ff80" << 0u << false << "Parse error, string too short";
        QTest::addRow("not hex") << false << "ff80zz" << 0u << false
                                 << "Parse error, not a valid number ff80zz";
        QTest::addRow("negative") << false << "#-fff00" << 0u << false
                                  << "Parse error, values out of bounds in string #-fff00";
        QTest::addRow("hsv decimal 0x12345678") << true << "305419896" << 0x78561234u << true << "";
        const QString hsvError = "hsv string could not be converted to uint ";
        QTest::addRow("hsv hex text") << true << "12ab" << 0u << false << hsvError + "12ab";
        QTest::addRow("hsv overflow") << true << "4294967296" << 0u << false << hsvError + "4294967296";
    }

    void parse()
    {
        QFETCH(bool, hsv);
        QFETCH(QString, text);
        QFETCH(bool, ok);
        QFETCH(QString, log);
        QList<QByteArray> lines;
        const LogSink previous = setLogSink([&lines](int, const QByteArray& line) { lines.append(line); });
        const auto restoreSink = qScopeGuard([&previous] { setLogSink(previous); });
        bool parsed = !ok;
        QTEST(hsv ? ColorConvert::convertStringToHSV(text, &parsed)
                  : ColorConvert::convertStringToRgb(text, &parsed),
              "value");
        QCOMPARE(parsed, ok);
        QCOMPARE(lines.size(), log.isEmpty() ? 0 : 1);
        if (!log.isEmpty())
            QVERIFY2(lines.first().endsWith(log.toUtf8()), lines.first());
    }
};

QTEST_APPLESS_MAIN(TestColorConvert)
#include "tst_colorconvert.moc"
