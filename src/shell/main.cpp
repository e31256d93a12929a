#include "authenticationhandler.h"
#include "constants.h"
#include "l.h"
#include "server.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QWebSocket>

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

    QApplication app(argc, argv);

    Server server;
    new AuthenticationHandler(&server, L::auth);
    QObject::connect(&server, &Server::needUserAuthorization, &server,
        [&server](QObject *, const QString &id, const QString &name, const QString &) {
            askUser(&server, id, name);
        });

    return app.exec();
}
