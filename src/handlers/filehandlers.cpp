#include "filehandlers.h"

#include "app.h"
#include "fileservices.h"
#include "filework.h"
#include "handlerutils.h"
#include "l.h"
#include "platform.h"
#include "server.h"

#include <QCollator>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QStandardPaths>

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace {

const QString directoryType = QStringLiteral("d");
const QByteArray bundleSuffix = QByteArrayLiteral(".app");

struct Entry
{
    // The name as UTF-8, ready for the reply.
    QByteArray name;
    bool directory;
    // Exactly one of the two keys is used: the collator's, or in the C locale the folded name,
    // whose byte order is the collator's code-point order.
    QByteArray folded;
    std::optional<QCollatorSortKey> key;
};

bool isAscii(const char *text, size_t length)
{
    for (size_t i = 0; i < length; ++i) {
        if (uchar(text[i]) >= 0x80)
            return false;
    }
    return true;
}

// A JSON string literal, escaped the way QJsonDocument writes it.
bool needsEscape(char c) { return uchar(c) < 0x20 || c == '"' || c == '\\'; }

void appendJsonBytes(QByteArray &out, const QByteArray &utf8)
{
    static const char hex[] = "0123456789abcdef";
    out += '"';
    if (std::none_of(utf8.cbegin(), utf8.cend(), needsEscape)) {
        out += utf8;
        out += '"';
        return;
    }
    for (const char c : utf8) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (uchar(c) < 0x20) {
                out += "\\u00";
                out += hex[uchar(c) >> 4];
                out += hex[uchar(c) & 0xf];
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

void appendJsonString(QByteArray &out, const QString &text) { appendJsonBytes(out, text.toUtf8()); }

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

QByteArray DirectoryListingHandler::listDirectory(const QString &path)
{
    // readdir and precomputed collation keys: QDir with locale-aware sorting compares through
    // the collator on every comparison, several times slower on large folders.
    DIR *dir = opendir(QFile::encodeName(path).constData());
    if (!dir)
        return QByteArrayLiteral("[]");
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    // In the C locale the collator orders by code point and its keys ignore the case setting:
    // compare folded names directly, which is also much cheaper.
    const bool plainLocale = collator.locale().language() == QLocale::C;
    std::vector<Entry> entries;
    entries.reserve(1024);
    const int fd = dirfd(dir);
    while (const dirent *entry = readdir(dir)) {
        if (entry->d_name[0] == '.')
            continue; // hidden, and "." and ".."
        const Kind kind = kindOf(fd, entry);
        if (kind == Kind::Skip)
            continue;
        const size_t length = strlen(entry->d_name);
        Entry item { QByteArray(), kind == Kind::Directory, QByteArray(), std::nullopt };
        if (plainLocale && isAscii(entry->d_name, length)) {
            // The common case, kept free of QString: ASCII folds byte by byte.
            item.name = QByteArray(entry->d_name, int(length));
            item.folded = item.name.toLower();
        } else {
            // Decoding also turns bytes that are not UTF-8 into replacement characters, so the
            // reply stays valid JSON.
            const QString name = QFile::decodeName(entry->d_name);
            item.name = name.toUtf8();
            if (plainLocale)
                item.folded = name.toCaseFolded().toUtf8();
            else
                item.key = collator.sortKey(name);
        }
        entries.push_back(std::move(item));
    }
    closedir(dir);

    // Sort small records that sit next to each other in memory: folders first, then the
    // first eight bytes of the folded name as one number, which settles most comparisons
    // without touching the names.
    struct Slot
    {
        bool directory;
        quint64 prefix;
        const Entry *entry;
    };
    std::vector<Slot> order;
    order.reserve(entries.size());
    for (const Entry &entry : entries) {
        quint64 prefix = 0;
        for (int i = 0; i < 8; ++i)
            prefix = (prefix << 8) | (i < entry.folded.size() ? uchar(entry.folded.at(i)) : 0);
        order.push_back({ entry.directory, prefix, &entry });
    }
    std::sort(order.begin(), order.end(), [](const Slot &a, const Slot &b) {
        if (a.directory != b.directory)
            return a.directory;
        if (a.entry->key)
            return a.entry->key->compare(*b.entry->key) < 0;
        if (a.prefix != b.prefix)
            return a.prefix < b.prefix;
        const QByteArray &x = a.entry->folded;
        const QByteArray &y = b.entry->folded;
        return std::string_view(x.constData(), size_t(x.size()))
            < std::string_view(y.constData(), size_t(y.size()));
    });

    // Keys in QJsonDocument's order, so that the text is what it would have written.
    const QByteArray nameKey = "{\"" + L::name.toUtf8() + "\":";
    const QByteArray typeKey = ",\"" + L::type.toUtf8() + "\":\"" + directoryType.toUtf8() + "\"";
    QByteArray files;
    files.reserve(int(entries.size()) * 32 + 2);
    files += '[';
    for (size_t i = 0; i < order.size(); ++i) {
        const Entry &entry = *order[i].entry;
        if (i)
            files += ',';
        files += nameKey;
        appendJsonBytes(files, entry.name);
        if (entry.directory && !entry.name.endsWith(bundleSuffix))
            files += typeKey;
        files += '}';
    }
    files += ']';
    return files;
}

void DirectoryListingHandler::handle(const Request &message, QWebSocket *socket)
{
    QString path = message.string(L::path);
    if (path.isEmpty())
        path = QStandardPaths::writableLocation(QStandardPaths::HomeLocation);
    auto files = std::make_shared<QByteArray>();
    FileWork::of(server)->run(
        this, socket, name + QLatin1Char(' ') + path,
        [path, files] { *files = listDirectory(path); },
        [this, socket, path, files](bool done) {
            // {"_":code,"files":[...],"n":name,"p":path}: the keys in QJsonDocument's order.
            QByteArray json = "{\"" + L::method.toUtf8() + "\":";
            appendJsonString(json, name);
            json += ",\"" + L::files.toUtf8() + "\":";
            // A folder that did not answer in time reads as one that cannot be read.
            json += done ? *files : QByteArrayLiteral("[]");
            json += ",\"" + L::name.toUtf8() + "\":";
            appendJsonString(json, QDir(path).dirName());
            json += ",\"" + L::path.toUtf8() + "\":";
            appendJsonString(json, path);
            json += '}';
            server->sendJson(socket, json);
        });
}

void FileIconHandler::handle(const Request &message, QWebSocket *socket)
{
    const int size = message.value(L::size).toInt();
    if (size < 16)
        return;
    const QString path = message.string(L::path);
    if (path.isEmpty()) {
        // A type names no file: nothing to wait for.
        const QString type = message.string(L::type);
        answer(socket, QJsonObject { { L::method, name }, { L::size, size }, { L::type, type } },
            HandlerUtils::platform()->iconForFileType(type, size));
        return;
    }
    auto type = std::make_shared<QString>();
    FileWork::of(server)->run(
        this, socket, name + QLatin1Char(' ') + path,
        [files = HandlerUtils::platform()->fileServices(), path, type] {
            *type = files->typeOfFile(path);
        },
        [this, socket, path, size, type](bool done) {
            // Without its type in time, a file has no icon to show.
            if (!done)
                return;
            answer(socket,
                QJsonObject { { L::method, name }, { L::size, size }, { L::path, path } },
                HandlerUtils::platform()->iconForFileType(*type, size));
        });
}

void FileIconHandler::answer(QWebSocket *socket, const QJsonObject &reply, const QPixmap &icon)
{
    if (icon.isNull())
        return;
    server->sendMessage(
        socket, reply, Server::MessagePart { Server::Png, HandlerUtils::toPng(icon) });
}

void FilePreviewHandler::handle(const Request &message, QWebSocket *socket)
{
    const QString path = message.string(L::path);
    if (path.isEmpty())
        return;
    const int width = message.value(L::width).toInt();
    const int height = message.value(L::height).toInt();
    auto png = std::make_shared<QByteArray>();
    FileWork::of(server)->run(
        this, socket, name + QLatin1Char(' ') + path,
        [files = HandlerUtils::platform()->fileServices(), path, width, height, png] {
            // Encoded here too: a large preview takes a while to compress.
            *png = HandlerUtils::toPng(files->previewForFile(path, width, height));
        },
        [this, socket, path, width, height, png](bool done) {
            const QJsonObject reply { { L::method, name }, { L::path, path }, { L::width, width },
                { L::height, height } };
            // Late or not, an empty attachment says "no preview".
            server->sendMessage(
                socket, reply, Server::MessagePart { Server::Png, done ? *png : QByteArray() });
        });
}

void FileAppsHandler::handle(const Request &message, QWebSocket *socket)
{
    const QString path = message.string(L::path);
    auto type = std::make_shared<QString>();
    FileWork::of(server)->run(
        this, socket, name + QLatin1Char(' ') + path,
        [files = HandlerUtils::platform()->fileServices(), path, type] {
            *type = files->typeOfFile(path);
        },
        [this, socket, path, type](bool done) {
            QJsonArray apps;
            if (done) {
                for (App *app : HandlerUtils::platform()->appsForFileType(*type))
                    apps.append(QJsonObject { { L::id, app->id } });
            }
            server->sendMessage(socket, name, { { L::path, path }, { L::apps, apps } });
        });
}

void FileOpenHandler::handle(const Request &message, QWebSocket *socket)
{
    const QString path = message.string(L::path);
    const QString appId = message.string(L::id);
    if (!appId.isEmpty()) {
        // The chosen application opens it; nothing here reads the file.
        HandlerUtils::platform()->openFile(path, QString(), appId);
        return;
    }
    auto type = std::make_shared<QString>();
    FileWork::of(server)->run(
        this, socket, name + QLatin1Char(' ') + path,
        [files = HandlerUtils::platform()->fileServices(), path, type] {
            *type = files->typeOfFile(path);
        },
        [path, type](bool done) {
            if (done)
                HandlerUtils::platform()->openFile(path, *type, QString());
        });
}
