#pragma once

#include <QByteArray>
#include <QObject>

class QTcpSocket;

// Stands between a client's TCP connection and the WebSocket layer, which reads only what the
// gate lets through: the handshake once it is whole, then whole frames. The first request
// head is announced (headReceived) so that the server can tell a WebSocket upgrade from a
// plain web request, which it answers itself (answer). It closes the
// connection when a client sends an unmasked frame (RFC 6455 requires clients to mask every
// frame; the WebSocket layer would take it) or a handshake longer than any client needs. Since
// the layer only ever sees whole units, it never waits in the middle of one.
//
// It must be made before the WebSocket layer connects to the socket, so that it reads first.
class FrameGate : public QObject
{
    Q_OBJECT
public:
    static constexpr int maxHandshakeSize = 8 * 1024;

    explicit FrameGate(QTcpSocket *socket);

    // Of a frame longer than this only the header is let through, for the WebSocket layer to
    // refuse; its body is never collected.
    void setFrameLimit(qint64 limit) { frameLimit = limit; }
    // Once the handshake has been taken, the frames that came with it are handed on.
    void handshakeTaken();
    // Sends a plain HTTP response in place of the WebSocket layer and closes the connection;
    // nothing the peer sends afterwards is read.
    void answer(const QByteArray &response);

    bool refused() const { return state == Refused; }

signals:
    // The request head is whole and has been put back for whoever reads it next. A slot may
    // hand the socket to the WebSocket layer (which announces what is waiting itself) or
    // answer() it.
    void headReceived(const QByteArray &head);

private:
    void onReadyRead();
    // Hands on every whole unit that `held` starts with, behind `unread` (what was handed on
    // before and is still unread); false when the connection was closed.
    bool release(const QByteArray &unread = QByteArray());
    // Whether what waits in the socket is whole, masked frames within the limit, and nothing
    // else; looked at without taking anything out.
    bool onlyWholeFrames() const;
    // Answers and closes: nothing more is read.
    void close(const QByteArray &response);
    // The length of the whole unit at `offset` in `held`; 0 when it is not whole yet, -1 when
    // the connection must be closed, malformedHead when a request head is answered with 400.
    qint64 wholeUnit(qint64 offset);
    static constexpr qint64 malformedHead = -2;

    enum State { Handshake, WaitingForUpgrade, Frames, Discarding, Refused, Answered };
    QTcpSocket *socket;
    QByteArray held;
    // The bytes last put back for the WebSocket layer.
    QByteArray handedOn;
    qint64 frameLimit = 0;
    State state = Handshake;
    bool delivering = false;
    qint64 oversizedHeader = 0;
    // Set while the head that was just found whole waits to be announced.
    qint64 headLength = 0;
    // How much of the request head has been searched for bare line feeds.
    qint64 scannedHead = 0;
};
