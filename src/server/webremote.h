#pragma once

#include <QByteArray>
#include <QStringList>

// The web remote's side of the listening port: the request heads that are not WebSocket
// upgrades are answered here with the remote's files, which are compiled into the program.
// Nothing is read from disk and nothing but those files can be named, so a request can never
// reach another resource or file.
namespace WebRemote {

// Whether a request head asks for a WebSocket upgrade (the server takes it then). A head
// that is not well formed (more than one Origin, or a line without its CR) never is: it is
// answered with 400 before the WebSocket layer, whose reading of it might differ, sees it.
bool isUpgrade(const QByteArray &head);

// The whole response to a request head that is not an upgrade: status line, headers and,
// except for HEAD, the body. The connection closes after it.
QByteArray respond(const QByteArray &head);

// Answer to a head longer than the server reads.
QByteArray tooLarge();

// Answer to a head that is not well formed.
QByteArray badRequest();

// The paths served, "/" among them.
QStringList paths();

} // namespace WebRemote
