#include "clientsession.h"

#include "json.h"
#include "l.h"
#include "qaesencryption.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTcpSocket>
#include <QUrlQuery>
#include <QtEndian>

#include <cstring>

ClientSession::ClientSession(const QString &id, QObject *parent)
    : QObject(parent)
    , m_id(id)
{
    qRegisterMetaType<Frame>();
    connect(&m_socket, &QWebSocket::binaryMessageReceived, this, &ClientSession::onBinaryMessage);
    connect(&m_socket, &QWebSocket::disconnected, this, [this] {
        m_closed = true;
        m_closeCode = m_socket.closeCode();
        if (m_failure.isEmpty() && m_closeCode == QWebSocketProtocol::CloseCodeTooMuchData)
            m_failure = QStringLiteral("the computer sent a message larger than %1 KiB")
                            .arg((m_authenticated ? maxIncomingMessageSize
                                                  : maxIncomingMessageSizeBeforeAuthentication)
                                / 1024);
        emit closed();
    });
    setLimits(false);
}

void ClientSession::setLimits(bool authenticated)
{
    const qint64 size
        = authenticated ? maxIncomingMessageSize : maxIncomingMessageSizeBeforeAuthentication;
    m_socket.setMaxAllowedIncomingMessageSize(quint64(size));
    m_socket.setMaxAllowedIncomingFrameSize(quint64(size));
}

void ClientSession::checkBacklog()
{
    const qint64 limit = m_authenticated ? maxQueuedBytes : maxQueuedBytesBeforeAuthentication;
    const qint64 waiting = m_socket.bytesToWrite();
    if (waiting <= limit || !m_failure.isEmpty())
        return;
    m_failure
        = QStringLiteral("the computer does not read what it is sent (%1 bytes wait)").arg(waiting);
    m_socket.abort();
}

QUrl ClientSession::serverUrl(const QString &host, quint16 port, const QString &id)
{
    QUrl url;
    url.setScheme(QStringLiteral("ws"));
    url.setHost(host);
    url.setPort(port);
    url.setPath(QStringLiteral("/"));
    QUrlQuery items;
    items.addQueryItem(QStringLiteral("i"), id);
    items.addQueryItem(QStringLiteral("v"), QStringLiteral("1"));
    url.setQuery(items);
    return url;
}

void ClientSession::open(const QUrl &url)
{
    m_socket.open(url);
    // The WebSocket layer answers every ping with a pong on its own and offers no signal for
    // it, so the backlog is looked at whenever its connection has read something (before the
    // layer, which reads on a queued call, has answered it).
    if (auto *transport = m_socket.findChild<QTcpSocket *>(QString(), Qt::FindDirectChildrenOnly))
        connect(transport, &QIODevice::readyRead, this, &ClientSession::checkBacklog,
            Qt::UniqueConnection);
}

void ClientSession::close() { m_socket.close(); }

QByteArray ClientSession::deriveKey(
    const QString &id, const QString &token, const QString &sessionToken)
{
    const QByteArray session = sessionToken.toUtf8();
    QByteArray input = id.toUtf8() + token.toUtf8() + session;
    if (!session.isEmpty()) {
        const int first = static_cast<signed char>(session.at(0));
        const int repeat = first % session.size();
        if (repeat > 0)
            input += session.left(repeat);
    }
    return QCryptographicHash::hash(input, QCryptographicHash::Sha1);
}

namespace {
const QAESEncryption &cipher()
{
    static const QAESEncryption aes(
        QAESEncryption::AES_128, QAESEncryption::CBC, QAESEncryption::PKCS7);
    return aes;
}
} // namespace

