#pragma once

#include "menuitem.h"

#include <QHash>
#include <QIcon>
#include <QObject>
#include <QString>
#include <QVariantMap>
#include <QVector>

#include <vector>

class HttpReply;
class Server;
class Website;

// One application known to the system: installed, possibly running, possibly in front. The
// platform creates, owns and deletes every App; a backend subclass implements the operations.
class App : public QObject
{
    Q_OBJECT
public:
    // The kind of focused element. The values start at 1; their names travel as text.
    enum ElementRole {
        Null = 1,
        Window = 2,
        Text = 3,
        TextArea = 4,
        List = 5,
        Table = 6,
        Button = 7
    };
    Q_ENUM(ElementRole)

    explicit App(const QString &id, QObject *parent = nullptr);
    ~App() override;

    // The server that focus changes are broadcast through; set once it runs.
    static void setServer(Server *server);
    static Server *getServer();
    // The site documents by host name, kept by the coordinator.
    static void setWebsites(const QMap<QString, Website *> *websites);

    // Fetches the command set from the web service unless it is already here.
    void loadCommands();
    // The browser's page changed: pushes the site's commands ("sc") when the host changes.
    void onBrowserUrlChanged(const QString &url);

    // Records a change of the running state and its time; the times are saved in batches.
    void setRunning(bool running);
    void performKeySequences(const QVector<QString> &sequences);
    static bool nameComparator(App *a, App *b);
    static bool lastRunComparator(App *a, App *b);

    // The icon as a square PNG of `size` pixels; each size is encoded once and kept until the
    // icon changes (clients ask for the same sizes again and again).
    QByteArray iconPng(int size);
    // Lets the encoded icons go (when no client is left to ask for them); how many are kept.
    void releaseIconPngs();
    int keptIconPngs() const { return iconPngs.size(); }

    // Records the focused element and broadcasts it ("fe") while anyone is connected.
    void setFocusRole(
        ElementRole role, const QString &name, const QString &value, const QVariantMap &properties);
    // The same, run later on the object's thread: for observers that report from elsewhere.
    void setFocusRoleAsync(
        ElementRole role, const QString &name, const QString &value, const QVariantMap &properties);

    const QString id;
    QString path;
    QString name;
    QIcon icon;
    bool current = false;
    // The command set's JSON text as received, and whether one has arrived.
    QByteArray commands;
    bool commandsAreLoaded = false;
    QString siteHost;
    bool running = false;
    qint64 lastRun = 0;
    bool browser = false;
    QString focusValue;

signals:
    void commandsLoaded(const QByteArray &json);
    void focusRoleAsync(App::ElementRole role, const QString &name, const QString &value,
        const QVariantMap &properties);
    void webCommandsChanged(const QString &commands);

public slots:
    void parseCommands(const HttpReply &reply);
    virtual void setBrowser(bool browser);
    virtual void setCurrent(bool current);
    virtual void launch() = 0;
    // Brings the application to the front, launching it if needed.
    virtual void activate() = 0;
    virtual void quit() = 0;
    virtual void hide() = 0;
    // Closes the front window.
    virtual void close() = 0;
    // Minimises the front window or restores it.
    virtual void toggleMiniminize() = 0;
    virtual void toggleMaximize() = 0;
    virtual bool supportsFullscreen() = 0;
    virtual void toggleFullscreen() = 0;
    virtual void scroll(int x, int y) = 0;
    virtual void performKeySequence(const QString &keys) = 0;
    // The menu bar as a tree, held by the application until the next call.
    virtual const std::vector<MenuItem> &getMenuItems() = 0;
    virtual void performMenu(const QString &menuId) = 0;
    virtual void setFocusValue(const QString &value) = 0;
    virtual void performFocusedElement() = 0;

private:
    QPixmap iconPixmap(int size) const;
    qint64 iconPngKey = 0;
    QHash<int, QByteArray> iconPngs;
};
