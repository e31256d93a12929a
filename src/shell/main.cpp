#include "constants.h"
#include "quitonsignals.h"
#include "singleapplication.h"
#include "ui.h"
#include "updateutils.h"

#include <QCommandLineParser>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLibraryInfo>
#include <QLocale>
#include <QNetworkProxyFactory>
#include <QTranslator>

namespace {

enum Status { Done = 0, Refused = 1, Usage = 2, NotRunning = 4, NoAnswer = 5 };

// What the command line asks for: the server itself, or a question for the running one.
struct Command
{
    QByteArray remote; // the request for the running instance; empty: run the server
    int exitNow = -1; // set when the command line has been answered already
};

QString waitingLines(const QJsonArray &pending)
{
    QString text;
    for (const QJsonValue &value : pending) {
        const QJsonObject device = value.toObject();
        text += QStringLiteral("%1 (%2) from %3 is waiting.\n")
                    .arg(device.value(QLatin1String("name")).toString(),
                        device.value(QLatin1String("id")).toString(),
                        device.value(QLatin1String("address")).toString());
    }
    return text;
}

// Qt's own options, which QApplication reads from the same command line (a session manager
// restarts the program with -session).
const char *const qtOptions[] = { "platform", "platformpluginpath", "platformtheme", "plugin",
    "qwindowgeometry", "qwindowicon", "qwindowtitle", "session", "style", "stylesheet", "display",
    "geometry", "title", "name", "visual" };
const char *const qtFlags[] = { "reverse", "widgetcount", "nograb", "dograb", "sync" };

Command parseCommandLine(int argc, char *argv[])
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Lets phones paired once control this computer. Started without options, it runs in "
        "the tray; the options below ask the copy already running for this user, and need no "
        "display.\n\n"
        "Environment:\n"
        "  VELM_WINDOWS      how windows are followed on Linux: x11, wlroots, plasma or portal\n"
        "  VELM_WS_BASE      the whole base address of the command-set web service\n"
        "  QT_QPA_PLATFORM   Qt's platform; offscreen runs without a display"));
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption help(
        { QStringLiteral("h"), QStringLiteral("help") }, QStringLiteral("Shows these options."));
    const QCommandLineOption version(
        QStringLiteral("version"), QStringLiteral("Shows the version."));
    const QCommandLineOption pending(QStringLiteral("pending"),
        QStringLiteral("Shows the devices waiting for approval, with their ids."));
    const QCommandLineOption approve(QStringLiteral("approve"),
        QStringLiteral("Approves the waiting device of that id, as \"Authorize\" in the prompt "
                       "does."));
    const QCommandLineOption deny(
        QStringLiteral("deny"), QStringLiteral("Denies the waiting device of that id."));
    parser.addOptions({ help, version, pending, approve, deny });
    for (const char *name : qtOptions) {
        QCommandLineOption option(QString::fromLatin1(name), QString(), QStringLiteral("value"));
        option.setFlags(QCommandLineOption::HiddenFromHelp);
        parser.addOption(option);
    }
    for (const char *name : qtFlags) {
        QCommandLineOption option(QString::fromLatin1(name));
        option.setFlags(QCommandLineOption::HiddenFromHelp);
        parser.addOption(option);
    }
    parser.addPositionalArgument(QStringLiteral("id"),
        QStringLiteral("The device to approve or deny."), QStringLiteral("[id]"));

    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    QTextStream out(stdout);
    QTextStream err(stderr);
    Command command;
    if (!parser.parse(arguments)) {
        err << parser.errorText() << "\nTry \"velm-server --help\"." << Qt::endl;
        command.exitNow = Usage;
        return command;
    }
    if (parser.isSet(help)) {
        // The usage line names the program as Qt's application object knows it.
        QCoreApplication application(argc, argv);
        out << parser.helpText();
        command.exitNow = Done;
        return command;
    }
    if (parser.isSet(version)) {
        out << QCoreApplication::applicationName() << ' ' << QCoreApplication::applicationVersion()
            << Qt::endl;
        command.exitNow = Done;
        return command;
    }
    const int questions
        = int(parser.isSet(pending)) + int(parser.isSet(approve)) + int(parser.isSet(deny));
    const QStringList ids = parser.positionalArguments();
    if (questions > 1 || ids.size() > 1 || (!ids.isEmpty() && questions == 0)
        || (!ids.isEmpty() && parser.isSet(pending))) {
        err << (questions > 1 ? "Give one of --pending, --approve and --deny."
                              : "Unexpected argument: ")
            << (questions > 1 ? QString() : ids.join(QLatin1Char(' ')))
            << "\nTry \"velm-server --help\"." << Qt::endl;
        command.exitNow = Usage;
        return command;
    }
    QJsonObject request;
    if (parser.isSet(pending))
        request.insert(QStringLiteral("pending"), true);
    else if (parser.isSet(approve) || parser.isSet(deny))
        request.insert(parser.isSet(approve) ? QStringLiteral("approve") : QStringLiteral("deny"),
            ids.isEmpty() ? QJsonValue(true) : QJsonValue(ids.first()));
    if (!request.isEmpty())
        command.remote = QJsonDocument(request).toJson(QJsonDocument::Compact);
    return command;
}

