#include "constants.h"
#include "quitonsignals.h"
#include "singleapplication.h"
#include "ui.h"
#include "updateutils.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLibraryInfo>
#include <QLocale>
#include <QNetworkProxyFactory>
#include <QTranslator>

namespace {

// --pending, --approve or --deny: answered by the running instance of this user.
QByteArray remoteRequest(int argc, char *argv[])
{
    for (int i = 1; i < argc; ++i) {
        const QByteArray argument(argv[i]);
        if (argument == "--pending")
            return R"({"pending":true})";
        if (argument == "--approve")
            return R"({"approve":true})";
        if (argument == "--deny")
            return R"({"deny":true})";
    }
    return QByteArray();
}

// Asks the running instance and prints its answer; the exit status says how it went.
int askRunningInstance(SingleApplication &app, const QByteArray &request)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (app.isPrimary()) {
        err << "Velm Server is not running for this user." << Qt::endl;
        return 4;
    }
    bool ok = false;
    const QJsonObject reply = QJsonDocument::fromJson(app.request(request, 5000, &ok)).object();
    if (!ok) {
        err << "Velm Server did not answer." << Qt::endl;
        return 5;
    }
    if (reply.contains(QLatin1String("error"))) {
        err << reply.value(QLatin1String("error")).toString() << '.' << Qt::endl;
        return 1;
    }
    if (reply.contains(QLatin1String("pending"))) {
        const QJsonArray pending = reply.value(QLatin1String("pending")).toArray();
        if (pending.isEmpty())
            out << "No device is waiting for approval." << Qt::endl;
        for (const QJsonValue &value : pending) {
            const QJsonObject device = value.toObject();
            out << device.value(QLatin1String("name")).toString() << " ("
                << device.value(QLatin1String("id")).toString() << ") from "
                << device.value(QLatin1String("address")).toString() << " is waiting." << Qt::endl;
        }
        return 0;
    }
    if (reply.contains(QLatin1String("approved")))
        out << "Approved " << reply.value(QLatin1String("approved")).toString() << '.' << Qt::endl;
    else
        out << "Denied " << reply.value(QLatin1String("denied")).toString() << '.' << Qt::endl;
    return 0;
}

} // namespace

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
    // The program draws nothing with OpenGL. Without this, the first window it shows (the
    // welcome window, a pairing prompt) makes Qt load the system's OpenGL driver, on X11 to
    // choose the window's visual, and the driver stays for good: with Mesa's, LLVM and all,
    // some 50 MiB resident and 10 MiB of private memory.
    QCoreApplication::setAttribute(Qt::AA_ForceRasterWidgets);
    QGuiApplication::setQuitOnLastWindowClosed(false);

    // On a Wayland session other applications' windows can only be followed and driven through
    // XWayland, so Qt is asked to talk X11 there unless the user chose otherwise.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && !qEnvironmentVariableIsEmpty("DISPLAY")
        && !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "xcb");

    // Approving a device from a terminal needs no display.
    const QByteArray remote = remoteRequest(argc, argv);
    if (!remote.isEmpty() && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");

    // A second start for the same user ends in here, after telling the first one; one that
    // asks something of it stays to hear the answer.
    SingleApplication app(argc, argv, !remote.isEmpty(), SingleApplication::User, 1000);
    if (!remote.isEmpty())
        return askRunningInstance(app, remote);
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
    QObject::connect(&app, &SingleApplication::receivedMessage, &ui,
        [&app, &ui](quint32 instance, const QByteArray &message) {
            app.answer(instance, ui.answerRemote(message));
        });

    return app.exec();
}
