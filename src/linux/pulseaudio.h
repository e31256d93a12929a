#pragma once

#include <QByteArray>
#include <QFileSystemWatcher>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <cstdint>

struct pa_context;
struct pa_glib_mainloop;
struct pa_server_info;
struct pa_sink_info;
struct PulseLibrary;

// The default output of the sound server (PulseAudio, or PipeWire through pipewire-pulse):
// its volume as a whole percentage of the normal volume and its mute switch, followed as they
// change and as the user switches outputs. When the server goes away it is waited for in the
// background.
class PulseAudio : public QObject
{
    Q_OBJECT
public:
    explicit PulseAudio(QObject *parent = nullptr);
    ~PulseAudio() override;

    bool isAvailable() const { return available; }
    int volume() const { return currentVolume; }
    bool muted() const { return currentMute; }
    // Every channel to value/100 of the normal volume; not clamped (150 is 150%).
    void setVolume(int value);
    void setMuted(bool muted);

    // Conversions between the server's volume levels and whole percentages of the normal level.
    static int percentFromVolume(uint32_t volume);
    static uint32_t volumeFromPercent(int percent);

    // What is watched while no server runs and there is no D-Bus to wait on: the server's
    // runtime folder (or the folder it would be made in while it is not there), the session
    // bus's and the system-wide server's folders, the client configuration and its folders.
    QStringList watchedFolders() const { return watcher.directories(); }
    QStringList watchedFiles() const { return watcher.files(); }
    // A server that is named but does not answer is asked again this often.
    bool isPolling() const { return retry.isActive(); }
    int retryInterval() const { return retry.interval(); }
    static constexpr int serverPollInterval = 30000;
    // The first look again after a connection fails.
    static constexpr int reconnectDelay = 1000;
    // Whether a sound server may be found now (named, waited for on D-Bus, or its socket is
    // there); until one may, the client library is not loaded.
    static bool serverMayBeThere();

signals:
    // Both after every reading, also when the values did not change.
    void volumeChanged();
    void muteChanged();
    void availableChanged(bool available);

private:
    void connectToServer();
    void onStateChanged();
    void readDefaultSink();
    void onServerInfo(const pa_server_info *info);
    void onSinkInfo(const pa_sink_info *info);
    void setAvailable(bool value);
    void waitForServer(bool named);
    void reportNoServer();

    const PulseLibrary *m_pa = nullptr;
    pa_glib_mainloop *mainloop = nullptr;
    pa_context *context = nullptr;
    QByteArray sinkName;
    uint32_t requestedVolume = 0;
    int currentVolume = 0;
    bool currentMute = false;
    bool available = false;
    bool failureReported = false;
    int retryDelay = reconnectDelay;
    // No attempt is under way; the next one comes from the watcher or the poll.
    bool waiting = false;
    QFileSystemWatcher watcher;
    QTimer retry;
};
