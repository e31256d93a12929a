#pragma once

#include "macplatformbase.h"

#include <QtGlobal>

Q_FORWARD_DECLARE_OBJC_CLASS(NSArray);
Q_FORWARD_DECLARE_OBJC_CLASS(NSImage);
Q_FORWARD_DECLARE_OBJC_CLASS(NSRunningApplication);

// The Mac: installed applications from Spotlight, running ones and the front one from the
// workspace, volume and mute from CoreAudio, brightness from IOKit, the screen lock from
// distributed notifications, power actions as Apple events to the system process, and files
// through the workspace and LaunchServices.
class MacPlatform : public MacPlatformBase
{
    Q_OBJECT
public:
    explicit MacPlatform(QObject *parent = nullptr);
    ~MacPlatform() override;

    // The accessibility trust check, silent or with the system's prompt. Only a yes is
    // remembered: a no is asked again next time.
    static bool accessibilityEnabled();
    static bool accessibilityEnabledWithPrompt();

    // An icon of the sizes the lists use, from an image's representations of those widths.
    static QIcon iconFromImage(NSImage *image);

    void startObserving();
    void startObservingVolume();
    void setRunningApps(NSArray *apps);
    void addRunningApps(NSArray *apps);
    void removeRunningApps(NSArray *apps);
    App *appForNSRunningApp(NSRunningApplication *app);
    void setCurrentApp(NSRunningApplication *app);

public slots:
    void init() override;
    void setAutostart(bool enabled) override;
    QPixmap iconForFileType(const QString &type, int size) override;
    void shutdown() override;
    void restart() override;
    void sleep() override;
    void lockScreen() override;
    void logout() override;
    int getBrightness() override;
    void setBrightness(int brightness) override;
    int getVolume() override { return volume; }
    void setVolume(int volume) override;
    bool getVolumeMute() override { return volumeMute; }
    void setVolumeMute(bool mute) override;
    void previousTrack() override;
    void nextTrack() override;
    void playPause() override;
    bool permissionsGranted() override;

protected:
    App *createApp(const QString &id) override;
    void findInstalledApps() override;
    QStringList handlersForType(const QString &type) override;
    void openWithDefault(const QString &path) override;
    void openWithApplication(const QString &path, const QString &appName) override;

private:
    // Read the device into the stored values; false (after a warning) when the read failed.
    bool readVolume();
    bool readVolumeMute();

    int volume = 0;
    bool volumeMute = false;
    // The output device found at start; its listeners stay on it.
    unsigned outputDevice = 0;
};
