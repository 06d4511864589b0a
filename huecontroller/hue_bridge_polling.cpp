// CBridge's polling, the replies to polls and light changes, support information, the reaction
// to "hue/useGroups", life signs and the light-state dump.

#include "hue_bridge.h"

#include "hue_bridgeapi.h"
#include "hue_bridgestate.h"
#include "hue_light.h"

#include "common/logginginterface.h"
#include "common/profiler.h"
#include "json/minijson.h"

#include <QNetworkAccessManager>

#include <utility>

namespace hue {

namespace {

const char* switchOnModeText(ESwitchOnMode mode)
{
    switch (mode) {
    case SwitchOnWhiteMaxBrightness:
        return "white_max_brightness";
    case SwitchOnWhiteLastBrightness:
        return "white_last_brightness";
    case SwitchOnLastColor:
        return "last_color";
    }
    return "invalid";
}

std::unique_ptr<minijson::CEntity> parseBody(const QByteArray& body)
{
    return minijson::CParser::Parse(body.constData(), body.size());
}

} // namespace

void CBridge::pollNextItem()
{
    ProfileScope profile("CBridge::pollNextItem");
    // An ignored bridge keeps its turn in the controller's round but is neither checked nor polled.
    if (m_ignore)
        return;
    if (m_certificateRefused) {
        if (m_lastRefusedCertificateTry.isValid() &&
            !m_lastRefusedCertificateTry.hasExpired(kRefusedCertificateRetryMs))
            return;
        m_lastRefusedCertificateTry.start();
    }
    if (!m_nam || !userNameChecksAllowPolling())
        return;
    if (m_currentPollReply && m_activeReplies.contains(m_currentPollReply))
        return; // one poll at a time
    const QNetworkRequest request = m_api->pollNextItem(m_pollType);
    QNetworkReply* reply = m_nam->get(request);
    trackPollReply(reply, m_pollType);
    m_currentPollReply = reply;
}

void CBridge::trackPollReply(QNetworkReply* reply, PollType pollType)
{
    reply->setProperty("huePollType", int(pollType));
    m_pollReplies.append(reply);
    trackReply(reply);
}

void CBridge::handlePollReply(QNetworkReply* reply, bool timedOut)
{
    m_pollReplies.removeAll(reply);
    if (m_currentPollReply == reply)
        m_currentPollReply = nullptr;
    if (timedOut) {
        if (admitWarning("poll timed out"))
            LOG_WARNING << "network reply timed out/failed while trying to poll all lights: " +
                               reply->url().path();
        return;
    }
    if (reply->error() != QNetworkReply::NoError) {
        if (!admitWarning("poll error " + QByteArray::number(int(reply->error()))))
            return;
        CDebug line(LogWarning, __FILE__, __LINE__);
        line << "network reply error while trying to poll all lights. Error code:" << int(reply->error())
             << "http status code:" << reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt()
             << "Error text:" << reply->errorString() << "Reply url:" << reply->url().path();
        if (reply->isOpen() && reply->bytesAvailable() > 0)
            line << "Reply data:" << LogExcerpt(reply->readAll());
        return;
    }
    const auto pollType = PollType(reply->property("huePollType").toInt());
    const QByteArray body = reply->readAll();
    std::unique_ptr<minijson::CEntity> document;
    try {
        document = parseBody(body);
    } catch (const minijson::CException& e) {
        LOG_ERROR << "JSON parse error while trying to parse a poll response from bridge. Exception:"
                  << e.what() << "Response data:" << LogExcerpt(body);
        return;
    }
    if (document->IsObject()) {
        const BridgeAPI::PollReplyScope pollReplyScope(*m_api, reply);
        m_api->parsePollReply(document->Object(), pollType);
        return;
    }
    if (document->IsArray() && document->Count() > 0 && (*document)[0].IsObject()) {
        const minijson::CObject* error = (*document)[0].Object().GetObject("error");
        if (error && error->GetInt("type", -1) == 1) {
            LOG_ERROR << "Missing (or revoked) authorization:" << error->GetString("description");
            requestBridgeState(BridgeStateNew);
            return;
        }
    }
    LOG_ERROR << "JSON response for light state was parsed successfully, but has unexpected contents"
              << "Response data:" << LogExcerpt(body);
}

void CBridge::handleRequestLightChangeReply(QNetworkReply* reply, bool timedOut)
{
    m_pendingLightChanges.remove(getRequestId(reply));
    const QByteArray lightId = reply->property("hueLightID").toByteArray();
    CLight* light = lightById(lightId);
    if (!light) {
        LOG_WARNING << "hue reply/light deletion race hit, dropping reply" << lightId;
        return;
    }
    if (timedOut || reply->error() != QNetworkReply::NoError) {
        if (admitWarning("change error " + QByteArray::number(int(reply->error()))))
            LOG_WARNING << "network reply error while receiving light request reply: " << int(reply->error())
                        << reply->errorString() << "HTTP code"
                        << reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        return;
    }
    const QByteArray body = reply->readAll();
    std::unique_ptr<minijson::CEntity> document;
    try {
        document = parseBody(body);
    } catch (const minijson::CException& e) {
        LOG_ERROR << "JSON parse error while trying to parse a light response from bridge. Exception:"
                  << e.what() << "Response data:" << LogExcerpt(body);
        return;
    }
    if (m_api->parseLightChangeReply(reply, *document, false))
        LOG_DETAIL << "change successful" << light->deviceSerial();

    // The off-delay of a timed switch-on counts from the bridge's confirmation.
    if (reply->property("hueLightTurningOn").toBool() && m_startStopEntries.contains(lightId)) {
        m_startStopEntries[lightId].start();
        restartStartStopTimer();
    }
}

void CBridge::gatherSupportInfo()
{
    m_supportInfo = "Bridge " + m_bridgeId + " (" + nameWithIP().toUtf8() + ")\n";
    QTextStream dump(&m_supportInfo);
    debugDumpLightStates(dump);
    dump.flush();
    m_api->gatherSupportInfo();
    if (m_api->hasPendingSupportInfoRequests() && m_nam)
        m_api->startNextSupportInfoRequest();
    else
        emit supportInfoGathered(std::exchange(m_supportInfo, QByteArray()));
}

void CBridge::handleSupportInfoReply(QNetworkReply* reply, bool timedOut)
{
    if (m_supportInfo.isEmpty())
        return; // the collection has ended (the dialect was replaced meanwhile)
    m_supportInfo += reply->url().path().toUtf8().replace(m_userName.toUtf8(), "***") + ":\n";
    if (timedOut || reply->error() != QNetworkReply::NoError)
        m_supportInfo += "request failed: " + reply->errorString().toUtf8() + "\n";
    else
        m_supportInfo += reply->readAll().replace(m_userName.toUtf8(), "***") + "\n";
    if (m_api->hasPendingSupportInfoRequests())
        m_api->startNextSupportInfoRequest();
    else
        emit supportInfoGathered(std::exchange(m_supportInfo, QByteArray()));
}

void CBridge::onConfigValueChanged(const QString& key, const QString& value, bool)
{
    if (key != QLatin1String("hue/useGroups"))
        return;
    m_useGroups = value == QLatin1String("true") || value == QLatin1String("1");
    if (m_useGroups)
        return;
    const QList<CLight*> all = m_lights.values();
    for (CLight* light : all) {
        if (light->itemType() != ItemGroup)
            continue;
        emit lightUnresponsive(light);
        deleteLight(light);
    }
}

void CBridge::sendLifeSigns(qint64 intervalMs)
{
    for (CLight* light : qAsConst(m_lights)) {
        BridgeLightData& data = m_lightData[light->hueId()];
        if (data.reachable && (!data.lastLifeSign.isValid() || data.lastLifeSign.elapsed() >= intervalMs)) {
            data.lastLifeSign.start();
            emit lifeSign(light);
        }
    }
}

void CBridge::debugDumpLightStates(QTextStream& out) const
{
    out << QStringLiteral(
               "--- Bridge %1 short ID %2 \"%3\" ---\n bridgestate %4\n usernamestate %5\n ignore %6\n "
               "useGroups %7\n httpsTried %8\n stayOnHttps %9\n forceAPI1 %10\n")
               .arg(bridgeIdString())
               .arg(m_shortId)
               .arg(m_name)
               .arg(m_userNameState == USERNAME_REGISTERED ? QStringLiteral("paired")
                                                           : QStringLiteral("unpaired"))
               .arg(int(m_userNameState))
               .arg(m_ignore)
               .arg(m_useGroups)
               .arg(m_httpsTried)
               .arg(m_stayOnHttps)
               .arg(m_forceAPI1);
    for (const CLight* light : m_lights) {
        const BridgeLightData data = m_lightData.value(light->hueId());
        const CLight::State& state = light->bridgeState();
        out << "  Light " << light->hueId() << " \"" << data.name << "\" " << light->deviceSerial().toString()
            << "\n";
        out << "    ModelID: " << light->model() << "\n";
        out << "    On: " << light->isOn() << "\n";
        out << "    Brightness raw/hue: " << state.brightness() << "/" << state.vnBrightness() << "\n";
        out << "    ColorMode: " << int(state.colorMode()) << "\n";
        out << "    Reachable: " << data.reachable << "\n";
        out << "  Parameters\n";
        out << "    SwitchOnMode: " << switchOnModeText(data.switchOnMode) << "\n";
        out << "    MaxBrightnessDay: " << light->maxBrightnessDay() << "\n";
        out << "    MaxBrightnessNight: " << light->maxBrightnessNight() << "\n";
        out << "    StartStopTimerDuration: " << light->timerDurationSeconds() << "\n";
    }
}

} // namespace hue
