#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QObject>
#include <QString>
#include <QUrl>

class QTimer;

// One request: what to fetch and how.
struct HttpRequest
{
    QUrl url;
    int operation = QNetworkAccessManager::GetOperation;
    QByteArray body;
    // Non-zero: ask for the resource from this byte on.
    uint offset = 0;
    QMap<QByteArray, QByteArray> headers;
};

// The answer to a request, reported by signals: on success data() then finished(), on failure
// error() then finished(). A reply deletes itself after finished(); do not keep it.
class HttpReply : public QObject
{
    Q_OBJECT
public:
    explicit HttpReply(QObject *parent = nullptr);

    virtual QUrl url() const = 0;
    virtual int statusCode() const = 0;
    virtual QString reasonPhrase() const;
    virtual QList<QNetworkReply::RawHeaderPair> headers() const;
    virtual QByteArray header(const QByteArray &name) const;
    virtual QByteArray body() const = 0;
    bool isSuccessful() const;

signals:
    void data(const QByteArray &bytes);
    void error(const QString &message);
    void finished(const HttpReply &reply);
};

// An asynchronous HTTP client over Qt Network with a read time-out (for the first bytes of each
// attempt) and retries of GET and HEAD on 5xx answers and time-outs.
class Http
{
public:
    Http();
    virtual ~Http();

    static Http &instance();
    static const QMap<QByteArray, QByteArray> &getDefaultRequestHeaders();
    // Affects only clients made afterwards.
    static void setDefaultReadTimeout(int milliseconds);

    void setRequestHeaders(const QMap<QByteArray, QByteArray> &headers);
    QMap<QByteArray, QByteArray> &getRequestHeaders();
    void addRequestHeader(const QByteArray &name, const QByteArray &value);
    void setReadTimeout(int milliseconds);
    int getReadTimeout() const { return readTimeout; }
    int getMaxRetries() const;
    void setMaxRetries(int value);

    // Starts one network attempt. A request's own headers replace the client's, for this and
    // every later request of this client.
    QNetworkReply *networkReply(const HttpRequest &req);
    virtual HttpReply *request(const HttpRequest &req);
    HttpReply *request(const QUrl &url,
        QNetworkAccessManager::Operation operation = QNetworkAccessManager::GetOperation,
        const QByteArray &body = QByteArray(), uint offset = 0);
    HttpReply *get(const QUrl &url);
    HttpReply *head(const QUrl &url);
    HttpReply *deleteResource(const QUrl &url);
    // A form post: every pair percent-encoded and followed by "&", the last one too.
    HttpReply *post(const QUrl &url, const QMap<QString, QString> &params);
    HttpReply *post(const QUrl &url, const QByteArray &body, const QByteArray &contentType);
    HttpReply *put(const QUrl &url, const QByteArray &body, const QByteArray &contentType);

private:
    // A request with a body, the client's headers and a content type (form data by default).
    HttpReply *send(
        int operation, const QUrl &url, const QByteArray &body, const QByteArray &contentType);

    QMap<QByteArray, QByteArray> requestHeaders;
    int readTimeout;
    int maxRetries = 3;
};

// The reply of a network request, with the time-out and the retries.
class NetworkHttpReply : public HttpReply
{
    Q_OBJECT
public:
    NetworkHttpReply(const HttpRequest &req, Http &http);

    QUrl url() const override;
    int statusCode() const override;
    QString reasonPhrase() const override;
    QList<QNetworkReply::RawHeaderPair> headers() const override;
    QByteArray header(const QByteArray &name) const override;
    QByteArray body() const override;

private slots:
    void replyFinished();
    void replyError(QNetworkReply::NetworkError code);
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    void readTimeout();

private:
    void setupReply();
    void startAttempt();
    void emitError();
    QString errorMessage() const;

    Http &http;
    HttpRequest req;
    QNetworkReply *networkReply = nullptr;
    QTimer *readTimeoutTimer;
    int retryCount = 0;
    QByteArray bytes;
};
