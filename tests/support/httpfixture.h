#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QTcpServer>
#include <QUrl>

class QTcpSocket;

// One scripted answer of the fixture.
struct FixtureResponse
{
    int status = 200;
    QByteArray reason = "OK";
    QByteArray body;
    QList<QPair<QByteArray, QByteArray>> headers;
    // Milliseconds before the status line, and between the two halves of the body.
    int firstByteDelay = 0;
    int chunkDelay = 0;
};

struct FixtureRequest
{
    QByteArray method;
    QByteArray target; // path and query, as sent
    QMap<QByteArray, QByteArray> headers; // names in lower case
    QByteArray body;
};

// A real HTTP/1.1 server on loopback whose answers each test scripts: per target, a sequence
// of responses (the last one repeats), with delays before the first byte and between chunks.
// Every request is logged with its headers. Unscripted targets get 404.
class HttpFixture : public QObject
{
    Q_OBJECT
public:
    explicit HttpFixture(QObject *parent = nullptr);

    quint16 port() const { return m_server.serverPort(); }
    // http://127.0.0.1:<port><target>
    QUrl url(const QByteArray &target) const;
    QByteArray base() const;
    // Target is the path with its query, exactly as the client will send it.
    void script(const QByteArray &target, const QList<FixtureResponse> &responses);
    int count(const QByteArray &target) const;

    QList<FixtureRequest> requests;

signals:
    void requestReceived(const FixtureRequest &request);

private:
    void onNewConnection();
    void onReadyRead(QTcpSocket *socket);
    void respond(QTcpSocket *socket, const FixtureResponse &response);

    QTcpServer m_server;
    QHash<QByteArray, QList<FixtureResponse>> m_scripts;
    QHash<QTcpSocket *, QByteArray> m_buffers;
};
