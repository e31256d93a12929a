#include "throttledhttp.h"

#include <QTimer>

ThrottledHttp::ThrottledHttp(Http &http)
    : http(http)
{
    elapsedTimer.start();
}

HttpReply *ThrottledHttp::request(const HttpRequest &req)
{
    return new ThrottledHttpReply(http, req, milliseconds, elapsedTimer);
}

ThrottledHttpReply::ThrottledHttpReply(
    Http &http, const HttpRequest &req, int milliseconds, QElapsedTimer &elapsedTimer)
    : http(http)
    , req(req)
    , milliseconds(milliseconds)
    , elapsedTimer(elapsedTimer)
{
    checkElapsed();
}

QUrl ThrottledHttpReply::url() const { return inner ? inner->url() : req.url; }

int ThrottledHttpReply::statusCode() const { return inner ? inner->statusCode() : 0; }

QByteArray ThrottledHttpReply::body() const { return inner ? inner->body() : QByteArray(); }

void ThrottledHttpReply::checkElapsed()
{
    const qint64 elapsed = elapsedTimer.elapsed();
    if (elapsed >= milliseconds) {
        elapsedTimer.restart();
        doRequest();
        return;
    }
    if (!timer) {
        timer = new QTimer(this);
        timer->setSingleShot(true);
        timer->setTimerType(Qt::PreciseTimer);
        connect(timer, &QTimer::timeout, this, &ThrottledHttpReply::checkElapsed);
    }
    timer->setInterval(int(milliseconds - elapsed));
    timer->start();
}

void ThrottledHttpReply::doRequest()
{
    inner = http.request(req);
    connect(inner, &HttpReply::data, this, &HttpReply::data);
    connect(inner, &HttpReply::error, this, &HttpReply::error);
    connect(inner, &HttpReply::finished, this, &HttpReply::finished);
    setParent(inner);
}
