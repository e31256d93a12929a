#pragma once

#include "http.h"

#include <functional>

class LocalCache;

// An Http that answers GET requests from an on-disk cache while the copy is fresh, and falls
// back to a stale copy when the network fails.
class CachedHttp : public Http
{
public:
    CachedHttp(Http &http, const char *name);

    void setMaxSeconds(uint seconds);
    void setMaxSize(uint bytes);
    HttpReply *request(const HttpRequest &req) override;
    QByteArray requestHash(const HttpRequest &req) const;

    bool cachePostRequests = false;
    bool ignoreHostname = false;
    // Content type ("*" for any) to whether a reply of that type is stored.
    QMap<QByteArray, std::function<bool(const HttpReply &)>> cachedContentTypes;
    LocalCache *getCache() const { return cache; }

private:
    Http &http;
    LocalCache *cache;
};

// A network reply on its way to the cache.
class WrappedHttpReply : public HttpReply
{
    Q_OBJECT
public:
    WrappedHttpReply(
        CachedHttp &cachedHttp, LocalCache *cache, const QByteArray &key, HttpReply *httpReply);

    QUrl url() const override;
    int statusCode() const override;
    QByteArray body() const override;

private slots:
    void originFinished(const HttpReply &reply);

private:
    CachedHttp &cachedHttp;
    LocalCache *cache;
    QByteArray key;
    HttpReply *httpReply;
};

// A reply served from the cache, always status 200.
class CachedHttpReply : public HttpReply
{
    Q_OBJECT
public:
    // With autoSignals the signals come from the event loop, after the caller has connected.
    CachedHttpReply(const QByteArray &body, const QUrl &url, bool autoSignals);

    QUrl url() const override;
    int statusCode() const override;
    QByteArray body() const override;

private slots:
    void emitSignals();

private:
    QByteArray bytes;
    QUrl requestUrl;
};
