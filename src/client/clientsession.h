#pragma once

#include "json.h"
#include "qaesencryption.h"
#include "request.h"

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QPair>
#include <QString>
#include <QUrl>
#include <QVector>
#include <QWebSocket>

// One decoded server-to-client message.
struct Frame
{
    QByteArray raw;
    QByteArray body; // as sent: encrypted when the connection had a key
    QByteArray json; // the JSON text
    // Read as the server reads requests: most replies are flat and need no QJsonObject.
    Request request;
    bool encrypted = false;
    QVector<QPair<qint8, QByteArray>> parts;
    QString method() const { return request.method(); }
    QJsonObject object() const { return request.toObject(); }
};
Q_DECLARE_METATYPE(Frame)

// The client's side of the protocol over a WebSocket, as a phone speaks it: it asks to pair
// when it has no token, keeps the token it is given, derives the session key from the session
// token, proves it, and from then on encrypts its requests and decrypts the replies.
class ClientSession : public QObject
{
    Q_OBJECT
public:
    explicit ClientSession(const QString &id, QObject *parent = nullptr);

    // What a client takes from the computer it reaches, which may be anything that answers on
    // that address: the server's own limits, seen from the other side. Beyond them the
    // connection is dropped and failure() says why.
    static constexpr qint64 maxIncomingMessageSizeBeforeAuthentication = 4 * 1024;
    static constexpr qint64 maxIncomingMessageSize = 64 * 1024 * 1024;
    static constexpr qint64 maxQueuedBytesBeforeAuthentication = 64 * 1024;
    static constexpr qint64 maxQueuedBytes = 16 * 1024 * 1024;

    // ws://host:port/ with "i" = id and "v" = the protocol version.
    static QUrl serverUrl(const QString &host, quint16 port, const QString &id);
    void open(const QUrl &url);
    void close();

    QWebSocket &socket() { return m_socket; }
    QString id() const { return m_id; }
    QString token() const { return m_token; }
    void setToken(const QString &token) { m_token = token; }
    QByteArray key() const { return m_key; }
    QString sessionToken() const { return m_sessionToken; }
    bool isAuthenticated() const { return m_authenticated; }
    bool isClosed() const { return m_closed; }
    int closeCode() const { return m_closeCode; }
    // Why the connection was dropped on this side, if it was: a limit the computer broke.
    QString failure() const { return m_failure; }

    // Answers the session token with the proof of the key.
    void prove();
    // Encrypted with the session key when there is one.
    void send(const QJsonObject &object);
    // The object of those fields with "_" = method, written without making it.
    void send(const QString &method, std::initializer_list<Json::Field> fields);
    void sendRaw(const QByteArray &bytes);

    // The derivation as a client computes it.
    static QByteArray deriveKey(
        const QString &id, const QString &token, const QString &sessionToken);
    static QByteArray encryptBody(const QByteArray &plain, const QByteArray &key);
    // Checks the padding strictly: an empty result with ok false means it did not decrypt.
    static QByteArray decryptBody(const QByteArray &body, const QByteArray &key, bool *ok);
    // Splits one server message; false when the framing is malformed.
    static bool parseFrame(const QByteArray &raw, const QByteArray &key, Frame *frame);

signals:
    void frameReceived(const Frame &frame);
    // The server waits for its user to approve this device.
    void waitingForUser();
    void tokenReceived(const QString &token);
    void authenticated();
    void closed();

protected:
    // The proof sent for the session key: its hex digest.
    virtual QByteArray proof() const;
    // The key has just been derived; a phone proves it at once.
    virtual void onSessionKey() { prove(); }
    // Every message as it came, before it is parsed.
    virtual void onRawMessage(const QByteArray &) { }

private:
    void onBinaryMessage(const QByteArray &message);
    void setLimits(bool authenticated);
    // Pongs and requests wait for a computer that may never read them.
    void checkBacklog();

    QWebSocket m_socket;
    QString m_id;
    QString m_token;
    QString m_sessionToken;
    QByteArray m_key;
    QAESEncryption::ExpandedKey m_expandedKey;
    bool m_authenticated = false;
    bool m_closed = false;
    int m_closeCode = -1;
    QString m_failure;
};
