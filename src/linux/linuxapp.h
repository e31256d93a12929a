#pragma once

#include "app.h"

typedef struct _GAppInfo GAppInfo;

// An application from a desktop entry. Launching goes through GIO; window, input, menu and
// focus control come with the X11 and accessibility backends and are absent until then (the
// platform reports them as unsupported).
class LinuxApp : public App
{
    Q_OBJECT
public:
    // Takes a reference to info.
    LinuxApp(const QString &id, GAppInfo *info, QObject *parent = nullptr);
    ~LinuxApp() override;

    GAppInfo *appInfo() const { return m_info; }
    // Starts the application with the given file URIs; false when GIO refuses.
    bool launchWith(const QStringList &uris);

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
    GAppInfo *m_info;
    std::vector<MenuItem> m_menu;
};
