#include "protocolclient.h"

#include "l.h"

#include "qaesencryption.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTest>
#include <QUrl>
#include <QUrlQuery>

ProtocolClient::ProtocolClient(const QString &id, QObject *parent)
    : QObject(parent)
    , m_id(id)
{
    // So that tests can spy on frameReceived.
    qRegisterMetaType<Frame>();
    connect(&m_socket, &QWebSocket::binaryMessageReceived, this, &ProtocolClient::onBinaryMessage);
    connect(&m_socket, &QWebSocket::disconnected, this, [this] {
        m_closed = true;
        m_closeCode = m_socket.closeCode();
    });
}

void ProtocolClient::open(quint16 port, const QString &query)
{
    QUrl url;
    url.setScheme(QStringLiteral("ws"));
    url.setHost(QStringLiteral("127.0.0.1"));
    url.setPort(port);
    url.setPath(QStringLiteral("/"));
    if (query.isNull()) {
        QUrlQuery items;
        items.addQueryItem(QStringLiteral("i"), m_id);
        items.addQueryItem(QStringLiteral("v"), QStringLiteral("1"));
        url.setQuery(items);
    } else {
        url.setQuery(query);
    }
    m_socket.open(url);
}

void ProtocolClient::close() { m_socket.close(); }

QByteArray ProtocolClient::deriveKey(
    const QString &id, const QString &token, const QString &sessionToken)
{
    const QByteArray session = sessionToken.toUtf8();
    QByteArray input = id.toUtf8() + token.toUtf8() + session;
    const int first = static_cast<signed char>(session.at(0));
    const int repeat = first % session.size();
    if (repeat > 0)
        input += session.left(repeat);
    return QCryptographicHash::hash(input, QCryptographicHash::Sha1);
}

QByteArray ProtocolClient::encryptBody(const QByteArray &plain, const QByteArray &key)
{
    quint32 words[4];
    QRandomGenerator::global()->fillRange(words);
    const QByteArray iv(reinterpret_cast<const char *>(words), sizeof words);
    return iv
        + QAESEncryption::Crypt(QAESEncryption::AES_128, QAESEncryption::CBC, plain, key.left(16),
            iv, QAESEncryption::PKCS7);
}

QByteArray ProtocolClient::decryptBody(const QByteArray &body, const QByteArray &key, bool *ok)
{
    *ok = false;
    if (body.size() < 32 || (body.size() - 16) % 16 != 0)
        return QByteArray();
    const QByteArray padded = QAESEncryption::Decrypt(QAESEncryption::AES_128, QAESEncryption::CBC,
        body.mid(16), key.left(16), body.left(16), QAESEncryption::PKCS7);
    const int pad = uchar(padded.back());
    if (pad < 1 || pad > 16)
        return QByteArray();
    for (int i = padded.size() - pad; i < padded.size(); ++i) {
        if (uchar(padded.at(i)) != pad)
            return QByteArray();
    }
    *ok = true;
    return padded.left(padded.size() - pad);
}

bool ProtocolClient::parseFrame(const QByteArray &raw, const QByteArray &key, Frame *frame)
{
    frame->raw = raw;
    QDataStream stream(raw);
    qint32 length = 0;
    stream >> length;
    if (stream.status() != QDataStream::Ok || length < 0 || length > raw.size() - 4)
        return false;
    frame->body = raw.mid(4, length);
    stream.skipRawData(length);
    if (key.isEmpty()) {
        frame->json = frame->body;
    } else {
        bool ok = false;
        frame->json = decryptBody(frame->body, key, &ok);
        frame->encrypted = ok;
        if (!ok)
            return false;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(frame->json, &error);
    if (!document.isObject())
        return false;
    frame->object = document.object();
    while (!stream.atEnd()) {
        qint8 type = 0;
        qint32 size = 0;
        stream >> type >> size;
        if (stream.status() != QDataStream::Ok || size < 0)
            return false;
        QByteArray data(size, Qt::Uninitialized);
        if (stream.readRawData(data.data(), size) != size)
            return false;
        frame->parts.append({ type, data });
    }
    return true;
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

void ProtocolClient::prove()
{
    QByteArray hex = deriveKey(m_id, m_token, m_sessionToken).toHex();
    if (m_upperCaseProof)
        hex = hex.toUpper();
    send(QJsonObject { { QStringLiteral("_"), QStringLiteral("au") },
        { QStringLiteral("h"), QString::fromLatin1(hex) } });
}

void ProtocolClient::send(const QJsonObject &object)
{
    const QByteArray json = QJsonDocument(object).toJson(QJsonDocument::Compact);
    sendRaw(m_key.isEmpty() ? json : encryptBody(json, m_key));
}

void ProtocolClient::sendRaw(const QByteArray &bytes) { m_socket.sendBinaryMessage(bytes); }

void ProtocolClient::onBinaryMessage(const QByteArray &message)
{
    if (m_keepFrames)
        rawMessages.append(message);
    Frame frame;
    // The session token arrives in plain text although the key is about to exist; try the key
    // only once it has been derived.
    if (!parseFrame(message, m_key, &frame))
        return;
    if (m_keepFrames)
        frames.append(frame);
    const QString method = frame.method();
    if (method == QLatin1String("wa")) {
        emit waitingForUser();
    } else if (method == QLatin1String("au")) {
        const QJsonObject &o = frame.object;
        if (o.contains(QLatin1String("t"))) {
            m_token = o.value(QLatin1String("t")).toString();
            emit tokenReceived(m_token);
        } else if (o.contains(QLatin1String("st"))) {
            m_sessionToken = o.value(QLatin1String("st")).toString();
            m_key = deriveKey(m_id, m_token, m_sessionToken);
            if (m_autoProve)
                prove();
        } else if (o.value(QLatin1String("v")).toBool()) {
            m_authenticated = true;
            emit authenticated();
        }
    }
    emit frameReceived(frame);
}

bool ProtocolClient::sendAndSync(const QJsonObject &message)
{
    const int before = framesWith(L::unsupported).size();
    send(message);
    send(QJsonObject { { L::method, L::unsupported } });
    return QTest::qWaitFor([&] { return framesWith(L::unsupported).size() > before; }, 5000);
}
