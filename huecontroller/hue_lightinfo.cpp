#include "hue_lightinfo.h"

namespace hue {

namespace {

struct LightInfoRow
{
    const char* manufacturer;
    const char* model; // nullptr: any model of the manufacturer
    int miredMin;      // -1: keep the default
    int miredMax;
    quint32 flags;
};

// IKEA and OSRAM lamps accept a narrower colour temperature range than Hue's own; the first
// matching row wins.
constexpr LightInfoRow kLightInfo[] = {
    {"IKEA of Sweden", nullptr, 250, 454, 0},
    {"OSRAM", nullptr, 153, 370, 0},
    {"iluminize", "511.050", -1, -1, CLightInfo::FlagIluminize},
};

// constData() is NUL-terminated, so the comparison ends at the first NUL of either text.
const LightInfoRow* findRow(const QByteArray& manufacturer, const QByteArray& model)
{
    for (const LightInfoRow& row : kLightInfo) {
        if (qstrcmp(row.manufacturer, manufacturer.constData()) == 0 &&
            (row.model == nullptr || qstrcmp(row.model, model.constData()) == 0))
            return &row;
    }
    return nullptr;
}

} // namespace

void CLightInfo::getMiredLimits(const QByteArray& manufacturer, const QByteArray& model, int& min, int& max)
{
    min = DefaultMiredMin;
    max = DefaultMiredMax;
    if (const LightInfoRow* row = findRow(manufacturer, model)) {
        if (row->miredMin >= 0)
            min = row->miredMin;
        if (row->miredMax >= 0)
            max = row->miredMax;
    }
}

quint32 CLightInfo::getFlags(const QByteArray& manufacturer, const QByteArray& model)
{
    const LightInfoRow* row = findRow(manufacturer, model);
    return row ? row->flags : 0;
}

} // namespace hue
