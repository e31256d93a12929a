#include "soundserver.h"

#include <QDir>
#include <QFile>

SoundServer::~SoundServer() { stop(); }

bool SoundServer::start(const QString &home, const QString &runtime, const QString &sink)
{
    QFile config(QDir(home).filePath(QStringLiteral("default.pa")));
    if (!config.open(QIODevice::WriteOnly))
        return false;
    config.write("load-module module-native-protocol-unix auth-anonymous=1 socket="
        + QFile::encodeName(runtime) + "/native\n" + "load-module module-null-sink sink_name="
        + sink.toUtf8() + "\nset-default-sink " + sink.toUtf8() + "\n");
    config.close();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), home);
    m_daemon.setProcessEnvironment(environment);
    m_daemon.setStandardOutputFile(QProcess::nullDevice());
    m_daemon.setStandardErrorFile(QProcess::nullDevice());
    m_daemon.start(QStringLiteral("pulseaudio"),
        { QStringLiteral("-n"), QStringLiteral("-F"), config.fileName(),
            QStringLiteral("--exit-idle-time=-1"), QStringLiteral("--disallow-exit"),
            QStringLiteral("--daemonize=no"), QStringLiteral("--use-pid-file=no") });
    return m_daemon.waitForStarted(5000);
}

bool SoundServer::stop()
{
    if (m_daemon.state() == QProcess::NotRunning)
        return true;
    m_daemon.kill();
    return m_daemon.waitForFinished(5000);
}
