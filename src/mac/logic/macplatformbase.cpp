#include "macplatformbase.h"

#include "app.h"
#include "macapps.h"

#include <QMutex>

namespace {
// deactivate() is serialised; nothing else takes it.
QMutex deactivateMutex;
} // namespace

MacPlatformBase::MacPlatformBase(QObject *parent)
    : Platform(parent)
{
    brightnessPoll = new MacSystem::BrightnessPoll([this] { return getBrightness(); }, this);
    connect(brightnessPoll, &MacSystem::BrightnessPoll::brightnessChanged, this,
        &Platform::brightnessChanged);
}

App *MacPlatformBase::addApp(
    const QString &id, const QString &name, const QString &path, const QIcon &icon)
{
    App *app = createApp(id);
    app->name = MacApps::displayName(name);
    app->path = path;
    app->icon = icon;
    app->moveToThread(thread());
    installedApps.append(app);
    apps.insert(id, app);
    return app;
}

void MacPlatformBase::addFoundApps(const QVector<FoundApplication> &found)
{
    for (const FoundApplication &app : found)
        addApp(app.id, app.displayName, app.path, app.icon ? app.icon() : QIcon());
    emit installedAppsChanged();
}

void MacPlatformBase::setRunningApps(const QVector<RunningApplication> &apps)
{
    runningApps.clear();
    addRunningApps(apps);
}

void MacPlatformBase::addRunningApps(const QVector<RunningApplication> &launched)
{
    bool added = false;
    for (const RunningApplication &running : launched) {
        App *app = appForRunningApp(running);
        if (!app)
            continue;
        app->setRunning(true);
        runningApps.append(app);
        emit appLaunched(app);
        added = true;
    }
    if (added)
        emit runningAppsChanged();
}

void MacPlatformBase::removeRunningApps(const QVector<RunningApplication> &ended)
{
    bool removed = false;
    for (const RunningApplication &running : ended) {
        App *app = appForRunningApp(running);
        if (!app)
            continue;
        app->setRunning(false);
        runningApps.removeOne(app);
        emit appTerminated(app);
        removed = true;
    }
    if (removed)
        emit runningAppsChanged();
}

App *MacPlatformBase::appForRunningApp(const RunningApplication &running)
{
    if (!running.regular)
        return nullptr;
    if (App *known = apps.value(running.bundleIdentifier))
        return known;
    // Running from somewhere no search looks (a disk image).
    App *app = addApp(running.bundleIdentifier, running.localizedName, running.bundleUrl,
        running.icon ? running.icon() : QIcon());
    emit installedAppsChanged();
    return app;
}

void MacPlatformBase::setCurrentRunningApp(const RunningApplication *running)
{
    setCurrentApp(running ? appForRunningApp(*running) : nullptr);
}

void MacPlatformBase::setActive(bool active)
{
    requestedActive = active;
    if (active)
        activate();
    else
        deactivate();
}

void MacPlatformBase::activate()
{
    if (activated)
        return;
    activated = true;
    if (installedApps.isEmpty())
        findInstalledApps();
    startPolling();
}

void MacPlatformBase::deactivate()
{
    QMutexLocker lock(&deactivateMutex);
    if (!activated)
        return;
    activated = false;
    stopPolling();
    if (currentApp) {
        currentApp->setCurrent(false);
        // Quietly: nobody is connected to hear it.
        currentApp = nullptr;
    }
}

void MacPlatformBase::setScreenLocked(bool locked)
{
    screenNotification(locked ? QStringLiteral("com.apple.screenIsLocked")
                              : QStringLiteral("com.apple.screenIsUnlocked"));
}

void MacPlatformBase::screenNotification(const QString &name)
{
    bool changed = false;
    screenLock.notify(name, &changed);
    if (changed)
        emit screenLockChanged();
}

QVector<App *> MacPlatformBase::appsForFileType(const QString &type)
{
    QVector<App *> found;
    if (type.isEmpty())
        return found;
    const QStringList handlers = handlersForType(type);
    for (const QString &handler : handlers) {
        if (App *app = appforId(handler))
            found.append(app);
    }
    return found;
}

void MacPlatformBase::openFile(const QString &path, const QString &type, const QString &appId)
{
    Q_UNUSED(type)
    if (appId.isEmpty()) {
        openWithDefault(path);
        return;
    }
    if (App *app = appforId(appId))
        openWithApplication(path, app->name);
}
