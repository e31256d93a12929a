#include "constants.h"
#include "quitonsignals.h"
#include "singleapplication.h"
#include "ui.h"
#include "updateutils.h"

#include <QDir>
#include <QLibraryInfo>
#include <QLocale>
#include <QNetworkProxyFactory>
#include <QTranslator>

int main(int argc, char *argv[])
{
    qSetMessagePattern(QStringLiteral("[%{function}] %{message}"));
    QCoreApplication::setApplicationName(Constants::UNIX_NAME);
    QCoreApplication::setOrganizationName(Constants::ORG_NAME);
    QCoreApplication::setOrganizationDomain(Constants::ORG_DOMAIN);
    QCoreApplication::setApplicationVersion(Constants::VERSION);
    QCoreApplication::setAttribute(Qt::AA_DontShowIconsInMenus);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_DontShowShortcutsInContextMenus);
    QGuiApplication::setQuitOnLastWindowClosed(false);

    // On a Wayland session other applications' windows can only be followed and driven through
    // XWayland, so Qt is asked to talk X11 there unless the user chose otherwise.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && !qEnvironmentVariableIsEmpty("DISPLAY")
        && !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "xcb");

    // A second start for the same user ends in here, after telling the first one.
    SingleApplication app(argc, argv, false, SingleApplication::User, 1000);
    QGuiApplication::setDesktopFileName(Constants::UNIX_NAME);
    QuitOnSignals quitOnSignals;

    QTranslator qtTranslator;
    if (qtTranslator.load(QStringLiteral("qt_") + QLocale::system().name(),
            QLibraryInfo::location(QLibraryInfo::TranslationsPath)))
        QCoreApplication::installTranslator(&qtTranslator);
    QString localeDir
        = QCoreApplication::applicationDirPath() + QStringLiteral("/../Resources/locale");
    if (!QDir(localeDir).exists())
        localeDir = QCoreApplication::applicationDirPath() + QStringLiteral("/locale");
    QTranslator translator;
    // English has a file of its own for its plurals; it also serves locales nobody translated.
    if (translator.load(QLocale::system(), QString(), QString(), localeDir)
        || translator.load(QLocale(QLocale::English), QString(), QString(), localeDir))
        QCoreApplication::installTranslator(&translator);

    QNetworkProxyFactory::setUseSystemConfiguration(true);

    UpdateUtils::init();

    UI ui;
    // Starting the program again opens its preferences: there is no main window to show.
    QObject::connect(&app, &SingleApplication::instanceStarted, &ui, &UI::showPreferences);

    return app.exec();
}
