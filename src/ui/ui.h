#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

class AboutBox;
class Preferences;
class QAction;
class QMenu;
class QMessageBox;
class QSystemTrayIcon;
class QWidget;
class WebRemoteDialog;
class WelcomeView;

// The program's face: the tray icon and its menu, the pairing prompt, the welcome window and
// the two dialogs. It starts the coordinator.
class UI : public QObject
{
    Q_OBJECT
public:
    explicit UI(QWidget *parent = nullptr);
    ~UI() override;

    QAction *clientCountAction = nullptr;
    QSystemTrayIcon *trayIcon = nullptr;
    QPointer<Preferences> preferences;
    QPointer<AboutBox> aboutBox;
    QPointer<WelcomeView> welcomeView;
    QPointer<WebRemoteDialog> webRemote;
    // The pairing prompts that are open.
    QList<QPointer<QMessageBox>> authDialogs;

    // A request from another process of this user (velm-server --pending, --approve, --deny):
    // {"pending": true}, {"approve": ID} or {"deny": ID}; the answer as JSON. An error
    // answer lists who is waiting now.
    QByteArray answerRemote(const QByteArray &request);

public slots:
    void startCore();
    void setupTrayIcon();
    void onClientCountChanged(int count);
    void showAuthDialog(
        QObject *socket, const QString &id, const QString &name, const QString &address);
    void showWelcome();
    void showPreferences();
    void showAboutBox();
    void showWebRemote();

private slots:
    void onCoreReady();

private:
    // The device the newest prompt asks about.
    struct Asking
    {
        QPointer<QObject> socket;
        QString id;
        QString name;
        QString address;
    };
    Asking asking;
    QMenu *menu = nullptr;
    bool coreConnected = false;
};
