#include "httputils.h"

#include "cachedhttp.h"
#include "constants.h"
#include "http.h"
#include "localcache.h"

#include <QSettings>

#ifndef VELM_WEB_SERVICE
#define VELM_WEB_SERVICE ""
#endif

namespace {
const char cacheName[] = "http";

void configure(Http &http) { http.addRequestHeader("User-Agent", HttpUtils::userAgent()); }
} // namespace

namespace HttpUtils {

Http &notCached()
{
    static Http *http = [] {
        auto *client = new Http;
        configure(*client);
        return client;
    }();
    return *http;
}

Http &cached()
{
    static CachedHttp *http = [] {
        auto *plain = new Http;
        configure(*plain);
        return new CachedHttp(*plain, cacheName);
    }();
    return *http;
}

void clearCaches() { LocalCache::instance(cacheName)->clear(); }

QByteArray wsBase()
{
    const QByteArray whole = qgetenv("VELM_WS_BASE");
    if (!whole.isEmpty())
        return whole;
    QByteArray host = QSettings().value(QStringLiteral("webService")).toString().toUtf8();
    if (host.isEmpty())
        host = QByteArray(VELM_WEB_SERVICE);
    if (host.isEmpty())
        return QByteArray();
    while (host.endsWith('/'))
        host.chop(1);
    return host + "/velm-ws";
}

const QByteArray &userAgent()
{
    static const QByteArray text
        = (QString(Constants::NAME) + QLatin1Char('/') + QString(Constants::VERSION)
            + QStringLiteral(" ( ") + QString(Constants::WEBSITE) + QStringLiteral(" )"))
              .toUtf8();
    return text;
}

} // namespace HttpUtils
