#include "runningprogram.h"

#include "testenvironment.h"

#include <QSettings>
#include <QtTest>

RunningProgram::RunningProgram(
    const QString &executable, const QStringList &wrapper, const QMap<QString, QString> &devices)
{
    QProcessEnvironment environment = TestEnvironment::isolatedProgram(home.path());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
        QStringLiteral("unix:path=") + home.filePath(QStringLiteral("no-bus")));
    QSettings settings(
        home.filePath(QStringLiteral("config/Velm/velm-server.conf")), QSettings::IniFormat);
    settings.setValue(QStringLiteral("welcome"), true);
    settings.setValue(QStringLiteral("autoStart"), false);
    for (auto device = devices.cbegin(); device != devices.cend(); ++device)
        settings.setValue(QStringLiteral("au/") + device.key(), device.value());
    settings.sync();
    process.setProcessEnvironment(environment);
    QObject::connect(&process, &QProcess::readyReadStandardError,
        [this] { output += process.readAllStandardError(); });
    const QStringList command = wrapper + QStringList { executable };
    process.start(command.first(), command.mid(1));
}

RunningProgram::~RunningProgram()
{
    process.disconnect();
    process.terminate();
    if (!process.waitForFinished(10000))
        process.kill();
    process.waitForFinished(3000);
}

quint16 RunningProgram::port()
{
    const QByteArray marker = "listens on port ";
    if (!waitForLog(marker, 20000))
        return 0;
    const int at = output.indexOf(marker) + marker.size();
    return quint16(output.mid(at, output.indexOf(' ', at) - at).toUInt());
}

bool RunningProgram::waitForLog(const QByteArray &text, int timeout)
{
    return QTest::qWaitFor(
        [&] {
            output += process.readAllStandardError();
            return output.contains(text);
        },
        timeout);
}
