#pragma once

#include "app.h"

#include <QList>
#include <QWindow>

typedef struct _GAppInfo GAppInfo;
class X11Session;

// An application: from its desktop entry, or found through a window of a program that has
// none. Launching goes through GIO; window control and input go through the X11 session,
// which the platform gives it together with the application's windows. Menus and the focused
// element come with the accessibility backend.
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
    X11Session *session = nullptr;
    QList<WId> windows;

    // The window the user worked in last: the highest in the stacking order.
    WId recentWindow() const;
    // The highest window that is not minimised; 0 when all are.
    WId frontWindow() const;
    // Brings the application forward when another one is active, and waits (at most 300 ms)
    // until the window manager says so, so that keys typed next reach it.
    void ensureActive();
    void performShortcut(const QString &shortcut);

public slots:
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
    GAppInfo *m_info = nullptr;
    std::vector<MenuItem> m_menu;
};
