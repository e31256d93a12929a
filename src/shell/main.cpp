#include "constants.h"
#include "core.h"
#include "server.h"
#include "singleapplication.h"

#include <QDir>
#include <QLibraryInfo>
#include <QLocale>
#include <QMessageBox>
#include <QNetworkProxyFactory>
#include <QPushButton>
#include <QTranslator>

namespace {

// Asks the user about a device that wants to pair. The answer goes to whichever connection is
// pending when it comes.
void askUser(Server *server, const QString &id, const QString &name)
{
    auto *box = new QMessageBox(
        QMessageBox::Question, Constants::NAME, QObject::tr("%1 would like to connect.").arg(name));
    box->setAttribute(Qt::WA_DeleteOnClose);
    QPushButton *authorize = box->addButton(QObject::tr("Authorize"), QMessageBox::AcceptRole);
    box->addButton(QObject::tr("Deny"), QMessageBox::RejectRole);
    QObject::connect(
        box, &QMessageBox::buttonClicked, server, [server, id, authorize](QAbstractButton *button) {
            server->setAuthorization(id, button == authorize);
        });
    box->show();
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
    QGuiApplication::setQuitOnLastWindowClosed(false);

    // A second start for the same user ends in here, after telling the first one.
    SingleApplication app(argc, argv, false, SingleApplication::User, 1000);

    QTranslator qtTranslator;
    if (qtTranslator.load(QStringLiteral("qt_") + QLocale::system().name(),
            QLibraryInfo::location(QLibraryInfo::TranslationsPath)))
        QCoreApplication::installTranslator(&qtTranslator);
    QString localeDir
        = QCoreApplication::applicationDirPath() + QStringLiteral("/../Resources/locale");
    if (!QDir(localeDir).exists())
        localeDir = QCoreApplication::applicationDirPath() + QStringLiteral("/locale");
    QTranslator translator;
    if (translator.load(QLocale::system(), QString(), QString(), localeDir))
        QCoreApplication::installTranslator(&translator);

    QNetworkProxyFactory::setUseSystemConfiguration(true);

    Core *core = Core::instance();
    QObject::connect(core, &Core::ready, core, [core] {
        QObject::connect(core->server, &Server::needUserAuthorization, core->server,
            [core](QObject *, const QString &id, const QString &name, const QString &) {
                askUser(core->server, id, name);
            });
    });
    core->start();

    return app.exec();
}
