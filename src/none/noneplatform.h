#pragma once

#include "platform.h"

// The platform of a computer without a desktop backend. It knows no applications and controls
// nothing; files are listed, typed, previewed and opened through Qt. Every code that needs more
// is in `unsupported`, so clients hide what cannot work instead of trying it.
class NonePlatform : public Platform
{
    Q_OBJECT
public:
    explicit NonePlatform(QObject *parent = nullptr);

public slots:
    void init() override;
    void setActive(bool) override { }
    void setAutostart(bool enabled) override;
    QPixmap iconForFileType(const QString &type, int size) override;
    QVector<App *> appsForFileType(const QString &) override { return {}; }
    void openFile(const QString &path, const QString &type, const QString &appId) override;
    void shutdown() override { refuse(Q_FUNC_INFO); }
    void restart() override { refuse(Q_FUNC_INFO); }
    void sleep() override { refuse(Q_FUNC_INFO); }
    void lockScreen() override { refuse(Q_FUNC_INFO); }
    void logout() override { refuse(Q_FUNC_INFO); }
    int getBrightness() override { return 0; }
    void setBrightness(int) override { refuse(Q_FUNC_INFO); }
    int getVolume() override { return 0; }
    void setVolume(int) override { refuse(Q_FUNC_INFO); }
    bool getVolumeMute() override { return false; }
    void setVolumeMute(bool) override { refuse(Q_FUNC_INFO); }
    void previousTrack() override { refuse(Q_FUNC_INFO); }
    void nextTrack() override { refuse(Q_FUNC_INFO); }
    void playPause() override { refuse(Q_FUNC_INFO); }
    bool getScreenLocked() override { return false; }
    bool permissionsGranted() override { return true; }

private:
    static void refuse(const char *operation);
};
