#include "cachedhttp.h"

#include "localcache.h"

#include <QTimer>

CachedHttp::CachedHttp(Http &http, const char *name)
    : http(http)
    , cache(LocalCache::instance(name))
{ }

void CachedHttp::setMaxSeconds(uint seconds) { cache->setMaxSeconds(seconds); }

void CachedHttp::setMaxSize(uint bytes) { cache->setMaxSize(bytes); }

HttpReply *CachedHttp::request(const HttpRequest &req)
{
    const bool cacheable = req.operation == QNetworkAccessManager::GetOperation
        || (cachePostRequests && req.operation == QNetworkAccessManager::PostOperation);
    if (!cacheable)
        return http.request(req);
    const QByteArray key = requestHash(req);
    const QByteArray value = cache->value(key);
    if (value.isNull()) {
        HttpReply *origin = http.request(req);
        return new WrappedHttpReply(*this, cache, key, origin);
    }
    return new CachedHttpReply(value, req.url, true);
}

QByteArray CachedHttp::requestHash(const HttpRequest &req) const
{
    QByteArray text;
    if (ignoreHostname) {
        text = req.url.scheme().toUtf8() + '|' + req.url.path(QUrl::FullyDecoded).toUtf8() + '|'
            + req.url.query().toUtf8();
    } else {
        text = req.url.toEncoded(QUrl::FullyEncoded);
    }
    text += '|' + req.body + '|' + QByteArray::number(req.offset);
    if (req.operation == QNetworkAccessManager::PostOperation)
        text += "|POST";
    return LocalCache::hash(text);
}

WrappedHttpReply::WrappedHttpReply(
    CachedHttp &cachedHttp, LocalCache *cache, const QByteArray &key, HttpReply *httpReply)
    : HttpReply(httpReply)
    , cachedHttp(cachedHttp)
    , cache(cache)
    , key(key)
    , httpReply(httpReply)
{
    connect(httpReply, &HttpReply::finished, this, &WrappedHttpReply::originFinished);
}

QUrl WrappedHttpReply::url() const { return httpReply->url(); }

int WrappedHttpReply::statusCode() const { return httpReply->statusCode(); }

QByteArray WrappedHttpReply::body() const { return httpReply->body(); }

void WrappedHttpReply::originFinished(const HttpReply &reply)
{
    if (reply.isSuccessful()) {
        bool store = true;
        if (!cachedHttp.cachedContentTypes.isEmpty()) {
            auto check = cachedHttp.cachedContentTypes.constFind(reply.header("Content-Type"));
            if (check == cachedHttp.cachedContentTypes.constEnd())
                check = cachedHttp.cachedContentTypes.constFind("*");
            if (check != cachedHttp.cachedContentTypes.constEnd())
                store = check.value()(reply);
        }
        if (store)
            cache->insert(key, reply.body());
        emit data(reply.body());
        emit finished(reply);
        return;
    }
    const QByteArray stale = cache->possiblyStaleValue(key);
    if (stale.isNull()) {
        emit error(reply.reasonPhrase());
        emit finished(reply);
        return;
    }
    // The network failed but an old copy exists: the caller sees a success with old data.
    emit data(stale);
    auto *cached = new CachedHttpReply(stale, reply.url(), false);
    emit finished(*cached);
    cached->deleteLater();
}

CachedHttpReply::CachedHttpReply(const QByteArray &body, const QUrl &url, bool autoSignals)
    : bytes(body)
    , requestUrl(url)
{
    if (autoSignals)
        QTimer::singleShot(0, this, &CachedHttpReply::emitSignals);
}

QUrl CachedHttpReply::url() const { return requestUrl; }

int CachedHttpReply::statusCode() const { return 200; }

QByteArray CachedHttpReply::body() const { return bytes; }

void CachedHttpReply::emitSignals()
{
    emit data(body());
    emit finished(*this);
    deleteLater();
}
