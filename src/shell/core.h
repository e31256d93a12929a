#pragma once

#include <QHash>
#include <QMap>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVector>

#include <functional>

class App;
class Platform;
class Server;
class Website;

// The process-wide coordinator: owns the platform and, once the platform is ready, the server
// with its handlers; keeps the applications in the order clients see; ties the number of
// clients to sleep prevention and platform activity; answers the system commands.
class Core : public QObject
{
    Q_OBJECT
public:
    // The single instance, created on first use with the build's platform.
    static Core *instance();
    // The instance, or null before one is made.
    static Core *current();

    // Makes this the instance, with the build's platform.
    explicit Core(QObject *parent = nullptr);
    // Makes this the instance, with the given platform (which it adopts).
    explicit Core(Platform *platform, QObject *parent = nullptr);
    ~Core() override;

    // The installed applications, most recently run first while a client is connected.
    QVector<App *> &getSortedApps();
    // Fetches the website catalogue and every site document into `websites`.
    void loadWebsites();
    // The site host names ("d") of a catalogue document, in order, empty ones left out.
    static QStringList siteHosts(const QByteArray &catalogue);

    // How the display is kept awake while clients are connected: the build's Idle, handed over
    // by whoever makes the coordinator with the build's platform. Without it nothing is kept
    // awake, so that the coordinator needs no backend.
    struct DisplaySleep
    {
        std::function<bool(const QString &)> prevent;
        std::function<bool()> allow;
    };
    void setDisplaySleep(const DisplaySleep &functions) { displaySleep = functions; }

    QMap<QString, Website *> websites;
    Platform *platform = nullptr;
    Server *server = nullptr;
    // What only clients use (the applications' encoded icons, Qt's pixmap cache) is let go a
    // while after the last client leaves; a client that comes back earlier finds it kept.
    QTimer releaseTimer;
    static constexpr int releaseDelay = 60000;

signals:
    void ready();
    void sortedAppsChanged();

public slots:
    void start();
    bool getAutostart() const;
    void setAutostart(bool on);
    bool getPreventSleep() const;
    void setPreventSleep(bool on);
    void releaseClientMemory();

private slots:
    void onPlatformReady();
    void startServer();
    void onUnhandledMessage(const QString &method);
    void onInstalledAppsChanged();
    void sortApps();
    void onAppLaunched(App *app);
    void onAppTerminated(App *app);
    void onAppActivated(App *app);
    void onbrightnessChanged();
    void onClientTotalChanged(int count);

private:
    void allowDisplaySleep();

    DisplaySleep displaySleep;
    QVector<App *> sortedApps;
    QHash<QString, std::function<void()>> systemCommands;
};
