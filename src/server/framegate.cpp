#include "framegate.h"

#include "serverlogging.h"
#include "webremote.h"

#include <QTcpSocket>
#include <QTimer>
#include <QtEndian>

namespace {
constexpr int closeGrace = 1000;
}

FrameGate::FrameGate(QTcpSocket *socket)
    : QObject(socket)
    , socket(socket)
{
    connect(socket, &QTcpSocket::readyRead, this, &FrameGate::onReadyRead);
}

void FrameGate::onReadyRead()
{
    // What the gate put back itself, re-announced.
    if (delivering)
        return;
    // The rest of a frame that was refused from its header, and whatever follows a refusal or
    // an answer, is read for nobody.
    if (state == Refused || state == Discarding || state == Answered) {
        socket->skip(socket->bytesAvailable());
        return;
    }
    // The usual case: whole frames and nothing held back. They stay where the WebSocket layer
    // reads them, untouched.
    if (state == Frames && held.isEmpty() && onlyWholeFrames())
        return;
    QByteArray incoming = socket->readAll();
    // The WebSocket layer reads on queued calls, so what was handed on last time may still be
    // unread, at the front of what came in: it stays there, ahead of everything held back.
    // Among frames with nothing held back, everything waiting is whole frames from its start
    // and is read as such; the handshake, though, must stay ahead of the frames behind it.
    QByteArray unread;
    if ((!held.isEmpty() || state != Frames) && !handedOn.isEmpty()
        && incoming.startsWith(handedOn)) {
        unread = handedOn;
        incoming.remove(0, handedOn.size());
    }
    held += incoming;
    release(unread);
}

bool FrameGate::release(const QByteArray &unread)
{
    qint64 ready = 0;
    while (state != WaitingForUpgrade && state != Discarding) {
        const qint64 unit = wholeUnit(ready);
        if (unit == malformedHead) {
            close(WebRemote::badRequest());
            return false;
        }
        if (unit < 0) {
            if (state == Handshake) {
                // A request head too long to read: said in plain HTTP, which a browser shows.
                close(WebRemote::tooLarge());
            } else {
                state = Refused;
                held.clear();
                handedOn.clear();
                socket->abort();
            }
            return false;
        }
        if (unit == 0)
            break;
        ready += unit;
        if (state == Handshake) {
            state = WaitingForUpgrade;
            headLength = unit;
        }
    }
    if (state == Discarding) {
        // Only the header of the frame that is too long goes on, for the WebSocket layer to
        // refuse it (close code 1009); its body is never collected or looked at.
        ready += oversizedHeader;
        held.truncate(int(ready));
        // A peer busy sending the body may never answer that layer's close frame: the
        // connection ends a moment later all the same.
        QTimer::singleShot(closeGrace, socket, [socket = socket] { socket->disconnectFromHost(); });
    }
    // Put back at the front of the socket's buffer, where the WebSocket layer reads.
    handedOn = unread + held.left(int(ready));
    for (qint64 i = handedOn.size() - 1; i >= 0; --i)
        socket->ungetChar(handedOn.at(int(i)));
    held.remove(0, int(ready));
    if (headLength > 0) {
        const QByteArray head = handedOn.left(int(headLength));
        headLength = 0;
        // Whoever takes the head announces what waits for it; the gate must not take it back.
        delivering = true;
        emit headReceived(head);
        delivering = false;
    }
    return true;
}

