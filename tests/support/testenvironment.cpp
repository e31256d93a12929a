#include "testenvironment.h"

#include "constants.h"

#include <QCoreApplication>
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

} // namespace TestEnvironment
