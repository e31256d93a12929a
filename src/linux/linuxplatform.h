#pragma once

#include "platform.h"

#include <QHash>
#include <QWindow>

typedef struct _GAppInfoMonitor GAppInfoMonitor;

class Accessibility;
class Backlight;
class LinuxApp;
class LoginSession;
class MediaPlayers;
class PulseAudio;
class QTimer;
class WindowSession;
struct DesktopWindow;

// The Linux desktop: applications from the desktop entries GIO knows, files through GIO and
// the freedesktop MIME and icon-theme databases. What this machine cannot do yet is listed in
// `unsupported`.
class LinuxPlatform : public Platform
{
    Q_OBJECT
public:
    explicit LinuxPlatform(QObject *parent = nullptr);
    ~LinuxPlatform() override;

    // Where the login item lives: $XDG_CONFIG_HOME/autostart/velm-server.desktop.
    static QString autostartFile();
    // How windows and input are reached in this desktop session; null without any way.
    WindowSession *session() const { return m_session; }
    // The application a window belongs to, found as for a new window (no App is made).
    LinuxApp *matchWindow(const DesktopWindow &window) const;
    // Null before init().
    LoginSession *loginSession() const { return m_login; }
    MediaPlayers *mediaPlayers() const { return m_media; }

    // The brightness is read every second while clients are connected, since backlight
    // devices announce nothing.
    void startPolling();
    void poll();
    void stopPolling();
    // Stores the state and announces it when it changed.
    void setScreenLocked(bool locked);

public slots:
    void init() override;
    void setActive(bool active) override;
    void setAutostart(bool enabled) override;
    QPixmap iconForFileType(const QString &type, int size) override;
    QVector<App *> appsForFileType(const QString &type) override;
    void openFile(const QString &path, const QString &type, const QString &appId) override;
    void shutdown() override;
    void restart() override;
    void sleep() override;
    void lockScreen() override;
    void logout() override;
    int getBrightness() override;
    void setBrightness(int value) override;
    int getVolume() override;
    void setVolume(int value) override;
    bool getVolumeMute() override;
    void setVolumeMute(bool muted) override;
    void previousTrack() override;
    void nextTrack() override;
    void playPause() override;
    bool getScreenLocked() override;
    bool permissionsGranted() override;

private:
    void findInstalledApps();
    void onAppInfoChanged();
    static void appInfoChangedCallback(GAppInfoMonitor *, void *self);

    // Running applications, followed through their windows.
    void startObserving();
    void addWindows(const QList<WId> &windows);
    void removeWindows(const QList<WId> &windows);
    void onWindowChanged(WId window);
    void onActiveWindowChanged(WId window);
    // The application of a regular window, made on first sight when no entry matches.
    LinuxApp *appForWindow(const DesktopWindow &window);
    // Lists what this machine cannot serve now; announces it when that changed.
    void refreshUnsupported();
    void mediaCommand(int command, unsigned keysym);

    GAppInfoMonitor *m_monitor = nullptr;
    WindowSession *m_session = nullptr;
    PulseAudio *m_pulse = nullptr;
    Accessibility *m_a11y = nullptr;
    // Accessibility was on when the program started; turned on by us, applications that run
    // already need a restart to show up.
    bool m_a11yGranted = false;
    Backlight *m_backlight = nullptr;
    LoginSession *m_login = nullptr;
    MediaPlayers *m_media = nullptr;
    QTimer *m_pollTimer = nullptr;
    int m_brightness = 0;
    bool m_screenLocked = false;
    bool m_observing = false;
    QHash<WId, LinuxApp *> m_windowApps;
};
