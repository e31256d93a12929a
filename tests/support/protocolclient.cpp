#include "protocolclient.h"

#include "l.h"

#include <QTest>

ProtocolClient::ProtocolClient(const QString &id, QObject *parent)
    : ClientSession(id, parent)
{
    connect(this, &ClientSession::frameReceived, this, [this](const Frame &frame) {
        if (m_keepFrames)
            frames.append(frame);
    });
}

void ProtocolClient::open(quint16 port, const QString &query)
{
    QUrl url = serverUrl(QStringLiteral("127.0.0.1"), port, id());
    if (!query.isNull())
        url.setQuery(query);
    ClientSession::open(url);
}

QByteArray ProtocolClient::proof() const
{
    const QByteArray hex = ClientSession::proof();
    return m_upperCaseProof ? hex.toUpper() : hex;
}

void ProtocolClient::onSessionKey()
{
    if (m_autoProve)
        prove();
}

void ProtocolClient::onRawMessage(const QByteArray &message)
{
    if (m_keepFrames)
        rawMessages.append(message);
}

QList<Frame> ProtocolClient::framesWith(const QString &method) const
{
    QList<Frame> result;
    for (const Frame &frame : frames) {
        if (frame.method() == method)
            result.append(frame);
    }
    return result;
}

bool ProtocolClient::sendAndSync(const QJsonObject &message)
{
    const int before = framesWith(L::unsupported).size();
    send(message);
    send(QJsonObject { { L::method, L::unsupported } });
    return QTest::qWaitFor([&] { return framesWith(L::unsupported).size() > before; }, 5000);
}
