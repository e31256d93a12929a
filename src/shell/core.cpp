#include "core.h"

#include "app.h"
#include "appcontrolhandlers.h"
#include "applisthandlers.h"
#include "authenticationhandler.h"
#include "commandhandlers.h"
#include "filehandlers.h"
#include "handlerutils.h"
#include "http.h"
#include "httputils.h"
#include "json.h"
#include "l.h"
#include "menufocushandlers.h"
#include "platform.h"
#include "server.h"
#include "systemhandlers.h"
#include "website.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QPixmapCache>
#include <QSettings>

#include <algorithm>

#ifdef __GLIBC__
#include <malloc.h>
#endif

Q_LOGGING_CATEGORY(lcCore, "velm.core")

namespace {
Core *theInstance = nullptr;
const QString autoStartKey = QStringLiteral("autoStart");
const QString preventSleepKey = QStringLiteral("preventSleep");
const QString sleepReason = QStringLiteral("Velm client connected");
} // namespace

Core *Core::current() { return theInstance; }

Core::Core(Platform *platform, QObject *parent)
    : QObject(parent)
    , platform(platform)
{
    theInstance = this;
    HandlerUtils::setContext({ platform, [this] { return getSortedApps(); } });
    App::setWebsites(&websites);
    platform->setParent(this);
    connect(platform, &Platform::ready, this, &Core::onPlatformReady);
    releaseTimer.setSingleShot(true);
    releaseTimer.setInterval(releaseDelay);
    releaseTimer.setTimerType(Qt::VeryCoarseTimer);
    connect(&releaseTimer, &QTimer::timeout, this, &Core::releaseClientMemory);
}

Core::~Core()
{
    App::setServer(nullptr);
    App::setWebsites(nullptr);
    if (theInstance == this) {
        theInstance = nullptr;
        HandlerUtils::setContext({});
    }
}

void Core::start()
{
    if (websites.isEmpty())
        loadWebsites();
    platform->init();
}

QStringList Core::siteHosts(const QByteArray &catalogue)
{
    QStringList hosts;
    const QJsonArray sites = Json::parse(catalogue).object().value(QStringLiteral("i")).toArray();
    for (const QJsonValue &entry : sites) {
        const QString host = entry.toObject().value(QStringLiteral("d")).toString();
        if (!host.isEmpty())
            hosts << host;
    }
    return hosts;
}

void Core::loadWebsites()
{
    qDeleteAll(websites);
    websites.clear();
    const QByteArray base = HttpUtils::wsBase();
    if (base.isEmpty()) {
        // No web service configured: nothing is sent anywhere.
        qCWarning(lcCore) << "Cannot load websites";
        return;
    }
    HttpReply *catalogue
        = HttpUtils::cached().get(QUrl(QString::fromUtf8(base + "/web/index.json")));
    connect(catalogue, &HttpReply::finished, this, [this, base](const HttpReply &reply) {
        if (!reply.isSuccessful()) {
            qCWarning(lcCore) << "Cannot load websites";
            return;
        }
        const QStringList hosts = siteHosts(reply.body());
        for (const QString &host : hosts) {
            HttpReply *document = HttpUtils::cached().get(QUrl(QString::fromUtf8(base)
                + QStringLiteral("/web/") + host + QStringLiteral(".json")));
            connect(document, &HttpReply::finished, this, [this, host](const HttpReply &site) {
                if (site.isSuccessful())
                    websites.insert(host, new Website(Json::parse(site.body()).object(), this));
            });
        }
    });
}

void Core::onPlatformReady()
{
    connect(platform, &Platform::installedAppsChanged, this, &Core::onInstalledAppsChanged);
    connect(platform, &Platform::runningAppsChanged, this, &Core::sortApps);
    connect(platform, &Platform::appLaunched, this, &Core::onAppLaunched);
    connect(platform, &Platform::currentAppChanged, this, &Core::onAppActivated);
    startServer();
    if (!QSettings().contains(autoStartKey))
        setAutostart(true);
}