// Asks the running instance and prints its answer; the exit status says how it went.
int askRunningInstance(SingleApplication &app, const QByteArray &request)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (app.isPrimary()) {
        err << "Velm Server is not running for this user." << Qt::endl;
        return NotRunning;
    }
    const QJsonObject asked = QJsonDocument::fromJson(request).object();
    const bool answering
        = asked.contains(QLatin1String("approve")) || asked.contains(QLatin1String("deny"));
    // Approving or denying names the device, so that nobody who arrived since --pending was
    // read gets an answer meant for another; without a name nothing changes.
    const bool named = answering
        && (asked.value(QLatin1String("approve")).isString()
            || asked.value(QLatin1String("deny")).isString());
    bool ok = false;
    const QJsonObject reply = QJsonDocument::fromJson(
        app.request(named || !answering ? request : QByteArray(R"({"pending":true})"), 5000, &ok))
                                  .object();
    if (!ok) {
        err << "Velm Server did not answer." << Qt::endl;
        return NoAnswer;
    }
    const QJsonArray pending = reply.value(QLatin1String("pending")).toArray();
    if (answering && !named) {
        if (pending.isEmpty()) {
            err << "No device is waiting for approval." << Qt::endl;
        } else {
            err << waitingLines(pending) << "Name the device: velm-server "
                << (asked.contains(QLatin1String("approve")) ? "--approve" : "--deny") << ' '
                << pending.first().toObject().value(QLatin1String("id")).toString() << Qt::endl;
        }
        return Usage;
    }
    if (reply.contains(QLatin1String("error"))) {
        err << reply.value(QLatin1String("error")).toString() << '.' << Qt::endl;
        if (reply.contains(QLatin1String("pending")))
            err << (pending.isEmpty() ? QStringLiteral("No device is waiting for approval.\n")
                                      : waitingLines(pending));
        err.flush();
        return Refused;
    }
    if (reply.contains(QLatin1String("pending"))) {
        if (pending.isEmpty())
            out << "No device is waiting for approval." << Qt::endl;
        out << waitingLines(pending);
        return Done;
    }
    if (reply.contains(QLatin1String("approved")))
        out << "Approved " << reply.value(QLatin1String("approved")).toString() << '.' << Qt::endl;
    else
        out << "Denied " << reply.value(QLatin1String("denied")).toString() << '.' << Qt::endl;
    return Done;
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

    const Command command = parseCommandLine(argc, argv);
    if (command.exitNow >= 0)
        return command.exitNow;
    // Approving a device from a terminal needs no display.
    const QByteArray &remote = command.remote;
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
