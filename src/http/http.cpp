#include "http.h"

#include <QLoggingCategory>
#include <QThreadStorage>
#include <QTimer>

Q_LOGGING_CATEGORY(lcHttp, "velm.http")

namespace {

int defaultReadTimeout = 10000;

QNetworkAccessManager *threadNetworkAccessManager()
{
    // One per thread, never deleted.
    static QThreadStorage<QNetworkAccessManager *> managers;
    if (!managers.hasLocalData()) {
        auto *manager = new QNetworkAccessManager;
        manager->setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
        managers.setLocalData(manager);
    }
    return managers.localData();
}

} // namespace

HttpReply::HttpReply(QObject *parent)
    : QObject(parent)
{ }

QString HttpReply::reasonPhrase() const { return QString(); }

QList<QNetworkReply::RawHeaderPair> HttpReply::headers() const { return {}; }

QByteArray HttpReply::header(const QByteArray &) const { return QByteArray(); }

bool HttpReply::isSuccessful() const
{
    const int status = statusCode();
    return status >= 200 && status < 300;
}

Http::Http()
    : requestHeaders(getDefaultRequestHeaders())
    , readTimeout(defaultReadTimeout)
{ }

Http::~Http() = default;

Http &Http::instance()
{
    static Http *http = new Http;
    return *http;
}

const QMap<QByteArray, QByteArray> &Http::getDefaultRequestHeaders()
{
    static const QMap<QByteArray, QByteArray> headers { { "Accept-Charset", "utf-8" },
        { "Connection", "Keep-Alive" } };
    return headers;
}

void Http::setDefaultReadTimeout(int milliseconds) { defaultReadTimeout = milliseconds; }

void Http::setRequestHeaders(const QMap<QByteArray, QByteArray> &headers)
{
    requestHeaders = headers;
}

QMap<QByteArray, QByteArray> &Http::getRequestHeaders() { return requestHeaders; }

void Http::addRequestHeader(const QByteArray &name, const QByteArray &value)
{
    requestHeaders.insert(name, value);
}

void Http::setReadTimeout(int milliseconds) { readTimeout = milliseconds; }

int Http::getMaxRetries() const { return maxRetries; }

void Http::setMaxRetries(int value) { maxRetries = value; }

QNetworkReply *Http::networkReply(const HttpRequest &req)
{
    QNetworkRequest request(req.url);
    // Deliberately sticky: a request's headers become the client's.
    if (!req.headers.isEmpty())
        requestHeaders = req.headers;
    for (auto header = requestHeaders.constBegin(); header != requestHeaders.constEnd(); ++header)
        request.setRawHeader(header.key(), header.value());
    if (req.offset)
        request.setRawHeader("Range", QStringLiteral("bytes=%1-").arg(req.offset).toUtf8());
    QNetworkAccessManager *manager = threadNetworkAccessManager();
    switch (req.operation) {
    case QNetworkAccessManager::HeadOperation:
        return manager->head(request);
    case QNetworkAccessManager::GetOperation:
        return manager->get(request);
    case QNetworkAccessManager::PutOperation:
        return manager->put(request, req.body);
    case QNetworkAccessManager::PostOperation:
        return manager->post(request, req.body);
    case QNetworkAccessManager::DeleteOperation:
        return manager->deleteResource(request);
    default:
        qCWarning(lcHttp) << "Unknown operation:" << req.operation;
        return nullptr;
    }
}

HttpReply *Http::request(const HttpRequest &req) { return new NetworkHttpReply(req, *this); }

HttpReply *Http::request(const QUrl &url, QNetworkAccessManager::Operation operation,
    const QByteArray &body, uint offset)
{
    HttpRequest req;
    req.url = url;
    req.operation = operation;
    req.body = body;
    req.offset = offset;
    return request(req);
}

HttpReply *Http::get(const QUrl &url) { return request(url, QNetworkAccessManager::GetOperation); }

HttpReply *Http::head(const QUrl &url)
{
    return request(url, QNetworkAccessManager::HeadOperation);
}

HttpReply *Http::deleteResource(const QUrl &url)
{
    return request(url, QNetworkAccessManager::DeleteOperation);
}

HttpReply *Http::post(const QUrl &url, const QMap<QString, QString> &params)
{
    QByteArray body;
    for (auto param = params.constBegin(); param != params.constEnd(); ++param) {
        body += QUrl::toPercentEncoding(param.key());
        body += '=';
        body += QUrl::toPercentEncoding(param.value());
        body += '&';
    }
    return send(QNetworkAccessManager::PostOperation, url, body, QByteArray());
}

HttpReply *Http::post(const QUrl &url, const QByteArray &body, const QByteArray &contentType)
{
    return send(QNetworkAccessManager::PostOperation, url, body, contentType);
}

HttpReply *Http::put(const QUrl &url, const QByteArray &body, const QByteArray &contentType)
{
    return send(QNetworkAccessManager::PutOperation, url, body, contentType);
}