namespace {
// With the key as bytes, or expanded once for the connection's own messages.
template<typename Key>
QByteArray encryptWith(const QByteArray &plain, const Key &key)
{
    QByteArray body(16 + cipher().encodedSize(plain.size()), Qt::Uninitialized);
    quint32 words[4];
    QRandomGenerator::global()->fillRange(words);
    memcpy(body.data(), words, sizeof words);
    // AES-128 takes the key's first 16 bytes.
    cipher().encodeInto(body.data() + 16, plain.constData(), plain.size(), key, body.constData());
    return body;
}

template<typename Key>
QByteArray decryptWith(const QByteArray &body, const Key &key, bool *ok)
{
    *ok = false;
    if (body.size() < 32 || (body.size() - 16) % 16 != 0)
        return QByteArray();
    QByteArray padded(body.size() - 16, Qt::Uninitialized);
    if (cipher().decodeInto(
            padded.data(), body.constData() + 16, padded.size(), key, body.constData())
        != padded.size())
        return QByteArray();
    const int pad = uchar(padded.back());
    if (pad < 1 || pad > 16 || pad > padded.size())
        return QByteArray();
    for (int i = padded.size() - pad; i < padded.size(); ++i) {
        if (uchar(padded.at(i)) != pad)
            return QByteArray();
    }
    *ok = true;
    padded.chop(pad);
    return padded;
}

// A null key is no key: the frame is plain text.
template<typename Key>
bool parseFrameWith(const QByteArray &raw, const Key *key, Frame *frame)
{
    frame->raw = raw;
    const auto *bytes = reinterpret_cast<const uchar *>(raw.constData());
    const qint64 size = raw.size();
    if (size < 4)
        return false;
    const qint32 length = qFromBigEndian<qint32>(bytes);
    if (length < 0 || length > size - 4)
        return false;
    frame->body = raw.mid(4, length);
    if (!key) {
        frame->json = frame->body;
    } else {
        bool ok = false;
        frame->json = decryptWith(frame->body, *key, &ok);
        frame->encrypted = ok;
        if (!ok)
            return false;
    }
    // Only an object is a message.
    const char *text = frame->json.constData();
    const char *end = text + frame->json.size();
    while (text < end && (*text == ' ' || *text == '\t' || *text == '\n' || *text == '\r'))
        ++text;
    if (text == end || *text != '{' || !frame->request.read(frame->json))
        return false;
    qint64 at = 4 + qint64(length);
    while (at < size) {
        if (size - at < 5)
            return false;
        const qint8 type = qint8(bytes[at]);
        const qint32 partSize = qFromBigEndian<qint32>(bytes + at + 1);
        at += 5;
        if (partSize < 0 || partSize > size - at)
            return false;
        frame->parts.append({ type, raw.mid(int(at), partSize) });
        at += partSize;
    }
    return true;
}
} // namespace

QByteArray ClientSession::encryptBody(const QByteArray &plain, const QByteArray &key)
{
    return encryptWith(plain, key);
}

QByteArray ClientSession::decryptBody(const QByteArray &body, const QByteArray &key, bool *ok)
{
    return decryptWith(body, key, ok);
}

bool ClientSession::parseFrame(const QByteArray &raw, const QByteArray &key, Frame *frame)
{
    return parseFrameWith(raw, key.isEmpty() ? nullptr : &key, frame);
}

QByteArray ClientSession::proof() const { return deriveKey(m_id, m_token, m_sessionToken).toHex(); }

void ClientSession::prove() { send(L::auth, { { L::hash, QString::fromLatin1(proof()) } }); }

void ClientSession::send(const QJsonObject &object)
{
    const QByteArray json = Json::compact(object);
    sendRaw(m_key.isEmpty() ? json : encryptWith(json, m_expandedKey));
}

void ClientSession::send(const QString &method, std::initializer_list<Json::Field> fields)
{
    const QByteArray json = Json::compact(method, fields);
    sendRaw(m_key.isEmpty() ? json : encryptWith(json, m_expandedKey));
}

void ClientSession::sendRaw(const QByteArray &bytes) { m_socket.sendBinaryMessage(bytes); }

void ClientSession::onBinaryMessage(const QByteArray &message)
{
    onRawMessage(message);
    Frame frame;
    // The session token arrives in plain text although the key is about to exist; the key is
    // tried only once it has been derived.
    if (!parseFrameWith(message, m_key.isEmpty() ? nullptr : &m_expandedKey, &frame))
        return;
    const QString method = frame.method();
    if (method == L::waitingForAuth) {
        emit waitingForUser();
    } else if (method == L::auth) {
        const Request &o = frame.request;
        if (o.contains(L::token)) {
            m_token = o.value(L::token).toString();
            emit tokenReceived(m_token);
        } else if (o.contains(L::sessionToken)) {
            m_sessionToken = o.value(L::sessionToken).toString();
            m_key = deriveKey(m_id, m_token, m_sessionToken);
            m_expandedKey = QAESEncryption::ExpandedKey(QAESEncryption::AES_128, m_key);
            onSessionKey();
        } else if (o.value(L::value).toBool()) {
            m_authenticated = true;
            setLimits(true);
            emit authenticated();
        }
    }
    emit frameReceived(frame);
}
