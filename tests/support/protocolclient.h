#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QVector>
#include <QWebSocket>

// One decoded server-to-client message.
struct Frame
{
    QByteArray raw;
    QByteArray body; // as sent: encrypted when the connection had a key
    QByteArray json; // the JSON text
    QJsonObject object;
    bool encrypted = false;
    QVector<QPair<qint8, QByteArray>> parts;
    QString method() const { return object.value(QStringLiteral("_")).toString(); }
};
Q_DECLARE_METATYPE(Frame)

// A client that speaks the protocol over a real WebSocket, the way a phone does: it pairs,
// keeps its token, derives the session key, proves it, and encrypts its requests.
class ProtocolClient : public QObject
{
    Q_OBJECT
public:
    explicit ProtocolClient(const QString &id, QObject *parent = nullptr);

    // Connects to ws://127.0.0.1:port/ with "i" = id and "v" = version, unless query is given.
    void open(quint16 port, const QString &query = QString());
    void close();

    QWebSocket &socket() { return m_socket; }
    QString id() const { return m_id; }
    QString token() const { return m_token; }
    void setToken(const QString &token) { m_token = token; }
    QByteArray key() const { return m_key; }
    bool isAuthenticated() const { return m_authenticated; }
    // When off, the client does not answer the server's session token with its proof.
    void setAutoProve(bool on) { m_autoProve = on; }
    // Upper-case hex in the proof (a wrong proof).
    void setUpperCaseProof(bool on) { m_upperCaseProof = on; }
    // When off, frames and raw messages are only signalled, not kept (long benchmark runs).
    void setKeepFrames(bool on) { m_keepFrames = on; }
    void prove();

    // Encrypted with the session key when there is one.
    void send(const QJsonObject &object);
    void sendRaw(const QByteArray &bytes);

    QList<Frame> frames;
    QList<QByteArray> rawMessages;
    int closeCode() const { return m_closeCode; }
    bool isClosed() const { return m_closed; }
    QString sessionToken() const { return m_sessionToken; }

    // The derivation as a client computes it.
    static QByteArray deriveKey(
        const QString &id, const QString &token, const QString &sessionToken);
    static QByteArray encryptBody(const QByteArray &plain, const QByteArray &key);
    // Checks the padding strictly, unlike the server: an empty result means it did not decrypt.
    static QByteArray decryptBody(const QByteArray &body, const QByteArray &key, bool *ok);
    // Splits one server message; false when the framing is malformed.
    static bool parseFrame(const QByteArray &raw, const QByteArray &key, Frame *frame);

    // Frames with the given code received so far.
    QList<Frame> framesWith(const QString &method) const;
    // Sends the message, then asks for the unsupported list: true once that answer arrived,
    // which proves that the server has dealt with the message (within 5 s).
    bool sendAndSync(const QJsonObject &message);

signals:
    void frameReceived(const Frame &frame);
    void authenticated();
    void tokenReceived(const QString &token);
    void waitingForUser();

private:
    void onBinaryMessage(const QByteArray &message);

    QWebSocket m_socket;
    QString m_id;
    QString m_token;
    QString m_sessionToken;
    QByteArray m_key;
    bool m_authenticated = false;
    bool m_autoProve = true;
    bool m_upperCaseProof = false;
    bool m_keepFrames = true;
    bool m_closed = false;
    int m_closeCode = -1;
};
