#include "hue_colorconvert.h"

#include <QLatin1String>

#include <cmath>

// The lamp gamuts: fixed tables, model-id lookup and the geometry of the colour triangle.
namespace hue {

namespace {

const XYGamut kGamutA{{0.704f, 0.296f}, {0.2151f, 0.7106f}, {0.138f, 0.08f}};
const XYGamut kGamutB{{0.675f, 0.322f}, {0.409f, 0.518f}, {0.167f, 0.04f}};
const XYGamut kGamutC{{0.692f, 0.308f}, {0.17f, 0.7f}, {0.153f, 0.048f}};
const XYGamut kFullGamut{{1.0f, 0.0f}, {0.0f, 1.0f}, {0.0f, 0.0f}};

const XYPoint kWhitepointA{0.435f, 0.405f};
const XYPoint kWhitepointB{0.3804f, 0.3756f};
const XYPoint kWhitepointC{0.3804f, 0.3768f};

XYPoint minus(const XYPoint& a, const XYPoint& b)
{
    return {a.x - b.x, a.y - b.y};
}

float dot(const XYPoint& a, const XYPoint& b)
{
    return a.x * b.x + a.y * b.y;
}

// The gamut a bridge's gamut type or, failing that, a model id names; null when neither does.
const XYGamut* knownGamut(const QString& gamutType, const QString& modelId)
{
    if (gamutType == QLatin1String("A"))
        return &kGamutA;
    if (gamutType == QLatin1String("B"))
        return &kGamutB;
    if (gamutType == QLatin1String("C"))
        return &kGamutC;
    if (ColorConvert::gamutBModels().contains(modelId))
        return &kGamutB;
    if (ColorConvert::gamutAModels().contains(modelId))
        return &kGamutA;
    return nullptr;
}

} // namespace

const XYGamut& ColorConvert::gamutA()
{
    return kGamutA;
}

const XYGamut& ColorConvert::gamutB()
{
    return kGamutB;
}

const XYGamut& ColorConvert::gamutC()
{
    return kGamutC;
}

const XYGamut& ColorConvert::fullGamut()
{
    return kFullGamut;
}

const XYPoint& ColorConvert::whitepointA()
{
    return kWhitepointA;
}

const XYPoint& ColorConvert::whitepointB()
{
    return kWhitepointB;
}

const XYPoint& ColorConvert::whitepointC()
{
    return kWhitepointC;
}

const QStringList& ColorConvert::gamutBModels()
{
    static const QStringList models{"LCT001", "LCT002", "LCT003", "LCT007", "LLM001", "HBL001",
                                    "HBL002", "HBL003", "HEL001", "HEL002", "HIL001", "HIL002"};
    return models;
}

const QStringList& ColorConvert::gamutAModels()
{
    static const QStringList models{"LLC001", "LLC005", "LLC006", "LLC007", "LLC010",
                                    "LLC011", "LLC012", "LLC013", "LLC014", "LST001"};
    return models;
}

XYGamut ColorConvert::lookupGamut(const QString& gamutType, const QString& /*second*/, const QString& modelId,
                                  const XYGamut& fallback)
{
    const XYGamut* gamut = knownGamut(gamutType, modelId);
    return gamut ? *gamut : fallback;
}

XYGamut ColorConvert::lookupGamut(const QString& gamutType, const QString& second, const QString& modelId)
{
    return lookupGamut(gamutType, second, modelId, kGamutC);
}

XYGamut ColorConvert::lookupGamutLimits(const QString& gamutType, const QString& second,
                                        const QString& modelId)
{
    return lookupGamut(gamutType, second, modelId, kFullGamut);
}

XYPoint ColorConvert::lookupWhitepoint(const QString& gamutType, const QString& /*second*/,
                                       const QString& modelId)
{
    const XYGamut* gamut = knownGamut(gamutType, modelId);
    if (gamut == &kGamutA)
        return kWhitepointA;
    if (gamut == &kGamutB)
        return kWhitepointB;
    return kWhitepointC;
}

float ColorConvert::crossProduct(const XYPoint& a, const XYPoint& b)
{
    return a.x * b.y - a.y * b.x;
}

float ColorConvert::getDistanceBetweenTwoPoints(const XYPoint& a, const XYPoint& b)
{
    const float dx = a.x - b.x;
    const float dy = a.y - b.y;
    return std::sqrt(dx * dx + dy * dy);
}

XYPoint ColorConvert::getClosestPointToPoints(const XYPoint& a, const XYPoint& b, const XYPoint& p)
{
    const XYPoint ab = minus(b, a);
    float t = dot(minus(p, a), ab) / dot(ab, ab);
    if (t < 0.0f)
        t = 0.0f;
    else if (t > 1.0f)
        t = 1.0f;
    return {a.x + ab.x * t, a.y + ab.y * t};
}

bool ColorConvert::checkPointInLampsReach(const XYPoint& point, const XYGamut& gamut)
{
    // Barycentric coordinates relative to the red corner; a degenerate triangle gives NaN, which
    // fails every comparison.
    const XYPoint toGreen = minus(gamut.green, gamut.red);
    const XYPoint toBlue = minus(gamut.blue, gamut.red);
    const XYPoint q = minus(point, gamut.red);
    const float area = crossProduct(toGreen, toBlue);
    const float s = crossProduct(q, toBlue) / area;
    const float t = crossProduct(toGreen, q) / area;
    return s >= 0.0f && t >= 0.0f && s + t <= 1.0f;
}

XYPoint ColorConvert::moveIntoLampsReach(const XYPoint& point, const XYGamut& gamut)
{
    if (checkPointInLampsReach(point, gamut))
        return point;

    const XYPoint onRedGreen = getClosestPointToPoints(gamut.red, gamut.green, point);
    const XYPoint onBlueRed = getClosestPointToPoints(gamut.blue, gamut.red, point);
    const XYPoint onGreenBlue = getClosestPointToPoints(gamut.green, gamut.blue, point);

    XYPoint closest = onRedGreen;
    float distance = getDistanceBetweenTwoPoints(point, onRedGreen);
    const float toBlueRed = getDistanceBetweenTwoPoints(point, onBlueRed);
    if (distance > toBlueRed) {
        closest = onBlueRed;
        distance = toBlueRed;
    }
    if (distance > getDistanceBetweenTwoPoints(point, onGreenBlue))
        closest = onGreenBlue;
    return closest;
}

} // namespace hue
