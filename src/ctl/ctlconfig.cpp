#include "ctlconfig.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostInfo>
#include <QRandomGenerator>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>

QString CtlConfig::path()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/velmctl/velmctl.conf");
}

CtlConfig CtlConfig::load()
{
    CtlConfig config;
    if (QFileInfo::exists(path())) {
        const QSettings stored(path(), QSettings::IniFormat);
        config.deviceId = stored.value(QStringLiteral("deviceId")).toString();
        config.token = stored.value(QStringLiteral("token")).toString();
        config.host = stored.value(QStringLiteral("host")).toString();
        const QString port = stored.value(QStringLiteral("port")).toString();
        bool ok = false;
        const uint number = port.toUInt(&ok);
        if (ok && number >= 1 && number <= 65535)
            config.port = quint16(number);
        else if (!port.isEmpty())
            config.badPort = port;
    }
    if (qEnvironmentVariableIsSet("VELM_DEVICE_ID"))
        config.deviceId = qEnvironmentVariable("VELM_DEVICE_ID");
    if (qEnvironmentVariableIsSet("VELM_TOKEN"))
        config.token = qEnvironmentVariable("VELM_TOKEN");
    return config;
}

bool CtlConfig::save(QString *error) const
{
    const QString file = path();
    if (!QDir().mkpath(QFileInfo(file).absolutePath())) {
        *error = QStringLiteral("cannot create %1").arg(QFileInfo(file).absolutePath());
        return false;
    }
    // Written whole and readable by the user alone from the start: the token is a password.
    QSaveFile out(file);
    if (!out.open(QIODevice::WriteOnly)
        || !out.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        *error = QStringLiteral("cannot write %1: %2").arg(file, out.errorString());
        return false;
    }
    // In the format QSettings reads, each value quoted.
    const auto quoted = [](QString value) -> QString {
        value.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
        value.replace(QLatin1Char('"'), QStringLiteral("\\\""));
        return QLatin1Char('"') + value + QLatin1Char('"');
    };
    QString text = QStringLiteral("[General]\n");
    text += QStringLiteral("deviceId=") + quoted(deviceId) + QLatin1Char('\n');
    text += QStringLiteral("token=") + quoted(token) + QLatin1Char('\n');
    text += QStringLiteral("host=") + quoted(host) + QLatin1Char('\n');
    text += QStringLiteral("port=%1\n").arg(port);
    out.write(text.toUtf8());
    if (!out.commit()) {
        *error = QStringLiteral("cannot write %1: %2").arg(file, out.errorString());
        return false;
    }
    return true;
}

bool CtlConfig::forget(QString *error)
{
    QFile file(path());
    if (file.exists() && !file.remove()) {
        *error = QStringLiteral("cannot remove %1: %2").arg(file.fileName(), file.errorString());
        return false;
    }
    return true;
}

QString CtlConfig::newDeviceId()
{
    quint32 words[2];
    QRandomGenerator::system()->fillRange(words);
    return QStringLiteral("velmctl-%1-%2%3")
        .arg(QHostInfo::localHostName())
        .arg(words[0], 8, 16, QLatin1Char('0'))
        .arg(words[1], 8, 16, QLatin1Char('0'));
}
