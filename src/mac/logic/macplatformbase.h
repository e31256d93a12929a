#pragma once

#include "macsystem.h"
#include "platform.h"

#include <QIcon>

#include <functional>

// What the workspace tells of a running application.
struct RunningApplication
{
    // Regular applications have a Dock icon; accessory and background ones are never listed.
    bool regular = true;
    QString bundleIdentifier;
    // The bundle's file URL as text: kept so, not turned into a path.
    QString bundleUrl;
    QString localizedName;
    // Made only when the application is first seen.
    std::function<QIcon()> icon;
};

// One result of the search for installed applications.
struct FoundApplication
{
    QString id;
    QString displayName;
    QString path;
    std::function<QIcon()> icon;
};

// The Mac platform's bookkeeping, apart from the system calls: the installed list, the running
// list kept current from the workspace's insertions and removals, the registry, the front
// application, activation, the brightness poll and the screen-lock state. MacPlatform turns
// what the system says into the plain values above.
class MacPlatformBase : public Platform
{
    Q_OBJECT
public:
    explicit MacPlatformBase(QObject *parent = nullptr);

    // Enters the search's results (in its order; an identifier found twice stands twice in the
    // list, and the registry keeps the later) and announces the list once.
    void addFoundApps(const QVector<FoundApplication> &found);
    void setRunningApps(const QVector<RunningApplication> &apps);
    void addRunningApps(const QVector<RunningApplication> &apps);
    void removeRunningApps(const QVector<RunningApplication> &apps);
    // The App of a running application, made (and announced) on first sight; null unless it
    // is a regular one.
    App *appForRunningApp(const RunningApplication &app);
    // The front application; null for none. Announced every time.
    void setCurrentRunningApp(const RunningApplication *app);

    void setActive(bool active) override;
    void activate();
    // Stops polling and drops the front application quietly; observers stay.
    void deactivate();
    bool isActivated() const { return activated; }

    void startPolling() { brightnessPoll->start(); }
    void poll() { brightnessPoll->poll(); }
    // Logs "timer is null" when polling never started.
    void stopPolling() { brightnessPoll->stop(); }

    // Stores the state and announces it when it changed.
    void setScreenLocked(bool locked);
    // One of the distributed notifications about the screen saver and the lock screen.
    void screenNotification(const QString &name);
    bool getScreenLocked() override { return screenLock.isLocked(); }

    // Known applications that view or edit the type, in the system's order (its default
    // first); applications the list does not know are left out, none is made here.
    QVector<App *> appsForFileType(const QString &type) override;
    // With the default application when appId is empty; else with that application, by its
    // display name; nothing when the identifier is unknown.
    void openFile(const QString &path, const QString &type, const QString &appId) override;

protected:
    // The bundle identifiers of the applications that view or edit files of the type.
    virtual QStringList handlersForType(const QString &type) = 0;
    virtual void openWithDefault(const QString &path) = 0;
    virtual void openWithApplication(const QString &path, const QString &appName) = 0;
    // A new application object of the backend.
    virtual App *createApp(const QString &id) = 0;
    // Starts the search for installed applications; its results come to addFoundApps.
    virtual void findInstalledApps() = 0;

private:
    App *addApp(const QString &id, const QString &name, const QString &path, const QIcon &icon);

    bool requestedActive = false;
    bool activated = false;
    MacSystem::BrightnessPoll *brightnessPoll = nullptr;
    MacSystem::ScreenLock screenLock;
};
