// API version 2: the support information adds the whole resource tree to what the version 1
// delegate collects.

#include "hue_bridgeapi2.h"

#include "hue_bridgeapi1.h"

namespace hue {

void BridgeAPI2::gatherSupportInfo()
{
    m_v1->gatherSupportInfo();
    QUrl url = m_bridge->url();
    url.setPath(QStringLiteral("/clip/v2/resource"));
    QNetworkRequest request(url);
    request.setRawHeader("hue-application-key", m_bridge->userName().toUtf8());
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, m_bridge->enableHttp2());
    m_pendingSupportInfoRequests = {request};
}

bool BridgeAPI2::hasPendingSupportInfoRequests() const
{
    return BridgeAPI::hasPendingSupportInfoRequests() || m_v1->hasPendingSupportInfoRequests();
}

void BridgeAPI2::startNextSupportInfoRequest()
{
    // The delegate's requests go first, then this dialect's own.
    if (m_v1->hasPendingSupportInfoRequests())
        m_v1->startNextSupportInfoRequest();
    else
        BridgeAPI::startNextSupportInfoRequest();
}

} // namespace hue
