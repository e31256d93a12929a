#pragma once

#include "accessible.h"
#include "app.h"

#include <QHash>
#include <QList>
#include <QStringList>
#include <QWindow>

typedef struct _GAppInfo GAppInfo;
class Accessibility;
class QTimer;
class WindowSession;

// An application: from its desktop entry, or found through a window of a program that has
// none. Launching goes through GIO; window control and input go through the X11 session,
// which the platform gives it together with the application's windows. Menus, the focused
// element and a browser's page are read through the accessibility bus.
class LinuxApp : public App
{
    Q_OBJECT
public:
    // Takes a reference to info, which may be null (a program known only by its window).
    LinuxApp(const QString &id, GAppInfo *info, QObject *parent = nullptr);
    ~LinuxApp() override;

    GAppInfo *appInfo() const { return m_info; }
    void setAppInfo(GAppInfo *info);
    // Starts the application with the given file URIs; false when GIO refuses.
    bool launchWith(const QStringList &uris);

    // Set by the platform: the session, and the regular windows in the order they appeared.
    WindowSession *session = nullptr;
    QList<WId> windows;
    // Set by the platform when the accessibility bus is there.
    Accessibility *accessibility = nullptr;

    // The processes behind the windows.
    QList<int> processIds() const;
    // The element that has the keyboard focus in the application, as the focus events said.
    Accessible focusedElement() const;
    // Classifies the element and reports it as the focused one.
    void reportFocus(const Accessible &element);
    // The address of the page in front, for browsers; polled while current.
    QString documentUrl() const;
    void startPollingBrowser();
    bool isPollingBrowser() const { return m_browserTimer != nullptr; }
    void stopPollingBrowser();
    void pollBrowser();

    // The window the user worked in last: the highest in the stacking order.
    WId recentWindow() const;
    // The highest window that is not minimised; 0 when all are.
    WId frontWindow() const;
    void performShortcut(const QString &shortcut);
    // The menu tree read while in front belongs to the windows the application had then: a
    // window that comes or goes (the program started again, say) makes it be read anew.
    void forgetMenu();

public slots:
    void setBrowser(bool browser) override;
    void setCurrent(bool current) override;
    void launch() override;
    void activate() override;
    void quit() override;
    void hide() override;
    void close() override;
    void toggleMiniminize() override;
    void toggleMaximize() override;
    bool supportsFullscreen() override;
    void toggleFullscreen() override;
    void scroll(int x, int y) override;
    void performKeySequence(const QString &keys) override;
    const std::vector<MenuItem> &getMenuItems() override;
    void performMenu(const QString &menuId) override;
    void setFocusValue(const QString &value) override;
    void performFocusedElement() override;

private:
    bool hasWindows(const char *operation) const;
    // Asks the session, else the application itself, to bring it forward; false when
    // neither can.
    bool bringForward();
    // The frame in front (the active one, else the first) of the application's element.
    Accessible frontFrame() const;
    Accessible menuBar() const;
    void fillMenu(MenuItem &parent, const Accessible &element, const QStringList &path, int depth,
        int *budget);
    // The menu entry reached through these titles from the menu bar, read afresh; with
    // openMenus, each menu on the way is opened first.
    Accessible findMenuEntry(const QStringList &path, bool openMenus) const;
    // Types the key sequences waiting for the application to come forward, in order.
    void typePendingKeys();
    void onActiveWindowChanged(WId window);
    GAppInfo *m_info = nullptr;
    // Key sequences asked for while the window manager was still bringing the application
    // forward; typed when it is active, or when the wait times out.
    QStringList m_pendingKeys;
    QTimer *m_activationTimer = nullptr;
    std::vector<MenuItem> m_menu;
    // The elements behind m_menu, kept alive as long as the tree is.
    QVector<Accessible> m_menuElements;
    // The titles leading to each entry of m_menu, from the menu bar down.
    QHash<QString, QStringList> m_menuPaths;
    QTimer *m_browserTimer = nullptr;
    QString m_browserUrl;
};