bool FrameGate::onlyWholeFrames() const
{
    // Looked at on every arrival: what is usually waiting is one small frame, copied to the
    // stack rather than into a buffer made for it.
    char small[512];
    QByteArray large;
    const char *data = small;
    qint64 size = socket->bytesAvailable();
    if (size <= qint64(sizeof small)) {
        size = qMax<qint64>(0, socket->peek(small, size));
    } else {
        large = socket->peek(size);
        data = large.constData();
        size = large.size();
    }
    const auto *bytes = reinterpret_cast<const uchar *>(data);
    qint64 offset = 0;
    while (offset < size) {
        if (size - offset < 2 || !(bytes[offset + 1] & 0x80))
            return false;
        qint64 length = bytes[offset + 1] & 0x7f;
        qint64 header = 2;
        if (length == 126) {
            header = 4;
            if (size - offset < header)
                return false;
            length = qFromBigEndian<quint16>(bytes + offset + 2);
        } else if (length == 127) {
            // Long frames take the careful way.
            return false;
        }
        header += 4;
        if ((frameLimit > 0 && length > frameLimit) || size - offset < header + length)
            return false;
        offset += header + length;
    }
    return true;
}

void FrameGate::answer(const QByteArray &response)
{
    if (state != WaitingForUpgrade)
        return;
    socket->skip(socket->bytesAvailable());
    close(response);
}

void FrameGate::close(const QByteArray &response)
{
    state = Answered;
    held.clear();
    handedOn.clear();
    socket->write(response);
    socket->disconnectFromHost();
    // A peer that never reads what it is sent holds the connection no longer than this.
    QTimer::singleShot(closeGrace * 5, socket, [socket = socket] { socket->abort(); });
}

qint64 FrameGate::wholeUnit(qint64 offset)
{
    const qint64 size = held.size() - offset;
    if (state == Handshake) {
        const int end = held.indexOf("\r\n\r\n", int(offset));
        const qint64 length = end < 0 ? size : end + 4 - offset;
        // A line ended by a bare LF: parsers differ on where such a line ends (Qt's handshake
        // reader takes it as an end, others as part of the line), so a header could be seen
        // by one and not the other. No browser sends one; it is refused as soon as it shows.
        // Only the bytes new since the last look are searched.
        const qint64 from = qMax(offset, scannedHead);
        for (int at = held.indexOf('\n', int(from)); at >= 0 && at < offset + length;
             at = held.indexOf('\n', at + 1)) {
            if (at == 0 || held.at(at - 1) != '\r') {
                qCWarning(lcServer) << "Refused a request head with a line ended by a bare LF";
                return malformedHead;
            }
        }
        scannedHead = offset + length;
        if (length > maxHandshakeSize) {
            qCWarning(lcServer) << "Refused a handshake of more than" << maxHandshakeSize
                                << "bytes";
            return -1;
        }
        return end < 0 ? 0 : length;
    }
    if (size < 2)
        return 0;
    const auto *bytes = reinterpret_cast<const uchar *>(held.constData() + offset);
    if (!(bytes[1] & 0x80)) {
        qCWarning(lcServer) << "Closing a connection that sent an unmasked frame";
        return -1;
    }
    qint64 length = bytes[1] & 0x7f;
    qint64 header = 2;
    if (length == 126) {
        header = 4;
        if (size < header)
            return 0;
        length = qFromBigEndian<quint16>(bytes + 2);
    } else if (length == 127) {
        header = 10;
        if (size < header)
            return 0;
        const quint64 declared = qFromBigEndian<quint64>(bytes + 2);
        length = declared > (quint64(1) << 62) ? qint64(1) << 62 : qint64(declared);
    }
    header += 4; // the masking key
    if (frameLimit > 0 && length > frameLimit) {
        if (size < header)
            return 0;
        state = Discarding;
        oversizedHeader = header;
        return 0;
    }
    if (size < header + length)
        return 0;
    return header + length;
}

void FrameGate::handshakeTaken()
{
    if (state != WaitingForUpgrade)
        return;
    state = Frames;
    // The handshake has been read: nothing handed on is waiting any more.
    handedOn.clear();
    if (held.isEmpty() || !release() || socket->bytesAvailable() == 0)
        return;
    // Frames that came right behind the handshake: nothing more may arrive to announce them.
    delivering = true;
    emit socket->readyRead();
    delivering = false;
}
