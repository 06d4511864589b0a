// Developer commands of the adaptor, callable through the hub messaging: inject datapoint and
// parameter writes for one light, dump the lights' state, export the profiler's figures.
#include "hue_adaptor.h"

#include "hue_bridge.h"
#include "hue_controller.h"
#include "hue_device.h"
#include "hue_light.h"

#include "common/defaults.h"
#include "common/logginginterface.h"
#include "common/profiler.h"

#include <QDir>
#include <QFile>
#include <QTextStream>
#include <QTimer>

namespace hue {

namespace {
struct DebugDatapoint
{
    const char* keyword;
    EInputDatapoint datapoint;
};

// "bri2" is the absolute set value (the hub's second brightness input) and "time" the timed
// dimming value ("50%/2000ms"); both serve timed runs and are not checked here.
const DebugDatapoint kDebugDatapoints[] = {
    {"on", IDP_SWITCH_ON_OFF},
    {"ct", IDP_COLOR_TEMPERATURE},
    {"bri", IDP_BRIGHTNESS},
    {"sat", IDP_SATURATION},
    {"hue", IDP_HUE},
    {"hsv", IDP_HSV_COLOR},
    {"rgb", IDP_RGB_COLOR},
    {"bri2", IDP_ABSOLUTE_SET_VALUE_CONTROL},
    {"time", IDP_TIMED_DIMMING},
};

struct DebugParameter
{
    const char* keyword;
    EParameter parameter;
};

const DebugParameter kDebugParameters[] = {
    {"switchon", PARAM_SWITCH_ON_MODE},   {"poweron", PARAM_POWER_ON_MODE},
    {"maxday", PARAM_MAX_BRIGHTNESS_DAY}, {"maxnight", PARAM_MAX_BRIGHTNESS_NIGHT},
    {"timer", PARAM_TIMER_DURATION},
};

bool isPercent(const QString& value)
{
    bool ok = false;
    const double number = value.toDouble(&ok);
    return ok && number >= 0.0 && number <= 100.0;
}

// The message that refuses `value` for the keyword, or an empty text when it is acceptable.
QString checkDebugValue(const QString& keyword, const QString& value)
{
    if (keyword == QLatin1String("on") && value != QLatin1String("0") && value != QLatin1String("1"))
        return QStringLiteral("on must be 0 or 1");
    if (keyword == QLatin1String("bri") && !isPercent(value))
        return QStringLiteral("bri must be an float value between 0..100");
    if (keyword == QLatin1String("sat") && !isPercent(value))
        return QStringLiteral("sat must be an float value between 0..100");
    if (keyword == QLatin1String("hue") && !isPercent(value))
        return QStringLiteral("hue must be an float value between 0..100");
    if (keyword == QLatin1String("ct") && !isPercent(value))
        return QStringLiteral("ct must be a double value between 0..100");
    if (keyword == QLatin1String("hsv")) {
        bool ok = false;
        value.toUInt(&ok, 16);
        if (!ok || value.size() != 8)
            return QStringLiteral("hsv must be a 32 bit hex value (hhhhssbb)");
    }
    return QString();
}
} // namespace

QString HueAdaptor::findDebugLight(int shortId, const QByteArray& hueId, InternalId* device) const
{
    CBridge* bridge = m_controller ? m_controller->bridgeByShortID(shortId) : nullptr;
    if (!bridge)
        return QStringLiteral("Bridge not found");
    const CLight* light = bridge->lightById(hueId);
    if (!light)
        return QStringLiteral("Light not found");
    *device = light->deviceSerial();
    return QString();
}

QString HueAdaptor::writeDebugDatapoint(const InternalId& device, int index, const QString& value)
{
    if (index < 0)
        return QStringLiteral("dataPointValueChanged failed");
    const InternalId id = InternalId::makeInputDataPointSerial(device, 0, quint8(index));
    if (!m_controller->dataPointValueChanged(id, value))
        return QStringLiteral("call to dataPointValueChanged returned false");
    return QStringLiteral("Done");
}

QString HueAdaptor::debugSetDP(int shortId, QByteArray hueId, QString datapoint, QString value, int token)
{
    const DebugDatapoint* match = nullptr;
    for (const DebugDatapoint& candidate : kDebugDatapoints) {
        if (datapoint == QLatin1String(candidate.keyword))
            match = &candidate;
    }
    if (!match)
        return QStringLiteral("Invalid datapoint %1, must be one of on, ct, bri, sat, hue, hsv, rgb")
            .arg(datapoint);
    const QString refused = checkDebugValue(datapoint, value);
    if (!refused.isEmpty())
        return refused;

    InternalId device;
    const QString notFound = findDebugLight(shortId, hueId, &device);
    if (!notFound.isEmpty())
        return notFound;

    const CLight* light = m_controller->lightByDeviceSerial(device);
    const int index = light && light->device() ? light->device()->inputDatapointIndex(match->datapoint) : -1;
    const QString answer = writeDebugDatapoint(device, index, value);
    // A token makes the injected write behave like one from the hub, confirmation included.
    if (token != 0)
        emitConfirmDataPointValueChanged(token, answer == QLatin1String("Done") ? 0 : 2);
    return answer;
}

QString HueAdaptor::debugSetParam(int shortId, QByteArray hueId, QString parameter, QString value)
{
    InternalId device;
    const QString notFound = findDebugLight(shortId, hueId, &device);
    if (!notFound.isEmpty())
        return notFound;

    const CLight* light = m_controller->lightByDeviceSerial(device);
    for (const DebugParameter& candidate : kDebugParameters) {
        if (parameter != QLatin1String(candidate.keyword))
            continue;
        const int index =
            light && light->device() ? light->device()->parameterIndex(candidate.parameter) : -1;
        if (index < 0)
            return QStringLiteral("Invalid parameter %1 for this light").arg(parameter);
        m_controller->parameterValueChanged(InternalId::makeChannelParameterSerial(device, 0, quint8(index)),
                                            value);
        return QStringLiteral("Done");
    }
    return QStringLiteral("Invalid parameter %1, must be one of switchon, poweron, maxday, maxnight, timer")
        .arg(parameter);
}

QString HueAdaptor::debugTimedStartStop(int shortId, QByteArray hueId)
{
    if (m_debugSessionRunning)
        return QStringLiteral("Debug session already running");
    InternalId device;
    const QString notFound = findDebugLight(shortId, hueId, &device);
    if (!notFound.isEmpty())
        return notFound;

    const CLight* light = m_controller->lightByDeviceSerial(device);
    const int index =
        light && light->device() ? light->device()->inputDatapointIndex(IDP_TIMED_START_STOP) : -1;
    const QString answer = writeDebugDatapoint(device, index, QStringLiteral("1"));
    if (answer != QLatin1String("Done"))
        return answer;
    // The session lasts as long as the light's start-stop timer keeps it on.
    m_debugSessionRunning = true;
    QTimer::singleShot(int(light->timerDurationSeconds() * 1000), this,
                       [this] { m_debugSessionRunning = false; });
    return answer;
}

QString HueAdaptor::debugGetLightInfo()
{
    QString text;
    if (m_controller) {
        QTextStream out(&text);
        m_controller->debugDumpLightStates(out);
    }
    return text;
}

void HueAdaptor::exportProfilerStatistics(int /*unused*/)
{
    const QString dir = DataDir + QStringLiteral("/export/");
    QDir().mkpath(dir);
    QFile file(dir + QStringLiteral("huecontroller-profiler.txt"));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text)) {
        LOG_ERROR << "Cannot write profiler statistics to" << file.fileName();
        return;
    }
    QTextStream out(&file);
    out << "***Exporting profiler statistic for Hue adaptor***\n" << Profiler::instance().statistics();
    LOG_INFO << "profiler statistics exported to" << file.fileName();
}

} // namespace hue
