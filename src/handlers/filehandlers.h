#pragma once

#include "messagehandler.h"

#include <QByteArray>

class QPixmap;

// The file handlers read files through FileWork, off the event loop: each reply goes out when
// its work is done, or with the "cannot be read" answer when it took too long.

// "dl": the entries of a directory, folders first, in the user's alphabetical order.
class DirectoryListingHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;

    // The "files" array for a directory, as compact JSON text: no hidden or special entries;
    // folders (other than ".app" bundles) carry "t": "d". Empty ("[]") when the directory
    // cannot be read. Written directly: a QJsonArray of 100k objects costs more than the
    // listing itself.
    static QByteArray listDirectory(const QString &path);
};

// "fi": the icon of a file ("p") or of a file type ("t").
class FileIconHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;

private:
    // Sends nothing for a null icon.
    void answer(QWebSocket *socket, const QJsonObject &reply, const QPixmap &icon);
};

// "fp": a preview of a file; an empty attachment when there is none.
class FilePreviewHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "fia": the applications that can open a file.
class FileAppsHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};

// "fo": opens a file, with the application "i" or the default one.
class FileOpenHandler : public MessageHandler
{
    Q_OBJECT
public:
    using MessageHandler::MessageHandler;
    void handle(const Request &message, QWebSocket *socket) override;
};