HttpReply *Http::send(
    int operation, const QUrl &url, const QByteArray &body, const QByteArray &contentType)
{
    HttpRequest req;
    req.url = url;
    req.operation = operation;
    req.body = body;
    req.headers = requestHeaders;
    req.headers.insert("Content-Type",
        contentType.isEmpty() ? QByteArray("application/x-www-form-urlencoded") : contentType);
    return request(req);
}

NetworkHttpReply::NetworkHttpReply(const HttpRequest &req, Http &http)
    : http(http)
    , req(req)
    , readTimeoutTimer(new QTimer(this))
{
    if (req.url.isEmpty())
        qCWarning(lcHttp) << "Empty URL";
    readTimeoutTimer->setSingleShot(true);
    readTimeoutTimer->setInterval(http.getReadTimeout());
    connect(readTimeoutTimer, &QTimer::timeout, this, &NetworkHttpReply::readTimeout);
    networkReply = http.networkReply(req);
    if (!networkReply) {
        // Nothing was sent (an unknown operation): fail from the event loop, once the caller
        // has connected.
        QTimer::singleShot(0, this, [this] {
            emit error(errorMessage());
            emit finished(*this);
            deleteLater();
        });
        return;
    }
    setParent(networkReply);
    setupReply();
    readTimeoutTimer->start();
}

void NetworkHttpReply::setupReply()
{
    connect(networkReply, &QNetworkReply::errorOccurred, this, &NetworkHttpReply::replyError);
    connect(networkReply, &QNetworkReply::finished, this, &NetworkHttpReply::replyFinished);
    connect(
        networkReply, &QNetworkReply::downloadProgress, this, &NetworkHttpReply::downloadProgress);
}

void NetworkHttpReply::startAttempt()
{
    QNetworkReply *next = http.networkReply(req);
    if (!next) {
        networkReply = nullptr;
        emit error(errorMessage());
        emit finished(*this);
        deleteLater();
        return;
    }
    setParent(next);
    networkReply = next;
    setupReply();
}

QUrl NetworkHttpReply::url() const { return networkReply ? networkReply->url() : req.url; }

int NetworkHttpReply::statusCode() const
{
    return networkReply ? networkReply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt()
                        : 0;
}

QString NetworkHttpReply::reasonPhrase() const
{
    return networkReply
        ? networkReply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString()
        : QString();
}

QList<QNetworkReply::RawHeaderPair> NetworkHttpReply::headers() const
{
    return networkReply ? networkReply->rawHeaderPairs() : QList<QNetworkReply::RawHeaderPair>();
}

QByteArray NetworkHttpReply::header(const QByteArray &name) const
{
    return networkReply ? networkReply->rawHeader(name) : QByteArray();
}

QByteArray NetworkHttpReply::body() const { return bytes; }

void NetworkHttpReply::replyFinished()
{
    if (isSuccessful()) {
        bytes = networkReply->readAll();
        emit data(bytes);
    }
    readTimeoutTimer->stop();
    networkReply->disconnect(this);
    emit finished(*this);
    networkReply->deleteLater();
}

void NetworkHttpReply::replyError(QNetworkReply::NetworkError)
{
    const int status = statusCode();
    const int operation = networkReply->operation();
    const bool idempotent = operation == QNetworkAccessManager::GetOperation
        || operation == QNetworkAccessManager::HeadOperation;
    if (retryCount <= http.getMaxRetries() && status >= 500 && status <= 599 && idempotent) {
        QNetworkReply *old = networkReply;
        old->disconnect(this);
        startAttempt();
        old->deleteLater();
        if (!networkReply)
            return;
        ++retryCount;
        readTimeoutTimer->start();
        return;
    }
    emitError();
}

void NetworkHttpReply::downloadProgress(qint64 bytesReceived, qint64)
{
    if (bytesReceived < 1)
        return;
    // The time-out bounds the wait for the first bytes only, never the whole transfer.
    if (readTimeoutTimer->isActive()) {
        readTimeoutTimer->stop();
        disconnect(networkReply, &QNetworkReply::downloadProgress, this,
            &NetworkHttpReply::downloadProgress);
    }
}

void NetworkHttpReply::readTimeout()
{
    if (!networkReply)
        return;
    const int operation = networkReply->operation();
    // Strictly fewer than maxRetries, unlike the <= of a 5xx answer: the two differ on purpose.
    const bool retry = (operation == QNetworkAccessManager::GetOperation
                           || operation == QNetworkAccessManager::HeadOperation)
        && retryCount < http.getMaxRetries();
    QNetworkReply *old = networkReply;
    old->disconnect(this);
    old->abort();
    if (retry) {
        ++retryCount;
        startAttempt();
        old->deleteLater();
        if (networkReply)
            readTimeoutTimer->start();
        return;
    }
    // A request that fails by timing out reports finished twice; callers tolerate it.
    emitError();
    emit finished(*this);
}

void NetworkHttpReply::emitError()
{
    emit error(errorMessage());
    readTimeoutTimer->stop();
    networkReply->disconnect(this);
    emit finished(*this);
    networkReply->deleteLater();
}

QString NetworkHttpReply::errorMessage() const
{
    return url().toString() + QLatin1Char(' ') + QString::number(statusCode()) + QLatin1Char(' ')
        + reasonPhrase();
}
