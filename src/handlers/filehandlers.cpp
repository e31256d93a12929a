#include "filehandlers.h"

#include "app.h"
#include "handlerutils.h"
#include "l.h"
#include "platform.h"
#include "server.h"

#include <QCollator>
#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <algorithm>
#include <dirent.h>
#include <sys/stat.h>
#include <vector>

namespace {

const QString directoryType = QStringLiteral("d");
const QString bundleSuffix = QStringLiteral(".app");

struct Entry
{
    QString name;
    bool directory;
    QCollatorSortKey key;
};

// What a listing shows of one directory entry: a folder, a file, or nothing (special files
// and dangling links, as QDir leaves out without QDir::System).
enum class Kind { Directory, File, Skip };

Kind kindOf(int dirFd, const dirent *entry)
{
    switch (entry->d_type) {
    case DT_DIR:
        return Kind::Directory;
    case DT_REG:
        return Kind::File;
    case DT_LNK:
    case DT_UNKNOWN: {
        struct stat info;
        if (fstatat(dirFd, entry->d_name, &info, 0) != 0)
            return Kind::Skip;
        if (S_ISDIR(info.st_mode))
            return Kind::Directory;
        return S_ISREG(info.st_mode) ? Kind::File : Kind::Skip;
    }
    default:
        return Kind::Skip;
    }
}

} // namespace

QJsonArray DirectoryListingHandler::listDirectory(const QString &path)
{
    // readdir and precomputed collation keys: QDir with locale-aware sorting compares through
    // the collator on every comparison, several times slower on large folders.
    DIR *dir = opendir(QFile::encodeName(path).constData());
    if (!dir)
        return QJsonArray();
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    // In the C locale the collator's keys are plain bytes whatever its case setting: fold first.
    const bool plainLocale = collator.locale().language() == QLocale::C;
    std::vector<Entry> entries;
    const int fd = dirfd(dir);
    while (const dirent *entry = readdir(dir)) {
        if (entry->d_name[0] == '.')
            continue; // hidden, and "." and ".."
        const Kind kind = kindOf(fd, entry);
        if (kind == Kind::Skip)
            continue;
        QString name = QFile::decodeName(entry->d_name);
        QCollatorSortKey key = collator.sortKey(plainLocale ? name.toCaseFolded() : name);
        entries.push_back({ std::move(name), kind == Kind::Directory, std::move(key) });
    }
    closedir(dir);

    std::sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) {
        if (a.directory != b.directory)
            return a.directory;
        return a.key.compare(b.key) < 0;
    });

    QJsonArray files;
    for (const Entry &entry : entries) {
        QJsonObject file { { L::name, entry.name } };
        if (entry.directory && !entry.name.endsWith(bundleSuffix))
            file.insert(L::type, directoryType);
        files.append(file);
    }
    return files;
}

void DirectoryListingHandler::handle(const QJsonObject &message, QWebSocket *socket)
{
    QString path = message.value(L::path).toString();
    if (path.isEmpty())
        path = QStandardPaths::writableLocation(QStandardPaths::HomeLocation);
    server->sendMessage(socket, name,
        QJsonObject { { L::path, path }, { L::name, QDir(path).dirName() },
            { L::files, listDirectory(path) } });
}

void FileIconHandler::handle(const QJsonObject &message, QWebSocket *socket)
{
    const int size = message.value(L::size).toInt();
    if (size < 16)
        return;
    QJsonObject reply { { L::method, name }, { L::size, size } };
    QPixmap icon;
    const QString path = message.value(L::path).toString();
    if (!path.isEmpty()) {
        icon = HandlerUtils::platform()->iconForFile(path, size);
        reply.insert(L::path, path);
    } else {
        const QString type = message.value(L::type).toString();
        icon = HandlerUtils::platform()->iconForFileType(type, size);
        reply.insert(L::type, type);
    }
    if (icon.isNull())
        return;
    server->sendMessage(
        socket, reply, Server::MessagePart { Server::Png, HandlerUtils::toPng(icon) });
}

void FilePreviewHandler::handle(const QJsonObject &message, QWebSocket *socket)
{
    const QString path = message.value(L::path).toString();
    if (path.isEmpty())
        return;
    const int width = message.value(L::width).toInt();
    const int height = message.value(L::height).toInt();
    const QPixmap preview = HandlerUtils::platform()->previewForFile(path, width, height);
    const QJsonObject reply { { L::method, name }, { L::path, path }, { L::width, width },
        { L::height, height } };
    server->sendMessage(
        socket, reply, Server::MessagePart { Server::Png, HandlerUtils::toPng(preview) });
}

void FileAppsHandler::handle(const QJsonObject &message, QWebSocket *socket)
{
    const QString path = message.value(L::path).toString();
    QJsonArray apps;
    for (App *app : HandlerUtils::platform()->appsForFile(path))
        apps.append(QJsonObject { { L::id, app->id } });
    server->sendMessage(socket, name, QJsonObject { { L::path, path }, { L::apps, apps } });
}

void FileOpenHandler::handle(const QJsonObject &message, QWebSocket *)
{
    HandlerUtils::platform()->openFile(
        message.value(L::path).toString(), message.value(L::id).toString());
}
