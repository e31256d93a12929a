#pragma once

#include "app.h"
#include "fileservices.h"
#include "platform.h"

#include <QImage>
#include <QMutex>
#include <QSet>
#include <QStringList>
#include <QVariantList>
#include <QWaitCondition>

#include <memory>

// An application that records every call made to it, as "name(args)" strings.
class FakeApp : public App
{
    Q_OBJECT
public:
    explicit FakeApp(const QString &id, const QString &name = QString());

    QStringList calls;
    std::vector<MenuItem> menu;

public slots:
    void setCurrent(bool current) override;
    void launch() override { calls << QStringLiteral("launch"); }
    void activate() override { calls << QStringLiteral("activate"); }
    void quit() override { calls << QStringLiteral("quit"); }
    void hide() override { calls << QStringLiteral("hide"); }
    void close() override { calls << QStringLiteral("close"); }
    void toggleMiniminize() override { calls << QStringLiteral("toggleMiniminize"); }
    void toggleMaximize() override { calls << QStringLiteral("toggleMaximize"); }
    bool supportsFullscreen() override { return true; }
    void toggleFullscreen() override { calls << QStringLiteral("toggleFullscreen"); }
    void scroll(int x, int y) override;
    void performKeySequence(const QString &keys) override;
    const std::vector<MenuItem> &getMenuItems() override;
    void performMenu(const QString &menuId) override;
    void setFocusValue(const QString &value) override;
    void performFocusedElement() override { calls << QStringLiteral("performFocusedElement"); }
};

// File services answering from tables, on the workers' threads. A held path makes its calls
// wait until it is let go, as a file on a mount that does not answer would.
class FakeFiles : public FileServices
{
public:
    QString typeOfFile(const QString &path) override;
    QImage previewForFile(const QString &path, int width, int height) override;

    void setType(const QString &path, const QString &type);
    void setPreview(const QString &path, const QImage &image);
    void hold(const QString &path);
    void letGo(const QString &path);
    // Calls made so far, "typeOfFile(path)" and "previewForFile(path,w,h)".
    QStringList calls() const;
    // Calls waiting on held paths now.
    int waiting() const;
    // The most calls that ran at the same time.
    int mostAtOnce() const;

private:
    void enter(const QString &call, const QString &path);

    mutable QMutex m_mutex;
    QWaitCondition m_released;
    QHash<QString, QString> m_types;
    QHash<QString, QImage> m_previews;
    QSet<QString> m_held;
    QStringList m_calls;
    int m_waiting = 0;
    int m_running = 0;
    int m_mostAtOnce = 0;
};

// A platform whose state a test sets directly and whose every call is recorded, so that the
// coordinator and the handlers run for real without a desktop.
class FakePlatform : public Platform
{
    Q_OBJECT
public:
    explicit FakePlatform(QObject *parent = nullptr);

    // Adds an installed application (owned by the platform).
    FakeApp *addApp(const QString &id, const QString &name, qint64 lastRun = 0);
    void setRunning(App *app, bool running);
    void setUnsupportedList(const QStringList &list);
    using Platform::apps;
    using Platform::currentApp;
    using Platform::installedApps;
    using Platform::runningApps;

    QStringList calls;
    int volume = 0;
    bool muted = false;
    int brightness = 0;
    bool locked = false;
    // The same object as fileServices().
    std::shared_ptr<FakeFiles> fakeFiles;
    QHash<QString, QPixmap> typeIcons;
    QHash<QString, QVector<App *>> typeApps;

public slots:
    void init() override;
    void setActive(bool active) override;
    void setAutostart(bool enabled) override;
    QPixmap iconForFileType(const QString &type, int size) override;
    QVector<App *> appsForFileType(const QString &type) override;
    void openFile(const QString &path, const QString &type, const QString &appId) override;
    void shutdown() override { calls << QStringLiteral("shutdown"); }
    void restart() override { calls << QStringLiteral("restart"); }
    void sleep() override { calls << QStringLiteral("sleep"); }
    void lockScreen() override { calls << QStringLiteral("lockScreen"); }
    void logout() override { calls << QStringLiteral("logout"); }
    int getBrightness() override { return brightness; }
    void setBrightness(int value) override;
    int getVolume() override { return volume; }
    void setVolume(int value) override;
    bool getVolumeMute() override { return muted; }
    void setVolumeMute(bool value) override;
    void previousTrack() override { calls << QStringLiteral("previousTrack"); }
    void nextTrack() override { calls << QStringLiteral("nextTrack"); }
    void playPause() override { calls << QStringLiteral("playPause"); }
    bool getScreenLocked() override { return locked; }
    bool permissionsGranted() override { return granted; }

public:
    bool granted = true;
};
