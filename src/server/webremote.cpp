#include "webremote.h"

#include "serverlogging.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QFile>
#include <QHash>
#include <QRegularExpression>
#include <QUrl>

static void initRemoteResources() { Q_INIT_RESOURCE(remote); }

namespace WebRemote {
namespace {

struct File
{
    QByteArray type;
    QByteArray body;
    QByteArray etag;
};

const char *const resourceRoot = ":/remote";

QByteArray contentType(const QString &path)
{
    static const QHash<QString, QByteArray> types {
        { QStringLiteral("html"), "text/html; charset=utf-8" },
        { QStringLiteral("mjs"), "text/javascript; charset=utf-8" },
        { QStringLiteral("js"), "text/javascript; charset=utf-8" },
        { QStringLiteral("css"), "text/css; charset=utf-8" },
        { QStringLiteral("svg"), "image/svg+xml" },
        { QStringLiteral("png"), "image/png" },
        { QStringLiteral("json"), "application/json" },
        { QStringLiteral("webmanifest"), "application/manifest+json" },
        { QStringLiteral("txt"), "text/plain; charset=utf-8" },
    };
    return types.value(path.section(QLatin1Char('.'), -1), "application/octet-stream");
}

// Read once: the files are small and never change while the program runs.
const QHash<QString, File> &files()
{
    static const QHash<QString, File> table = [] {
        initRemoteResources();
        QHash<QString, File> result;
        QDirIterator it(
            QString::fromLatin1(resourceRoot), QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            QFile file(it.next());
            if (!file.open(QIODevice::ReadOnly))
                continue;
            File entry;
            entry.body = file.readAll();
            entry.type = contentType(file.fileName());
            entry.etag = '"'
                + QCryptographicHash::hash(entry.body, QCryptographicHash::Sha1).toHex().left(16)
                + '"';
            result.insert(file.fileName().mid(int(qstrlen(resourceRoot))), entry);
        }
        if (result.contains(QStringLiteral("/index.html")))
            result.insert(QStringLiteral("/"), result.value(QStringLiteral("/index.html")));
        return result;
    }();
    return table;
}

struct Request
{
    QByteArray method;
    QByteArray target;
    QByteArray version;
    QHash<QByteArray, QByteArray> headers; // names in lower case
    bool valid = false;
};

Request parse(const QByteArray &head)
{
    Request request;
    const QList<QByteArray> lines = head.split('\n');
    if (lines.isEmpty())
        return request;
    const QList<QByteArray> parts = lines.first().trimmed().split(' ');
    if (parts.size() != 3)
        return request;
    request.method = parts.at(0);
    request.target = parts.at(1);
    request.version = parts.at(2);
    bool wellFormed = true;
    int origins = 0;
    for (int i = 0; i < lines.size(); ++i) {
        // Every line ends in CR LF (the last piece is what follows the final LF: nothing).
        if (i + 1 < lines.size() && !lines.at(i).endsWith('\r'))
            wellFormed = false;
        if (i == 0)
            continue;
        const QByteArray line = lines.at(i).trimmed();
        const int colon = line.indexOf(':');
        if (colon <= 0)
            continue;
        const QByteArray name = line.left(colon).trimmed().toLower();
        // Two Origins are read differently by different parsers (Qt's handshake takes the
        // last); which one was checked must not be in doubt.
        if (name == "origin")
            ++origins;
        request.headers.insert(name, line.mid(colon + 1).trimmed());
    }
    request.valid = wellFormed && origins <= 1 && request.version.startsWith("HTTP/1.")
        && request.target.startsWith('/');
    return request;
}

// The host the page was asked for, when it is a plain host name or address with a port: its
// WebSocket address goes into the policy, for browsers whose 'self' does not cover ws:.
QByteArray socketSource(const Request &request)
{
    static const QRegularExpression plainHost(
        QStringLiteral("^([A-Za-z0-9.-]+|\\[[0-9A-Fa-f:.]+\\])(:[0-9]{1,5})?$"));
    const QByteArray host = request.headers.value("host");
    if (host.isEmpty() || !plainHost.match(QString::fromLatin1(host)).hasMatch())
        return QByteArray();
    return " ws://" + host;
}

QByteArray response(int status, const QByteArray &reason, const QList<QByteArray> &headers,
    const QByteArray &body, bool withBody)
{
    QByteArray out = "HTTP/1.1 " + QByteArray::number(status) + ' ' + reason + "\r\n";
    for (const QByteArray &header : headers)
        out += header + "\r\n";
    out += "Content-Length: " + QByteArray::number(body.size())
        + "\r\nX-Content-Type-Options: nosniff\r\nReferrer-Policy: no-referrer\r\n"
          "Connection: close\r\n\r\n";
    if (withBody)
        out += body;
    return out;
}

QByteArray error(int status, const QByteArray &reason, bool withBody = true,
    const QList<QByteArray> &extra = QList<QByteArray>())
{
    QList<QByteArray> headers { "Content-Type: text/plain; charset=utf-8",
        "Cache-Control: no-store" };
    headers += extra;
    return response(status, reason, headers, reason + '\n', withBody);
}

} // namespace

bool isUpgrade(const QByteArray &head)
{
    const Request request = parse(head);
    if (!request.valid)
        return false;
    const QList<QByteArray> upgrade = request.headers.value("upgrade").toLower().split(',');
    for (const QByteArray &protocol : upgrade) {
        if (protocol.trimmed() == "websocket")
            return true;
    }
    return false;
}

QByteArray respond(const QByteArray &head)
{
    const Request request = parse(head);
    if (!request.valid)
        return error(400, "Bad Request");
    const bool get = request.method == "GET";
    const bool headOnly = request.method == "HEAD";
    if (!get && !headOnly)
        return error(405, "Method Not Allowed", true, { "Allow: GET, HEAD" });

    QByteArray target = request.target;
    const int query = target.indexOf('?');
    if (query >= 0)
        target.truncate(query);
    const QString path = QUrl::fromPercentEncoding(target);
    const auto found = files().constFind(path);
    if (found == files().constEnd())
        return error(404, "Not Found", get);

    const File &file = *found;
    const bool page = path == QLatin1String("/") || path == QLatin1String("/index.html");
    QList<QByteArray> headers { "Content-Type: " + file.type };
    if (page) {
        // The page is never kept, so a newer program's page is never mixed with older modules.
        headers << "Cache-Control: no-store";
        headers << "Content-Security-Policy: default-src 'none'; script-src 'self'; "
                   "style-src 'self'; img-src 'self' blob: data:; connect-src 'self'"
                + socketSource(request)
                + "; manifest-src 'self'; base-uri 'none'; form-action 'none'; "
                  "frame-ancestors 'none'";
        headers << "X-Frame-Options: DENY";
    } else {
        headers << "Cache-Control: no-cache";
        headers << "ETag: " + file.etag;
        if (request.headers.value("if-none-match") == file.etag)
            return response(304, "Not Modified", headers, QByteArray(), false);
    }
    return response(200, "OK", headers, file.body, get);
}

QByteArray tooLarge() { return error(431, "Request Header Fields Too Large"); }

QByteArray badRequest() { return error(400, "Bad Request"); }

QStringList paths()
{
    QStringList result = files().keys();
    result.sort();
    return result;
}

} // namespace WebRemote
