#pragma once

#include "http.h"

#include <QElapsedTimer>

// An Http that lets requests through at least `milliseconds` apart.
class ThrottledHttp : public Http
{
public:
    explicit ThrottledHttp(Http &http);

    HttpReply *request(const HttpRequest &req) override;
    void setMilliseconds(int value) { milliseconds = value; }

private:
    Http &http;
    int milliseconds = 1000;
    QElapsedTimer elapsedTimer;
};

// A request waiting for its turn; once sent, it relays the inner reply's signals.
class ThrottledHttpReply : public HttpReply
{
    Q_OBJECT
public:
    ThrottledHttpReply(
        Http &http, const HttpRequest &req, int milliseconds, QElapsedTimer &elapsedTimer);

    QUrl url() const override;
    int statusCode() const override;
    QByteArray body() const override;

private slots:
    void checkElapsed();
    void doRequest();

private:
    Http &http;
    HttpRequest req;
    int milliseconds;
    QElapsedTimer &elapsedTimer;
    QTimer *timer = nullptr;
    HttpReply *inner = nullptr;
};
