#include "httpfixture.h"

#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

HttpFixture::HttpFixture(QObject *parent)
    : QObject(parent)
{
    m_server.listen(QHostAddress::LocalHost, 0);
    connect(&m_server, &QTcpServer::newConnection, this, &HttpFixture::onNewConnection);
}

QUrl HttpFixture::url(const QByteArray &target) const
{
    return QUrl(QString::fromUtf8(base() + target));
}

QByteArray HttpFixture::base() const { return "http://127.0.0.1:" + QByteArray::number(port()); }

void HttpFixture::script(const QByteArray &target, const QList<FixtureResponse> &responses)
{
    m_scripts.insert(target, responses);
}

int HttpFixture::count(const QByteArray &target) const
{
    int n = 0;
    for (const FixtureRequest &request : requests) {
        if (request.target == target)
            ++n;
    }
    return n;
}

void HttpFixture::onNewConnection()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        socket->setParent(this);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_buffers.remove(socket);
            socket->deleteLater();
        });
    }
}

void HttpFixture::onReadyRead(QTcpSocket *socket)
{
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    for (;;) {
        const int end = buffer.indexOf("\r\n\r\n");
        if (end < 0)
            return;
        const QList<QByteArray> lines = buffer.left(end).split('\n');
        FixtureRequest request;
        const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
        request.method = requestLine.value(0);
        request.target = requestLine.value(1);
        for (int i = 1; i < lines.size(); ++i) {
            const int colon = lines.at(i).indexOf(':');
            if (colon > 0)
                request.headers.insert(lines.at(i).left(colon).trimmed().toLower(),
                    lines.at(i).mid(colon + 1).trimmed());
        }
        const int length = request.headers.value("content-length").toInt();
        if (buffer.size() < end + 4 + length)
            return;
        request.body = buffer.mid(end + 4, length);
        buffer.remove(0, end + 4 + length);
        requests.append(request);
        emit requestReceived(request);

        FixtureResponse response;
        response.status = 404;
        response.reason = "Not Found";
        auto script = m_scripts.find(request.target);
        if (script != m_scripts.end() && !script->isEmpty())
            response = script->size() > 1 ? script->takeFirst() : script->first();
        respond(socket, response);
    }
}

void HttpFixture::respond(QTcpSocket *socket, const FixtureResponse &response)
{
    QByteArray head
        = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' + response.reason + "\r\n";
    head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
    head += "Connection: keep-alive\r\n";
    for (const auto &header : response.headers)
        head += header.first + ": " + header.second + "\r\n";
    head += "\r\n";
    const QPointer<QTcpSocket> target(socket);
    const QByteArray first = response.body.left(response.body.size() / 2);
    const QByteArray second = response.body.mid(response.body.size() / 2);
    const int chunkDelay = response.chunkDelay;
    auto send = [target, head, first, second, chunkDelay] {
        if (!target)
            return;
        target->write(head + first);
        target->flush();
        if (chunkDelay <= 0) {
            target->write(second);
            return;
        }
        QTimer::singleShot(chunkDelay, target, [target, second] {
            if (target)
                target->write(second);
        });
    };
    if (response.firstByteDelay > 0)
        QTimer::singleShot(response.firstByteDelay, socket, send);
    else
        send();
}
