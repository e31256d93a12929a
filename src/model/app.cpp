#include "app.h"

#include "http.h"
#include "httputils.h"
#include "json.h"
#include "l.h"
#include "server.h"
#include "website.h"

#include <QBuffer>
#include <QDateTime>
#include <QGuiApplication>
#include <QImageWriter>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMetaEnum>
#include <QRegularExpression>
#include <QScreen>
#include <QSettings>
#include <QUrlQuery>

namespace {

const QString lastRunGroup = QStringLiteral("t");
// Last-run times are written in batches: a write per launch would touch the disk too often.
constexpr int saveBatch = 11;

QVector<App *> &pendingSaves()
{
    static QVector<App *> pending;
    return pending;
}

Server *broadcastServer = nullptr;
const QMap<QString, Website *> *siteTable = nullptr;

const QString queryItem = QStringLiteral("q");

QUrl commandsUrl(const QString &query)
{
    return QUrl(
        QString::fromUtf8(HttpUtils::wsBase()) + QStringLiteral("/app?q=") + query.toLower(),
        QUrl::TolerantMode);
}

} // namespace

Q_LOGGING_CATEGORY(lcModel, "velm.model")

App::App(const QString &id, QObject *parent)
    : QObject(parent)
    , id(id)
{
    static const int roleType = qRegisterMetaType<App::ElementRole>();
    Q_UNUSED(roleType)
    QSettings settings;
    settings.beginGroup(lastRunGroup);
    lastRun = settings.value(id, 0).toLongLong();
    connect(this, &App::focusRoleAsync, this, &App::setFocusRole, Qt::QueuedConnection);
}

App::~App() { pendingSaves().removeAll(this); }

QPixmap App::iconPixmap(int size) const
{
    QPixmap pixmap = icon.pixmap(size, size);
    if (pixmap.width() != size) {
        // On a high-density screen the icon answers a logical size with more pixels.
        const QScreen *screen = QGuiApplication::primaryScreen();
        const qreal ratio = screen ? screen->devicePixelRatio() : 1.0;
        const int logical = int(size / ratio);
        pixmap = icon.pixmap(logical, logical);
    }
    if (pixmap.width() != size && !pixmap.isNull())
        pixmap = pixmap.scaled(size, size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return pixmap;
}

QByteArray App::iconPng(int size)
{
    if (icon.cacheKey() != iconPngKey) {
        iconPngs.clear();
        iconPngKey = icon.cacheKey();
    }
    const auto cached = iconPngs.constFind(size);
    if (cached != iconPngs.constEnd())
        return *cached;
    QByteArray png;
    const QPixmap pixmap = iconPixmap(size);
    if (!pixmap.isNull()) {
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        QImageWriter writer(&buffer, "png");
        // Qt's quality 50 is zlib level 4 (the default is 6): a fifth larger, twice as fast,
        // which keeps a first 256-pixel answer within a few milliseconds.
        writer.setQuality(50);
        writer.write(pixmap.toImage());
    }
    // Clients use a handful of sizes; a client cycling through many starts the cache over.
    if (iconPngs.size() >= 8)
        iconPngs.clear();
    iconPngs.insert(size, png);
    return png;
}

void App::releaseIconPngs()
{
    iconPngs = QHash<int, QByteArray>();
    iconPngKey = 0;
}

void App::setServer(Server *server) { broadcastServer = server; }

Server *App::getServer() { return broadcastServer; }

void App::setRunning(bool running)
{
    this->running = running;
    lastRun = QDateTime::currentSecsSinceEpoch();
    QVector<App *> &pending = pendingSaves();
    pending.append(this);
    if (pending.size() < saveBatch)
        return;
    QSettings settings;
    settings.beginGroup(lastRunGroup);
    while (!pending.isEmpty()) {
        App *app = pending.takeLast();
        settings.setValue(app->id, app->lastRun);
    }
}

void App::performKeySequences(const QVector<QString> &sequences)
{
    for (const QString &sequence : sequences)
        performKeySequence(sequence);
}

bool App::nameComparator(App *a, App *b) { return a->name < b->name; }

bool App::lastRunComparator(App *a, App *b) { return a->lastRun > b->lastRun; }

void App::setFocusRole(
    ElementRole role, const QString &name, const QString &value, const QVariantMap &properties)
{
    if (!broadcastServer || broadcastServer->getConnections().isEmpty())
        return;
    focusValue = value;
    QString shown = value;
    const int lineFeed = value.indexOf(QLatin1Char('\n'));
    if (value.size() >= 4 && lineFeed >= 0)
        shown = value.left(lineFeed) + QStringLiteral("...");
    const char *roleName = QMetaEnum::fromType<ElementRole>().valueToKey(role);
    broadcastServer->broadcastMessage(L::focusedElement,
        QJsonObject { { L::id, id }, { L::role, QString::fromLatin1(roleName ? roleName : "") },
            { L::name, name }, { L::value, shown },
            { L::properties, QJsonObject::fromVariantMap(properties) } });
}

void App::setFocusRoleAsync(
    ElementRole role, const QString &name, const QString &value, const QVariantMap &properties)
{
    emit focusRoleAsync(role, name, value, properties);
}

void App::setBrowser(bool browser) { this->browser = browser; }

void App::setCurrent(bool current)
{
    if (this->current != current)
        this->current = current;
    if (!current) {
        siteHost.clear();
        focusValue.clear();
    }
}

void App::setWebsites(const QMap<QString, Website *> *websites) { siteTable = websites; }

void App::loadCommands()
{
    if (commandsAreLoaded)
        return;
    if (HttpUtils::wsBase().isEmpty()) {
        // No web service configured: nothing is sent anywhere.
        qCWarning(lcModel) << "Cannot load commands" << id;
        return;
    }
    HttpReply *reply = HttpUtils::cached().get(commandsUrl(id));
    connect(reply, &HttpReply::finished, this, &App::parseCommands);
}

void App::parseCommands(const HttpReply &reply)
{
    if (reply.isSuccessful()) {
        commands = reply.body();
        commandsAreLoaded = true;
        const QJsonValue isBrowser = Json::parse(commands).object().value(QStringLiteral("b"));
        setBrowser(isBrowser.isBool() && isBrowser.toBool());
        emit commandsLoaded(commands);
        return;
    }
    qCWarning(lcModel) << "Cannot load commands" << id;
    // Ids such as "Foo.app.helper" are tried once more as "Foo.app".
    const QString asked = QUrlQuery(reply.url()).queryItemValue(queryItem, QUrl::FullyDecoded);
    if (asked != id.toLower())
        return;
    static const QRegularExpression bundle(QStringLiteral("^(.+\\.app)\\.[^\\.]+$"));
    const QRegularExpressionMatch match = bundle.match(id);
    if (!match.hasMatch())
        return;
    HttpReply *retry = HttpUtils::cached().get(commandsUrl(match.captured(1)));
    connect(retry, &HttpReply::finished, this, &App::parseCommands);
}

void App::onBrowserUrlChanged(const QString &url)
{
    const QString host = QUrl(url).host(QUrl::FullyDecoded);
    if (host == siteHost)
        return;
    siteHost = host;
    Website *site = siteTable ? siteTable->value(host) : nullptr;
    QJsonObject message = site ? site->json : QJsonObject();
    message.insert(L::id, id);
    if (broadcastServer)
        broadcastServer->broadcastMessage(L::siteCommands, std::move(message));
}
