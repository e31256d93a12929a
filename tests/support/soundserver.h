#pragma once

#include <QProcess>
#include <QString>

// A PulseAudio daemon of the test's own, without a session or a bus: its socket is
// `runtime`/native and a null sink is its default output. Killed when destroyed.
class SoundServer
{
public:
    SoundServer() = default;
    ~SoundServer();
    SoundServer(const SoundServer &) = delete;
    SoundServer &operator=(const SoundServer &) = delete;

    // Writes its configuration into `home` (also its HOME) and starts it; false when it could not
    // be started.
    bool start(const QString &home, const QString &runtime, const QString &sink);
    // Kills it and waits for it to end; false when it did not.
    bool stop();

private:
    QProcess m_daemon;
};
