#pragma once

#include "app.h"
#include "mackeys.h"
#include "macmenu.h"

#include <optional>
#include <vector>

class QTimer;

// An application on the Mac apart from the system calls: what each operation does with the
// process, its windows, its menus, its focused element and a browser's address. MacApp gives
// the primitives below through NSRunningApplication, the accessibility interface and
// synthesised events.
class MacAppBase : public App
{
    Q_OBJECT
public:
    enum class Process { None, Inactive, Active };
    enum class Button { Close, Minimize, Zoom, FullScreen };
    enum class FocusAction { NoElement, NoAction, Performed };

    explicit MacAppBase(const QString &id, QObject *parent = nullptr);
    ~MacAppBase() override;

    // Brings the application to the front when it runs and is not in front.
    void ensureActive();
    // One chord: modifiers and a key, pressed and released.
    void performShortcut(const QString &shortcut);
    // While current, a browser's address is asked for every 5 s.
    void startPollingBrowser();
    void stopPollingBrowser();
    bool isPollingBrowser() const { return browserTimer != nullptr; }
    // The script that yields the browser's address (empty until a command set names one).
    QString browserAddressScript() const { return browserScript; }
    // A poll's script has not answered yet.
    bool isBrowserPollPending() const { return browserPollRunning; }

signals:
    // The browser's address changed (before the page's commands are looked up).
    void browserAddressChanged(const QString &address);

public slots:
    void setBrowser(bool browser) override;
    void setCurrent(bool current) override;
    void activate() override;
    void quit() override;
    void hide() override;
    void close() override;
    void toggleMiniminize() override;
    void toggleMaximize() override;
    bool supportsFullscreen() override;
    void toggleFullscreen() override;
    void scroll(int x, int y) override;
    void performKeySequence(const QString &sequence) override;
    const std::vector<MenuItem> &getMenuItems() override;
    void performMenu(const QString &identifier) override;
    void performFocusedElement() override;

protected:
    // Whether the application runs, and is in front; None after the warning
    // "No NSRunningApplication for" with the identifier.
    virtual Process process() const = 0;
    virtual void activateProcess() = 0;
    virtual void terminateProcess() = 0;
    virtual void hideProcess() = 0;

    // Presses a button of the front window; false when there is no front window (no
    // permission, no process, or "Cannot get window") or it has no such button.
    virtual bool pressWindowButton(Button button) = 0;
    virtual bool hasWindowButton(Button button) = 0;
    // The front window's full-screen state (false when unreadable), and setting it.
    virtual bool isFullScreen() = 0;
    virtual void setFullScreen(bool fullScreen) = 0;
    // The minimised state of each window of the application element kept since it became
    // current, in order (nothing for one that cannot be read); nothing at all when the windows
    // cannot be read.
    virtual std::optional<std::vector<std::optional<bool>>> windowsMinimized() = 0;
    virtual void raiseWindow(int index) = 0;

    virtual void postScroll(int wheel) = 0;
    virtual void postKey(quint16 code, quint64 flags, bool down) = 0;
    virtual const MacKeys::Table &keyTable() = 0;

    // The accessibility permission, asked with the system's prompt.
    virtual bool accessibilityTrusted() = 0;
    virtual const MacMenu::Reader &menuReader() = 0;
    // The menu bar's entries; none when they cannot be read.
    virtual std::vector<void *> menuBarEntries() = 0;
    virtual bool pressElement(void *element) = 0;
    // The tree was dropped: what its elements point into may go.
    virtual void menusDropped() { }

    // Performs the focused element's first action.
    virtual FocusAction performFocusAction() = 0;

    // Starts or stops following the focused element as the application becomes current or
    // stops being it; false when that could not be done (no permission, no process, or no
    // observer), and then nothing else changes with the current state.
    virtual bool followFocus(bool current) = 0;

private:
    void pollBrowser();
    void dropMenus();

    std::vector<MenuItem> menuCache;
    QString browserScript;
    QString browserUrl;
    QTimer *browserTimer = nullptr;
    // A browser poll whose script has not answered yet; the next one waits for it.
    bool browserPollRunning = false;
};
