#include "testenvironment.h"

#include "constants.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

namespace TestEnvironment {

void setUp()
{
    static QTemporaryDir configHome;
    qputenv("XDG_CONFIG_HOME", configHome.path().toUtf8());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, configHome.path());
    QCoreApplication::setApplicationName(Constants::UNIX_NAME);
    QCoreApplication::setOrganizationName(Constants::ORG_NAME);
    QCoreApplication::setOrganizationDomain(Constants::ORG_DOMAIN);
    QCoreApplication::setApplicationVersion(Constants::VERSION);
    clearSettings();
}

void clearSettings()
{
    QSettings settings;
    settings.clear();
    settings.sync();
}

QProcessEnvironment isolatedProgram(const QString &root)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QList<QPair<QString, QString>> folders {
        { QStringLiteral("HOME"), QStringLiteral("home") },
        { QStringLiteral("XDG_CONFIG_HOME"), QStringLiteral("config") },
        { QStringLiteral("XDG_CACHE_HOME"), QStringLiteral("cache") },
        { QStringLiteral("XDG_DATA_HOME"), QStringLiteral("data") },
        { QStringLiteral("XDG_STATE_HOME"), QStringLiteral("state") },
        { QStringLiteral("XDG_RUNTIME_DIR"), QStringLiteral("runtime") },
        { QStringLiteral("TMPDIR"), QStringLiteral("tmp") },
    };
    for (const auto &[variable, name] : folders) {
        const QString path = QDir(root).filePath(name);
        QDir().mkpath(path);
        environment.insert(variable, path);
    }
    // The single-instance socket, block and lock live in the runtime folder, which must be the
    // user's alone.
    QFile::setPermissions(QDir(root).filePath(QStringLiteral("runtime")),
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return environment;
}

Variable::Variable(const QByteArray &name, const QByteArray &value)
    : name(name)
    , old(qgetenv(name.constData()))
    , had(qEnvironmentVariableIsSet(name.constData()))
{
    if (value.isNull())
        qunsetenv(name.constData());
    else
        qputenv(name.constData(), value);
}

Variable::~Variable()
{
    if (had)
        qputenv(name.constData(), old);
    else
        qunsetenv(name.constData());
}

} // namespace TestEnvironment
