#pragma once

#include "clientsession.h"

#include <QList>

// The protocol's client on loopback, with what tests need besides: every message kept, and
// ways to misbehave (no proof, a proof in upper case).
class ProtocolClient : public ClientSession
{
    Q_OBJECT
public:
    explicit ProtocolClient(const QString &id, QObject *parent = nullptr);

    // Connects to ws://127.0.0.1:port/ with "i" = id and "v" = version, unless query is given.
    void open(quint16 port, const QString &query = QString());

    // When off, the client does not answer the server's session token with its proof.
    void setAutoProve(bool on) { m_autoProve = on; }
    // Upper-case hex in the proof (a wrong proof).
    void setUpperCaseProof(bool on) { m_upperCaseProof = on; }
    // When off, frames and raw messages are only signalled, not kept (long benchmark runs).
    void setKeepFrames(bool on) { m_keepFrames = on; }

    QList<Frame> frames;
    QList<QByteArray> rawMessages;

    // Frames with the given code received so far.
    QList<Frame> framesWith(const QString &method) const;
    // Sends the message, then asks for the unsupported list: true once that answer arrived,
    // which proves that the server has dealt with the message (within 5 s).
    bool sendAndSync(const QJsonObject &message);

protected:
    QByteArray proof() const override;
    void onSessionKey() override;
    void onRawMessage(const QByteArray &message) override;

private:
    bool m_autoProve = true;
    bool m_upperCaseProof = false;
    bool m_keepFrames = true;
};
