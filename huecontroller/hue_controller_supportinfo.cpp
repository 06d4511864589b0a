// The support-information report: every bridge's own view of itself, gathered with a deadline.

#include "hue_controller.h"

#include "hue_bridge.h"

#include "common/logginginterface.h"

#include <QDateTime>

namespace hue {

void CController::gatherSupportInfo()
{
    const QList<CBridge*> all = bridges();
    m_supportInfo = "Hue support info gathered at " +
                    QDateTime::currentDateTime().toString(Qt::ISODate).toUtf8() +
                    ":\n\nBridge count: " + QByteArray::number(all.size()) + "\n\n";
    m_outstandingSupportAnswers = all.size();
    if (all.isEmpty()) {
        submitSupportInfo();
        return;
    }
    // Started first: a bridge without requests to make answers while it is asked.
    m_supportInfoTimer.start(kSupportInfoTimeoutMs);
    for (CBridge* bridge : all)
        bridge->gatherSupportInfo();
}

void CController::addSupportInfo(CBridge* bridge, const QByteArray& text)
{
    Q_UNUSED(bridge); // each answer names its bridge in its first line
    if (m_outstandingSupportAnswers < 1)
        return; // too late: the report has gone out without it
    m_supportInfo += text + "\n\n";
    if (--m_outstandingSupportAnswers == 0)
        submitSupportInfo();
}

void CController::onSupportInfoTimeout()
{
    if (m_outstandingSupportAnswers < 1)
        return;
    LOG_DEBUG << "support info gather timeout";
    submitSupportInfo();
}

void CController::submitSupportInfo()
{
    m_supportInfoTimer.stop();
    m_outstandingSupportAnswers = 0;
    const QByteArray report = m_supportInfo;
    m_supportInfo.clear();
    emit supportInfoReady(report);
}

} // namespace hue
