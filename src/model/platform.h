#pragma once

#include <QHash>
#include <QObject>
#include <QPixmap>
#include <QString>
#include <QStringList>
#include <QVector>

#include <memory>

class App;
class FileServices;

// The operating system as the rest of the program sees it: the registry of applications, which
// of them run and which is in front, and every machine-level operation the handlers need.
// Changes are announced by signals. A backend (Linux, macOS) implements the virtual operations.
class Platform : public QObject
{
    Q_OBJECT
public:
    explicit Platform(QObject *parent = nullptr);
    ~Platform() override;

    // Exact, case-sensitive lookup; null for an unknown or empty id.
    App *appforId(const QString &id) const;
    // Moves the current flag to app (which may be null) and always emits currentAppChanged.
    void setCurrentApp(App *app);
    // Forgets and deletes every application, announcing it.
    void clearApps();

    App *getCurrentApp() const { return currentApp; }
    const QVector<App *> &getInstalledApps() const { return installedApps; }
    const QVector<App *> &getRunningApps() const { return runningApps; }
    // Message codes ("b", "am", ...) that this machine cannot serve; sent to clients as they are.
    const QStringList &getUnsupported() const { return unsupported; }
    // What reads files for the handlers, on worker threads; shared, since a worker that waits
    // on a hung mount may outlive the platform.
    std::shared_ptr<FileServices> fileServices() const { return files; }

signals:
    void ready();
    void currentAppChanged(App *app);
    void installedAppsChanged();
    void runningAppsChanged();
    void appLaunched(App *app);
    void appTerminated(App *app);
    void inputFieldFocused();
    void brightnessChanged();
    void volumeChanged();
    void volumeMuteChanged();
    void screenLockChanged();
    void unsupportedChanged();
    void needPermissions();

public slots:
    // Prepares the platform and ends with ready().
    virtual void init() = 0;
    // True when the first client is there (again), false when the last has left; may repeat.
    virtual void setActive(bool active) = 0;
    virtual void setAutostart(bool enabled) = 0;
    // The file operations of the event loop read no file: what a file is comes from
    // FileServices::typeOfFile on a worker thread.
    // type is what the client sends (an extension or a type name), or a file's type.
    virtual QPixmap iconForFileType(const QString &type, int size) = 0;
    // The known applications that open files of the type, best first; none for an empty type.
    virtual QVector<App *> appsForFileType(const QString &type) = 0;
    // Opens with the application appId, or with the default one for the file's type when appId
    // is empty.
    virtual void openFile(const QString &path, const QString &type, const QString &appId) = 0;
    virtual void shutdown() = 0;
    virtual void restart() = 0;
    virtual void sleep() = 0;
    virtual void lockScreen() = 0;
    virtual void logout() = 0;
    // 0 to 100.
    virtual int getBrightness() = 0;
    virtual void setBrightness(int value) = 0;
    // 0 to 100.
    virtual int getVolume() = 0;
    virtual void setVolume(int value) = 0;
    virtual bool getVolumeMute() = 0;
    virtual void setVolumeMute(bool muted) = 0;
    virtual void previousTrack() = 0;
    virtual void nextTrack() = 0;
    virtual void playPause() = 0;
    // The last observed state.
    virtual bool getScreenLocked() = 0;
    virtual bool permissionsGranted() = 0;

protected:
    QHash<QString, App *> apps;
    QVector<App *> installedApps;
    QVector<App *> runningApps;
    App *currentApp = nullptr;
    QStringList unsupported;
    std::shared_ptr<FileServices> files;
};