void Core::startServer()
{
    server = new Server(this);
    App::setServer(server);
    connect(server, &Server::clientCountChanged, this, &Core::onClientTotalChanged);

    new AuthenticationHandler(server, L::auth);
    auto *installedApps = new InstalledAppsHandler(server, L::installedApps);
    connect(this, &Core::sortedAppsChanged, installedApps, &MessageHandler::run);
    auto *currentApp = new CurrentAppHandler(server, L::currentApp);
    connect(platform, &Platform::currentAppChanged, currentApp, &MessageHandler::run);
    new AppActivateHandler(server, L::activateApp);
    new AppCloseHandler(server, L::closeApp);
    new AppQuitHandler(server, L::quitApp);
    new AppMinimizeHandler(server, L::toggleMinimizeApp);
    new AppMaximizeHandler(server, L::toggleMaximizeApp);
    new AppFullscreenHandler(server, L::toggleFullscreenApp);
    new AppScrollHandler(server, L::appScroll);
    new KeySequenceHandler(server, L::keySequence);
    new AppIconHandler(server, L::appIcon);
    new CommandsHandler(server, L::appCommands);
    new CommandIconHandler(server, L::commandIcon);
    new MenuHandler(server, L::appMenu);
    new MenuPerformHandler(server, L::performMenu);
    new FocusValueHandler(server, L::focusValue);
    new FocusPerformHandler(server, L::performFocus);
    new DirectoryListingHandler(server, L::directoryListing);
    new FileIconHandler(server, L::fileIcon);
    new FilePreviewHandler(server, L::filePreview);
    new FileOpenHandler(server, L::fileOpen);
    new FileAppsHandler(server, L::fileApps);
    auto *screenLock = new ScreenLockHandler(server, L::screenLock);
    connect(platform, &Platform::screenLockChanged, screenLock, &MessageHandler::run);
    auto *brightness = new BrightnessHandler(server, L::brightness);
    connect(platform, &Platform::brightnessChanged, brightness, &MessageHandler::run);
    auto *volume = new VolumeHandler(server, L::volume);
    connect(platform, &Platform::volumeChanged, volume, &MessageHandler::run);
    auto *volumeMute = new VolumeMuteHandler(server, L::volumeMute);
    connect(platform, &Platform::volumeMuteChanged, volumeMute, &MessageHandler::run);
    auto *unsupported = new UnsupportedHandler(server, L::unsupported);
    connect(platform, &Platform::unsupportedChanged, unsupported, &MessageHandler::run);

    connect(server, &Server::unhandledMessage, this, &Core::onUnhandledMessage);
    emit ready();
}

bool Core::getAutostart() const { return QSettings().value(autoStartKey, true).toBool(); }

void Core::setAutostart(bool on)
{
    QSettings().setValue(autoStartKey, on);
    platform->setAutostart(on);
}

bool Core::getPreventSleep() const { return QSettings().value(preventSleepKey, true).toBool(); }

void Core::setPreventSleep(bool on)
{
    QSettings().setValue(preventSleepKey, on);
    if (!on)
        allowDisplaySleep();
}

void Core::allowDisplaySleep()
{
    if (displaySleep.allow)
        displaySleep.allow();
}

QVector<App *> &Core::getSortedApps()
{
    if (sortedApps.size() != platform->getInstalledApps().size())
        onInstalledAppsChanged();
    return sortedApps;
}

void Core::onInstalledAppsChanged()
{
    if (sortedApps != platform->getInstalledApps())
        sortedApps = platform->getInstalledApps();
    sortApps();
}

void Core::sortApps()
{
    if (server && !server->getConnections().isEmpty()) {
        // Unstable on purpose: applications run at the same second keep no particular order.
        std::sort(sortedApps.begin(), sortedApps.end(), &App::lastRunComparator);
        emit sortedAppsChanged();
    } else if (!sortedApps.isEmpty()) {
        // Nobody is looking: the order is rebuilt on demand.
        sortedApps.clear();
    }
}

void Core::onAppLaunched(App *) { }

void Core::onAppTerminated(App *) { }

void Core::onAppActivated(App *) { }

void Core::onbrightnessChanged()
{
    if (server)
        server->broadcastMessage(L::brightness, { { L::value, platform->getBrightness() } });
}

void Core::onClientTotalChanged(int count)
{
    if (count > 1)
        return;
    if (getPreventSleep()) {
        if (count == 1) {
            if (displaySleep.prevent)
                displaySleep.prevent(sleepReason);
            // The only retry of a failed catalogue load, and only with this setting on.
            if (websites.isEmpty())
                loadWebsites();
        } else {
            allowDisplaySleep();
        }
    }
    platform->setActive(count != 0);
    if (count == 0)
        releaseTimer.start();
    else
        releaseTimer.stop();
}

void Core::releaseClientMemory()
{
    for (const QVector<App *> *apps :
        { &platform->getInstalledApps(), &platform->getRunningApps() })
        for (App *app : *apps)
            app->releaseIconPngs();
    // The icons drawn for clients at their sizes.
    QPixmapCache::clear();
#ifdef __GLIBC__
    // Freed blocks amid the heap stay the program's until the allocator is asked to give them
    // back.
    malloc_trim(0);
#endif
}

void Core::onUnhandledMessage(const QString &method)
{
    if (systemCommands.isEmpty()) {
        Platform *p = platform;
        systemCommands = {
            { L::logout, [p] { p->logout(); } },
            { L::sleep, [p] { p->sleep(); } },
            { L::restart, [p] { p->restart(); } },
            { L::shutdown, [p] { p->shutdown(); } },
            { L::playPause, [p] { p->playPause(); } },
            { L::previousTrack, [p] { p->previousTrack(); } },
            { L::nextTrack, [p] { p->nextTrack(); } },
        };
    }
    const auto command = systemCommands.constFind(method);
    if (command != systemCommands.constEnd())
        command.value()();
    else
        qCWarning(lcCore) << "Unhandled message" << method;
}
