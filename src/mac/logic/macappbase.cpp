#include "macappbase.h"

#include "applescriptutils.h"
#include "macfocus.h"
#include "maclogging.h"

#include <QTimer>

namespace {
constexpr int browserPollInterval = 5000;
} // namespace

MacAppBase::MacAppBase(const QString &id, QObject *parent)
    : App(id, parent)
{ }

MacAppBase::~MacAppBase() = default;

void MacAppBase::activate()
{
    if (process() != Process::None)
        activateProcess();
    else
        launch();
}

void MacAppBase::quit()
{
    if (process() != Process::None)
        terminateProcess();
}

void MacAppBase::hide()
{
    if (process() != Process::None)
        hideProcess();
}

void MacAppBase::ensureActive()
{
    if (process() == Process::Inactive)
        activateProcess();
}

void MacAppBase::close() { pressWindowButton(Button::Close); }

void MacAppBase::toggleMiniminize()
{
    if (pressWindowButton(Button::Minimize))
        return;
    // No front window: bring the first minimised one back.
    const auto windows = windowsMinimized();
    if (!windows)
        return;
    for (int i = 0; i < int(windows->size()); ++i) {
        if (windows->at(size_t(i)).value_or(false)) {
            raiseWindow(i);
            return;
        }
    }
}

bool MacAppBase::supportsFullscreen() { return hasWindowButton(Button::FullScreen); }

void MacAppBase::toggleMaximize()
{
    // A window with a full-screen button goes in and out of full screen; others are zoomed.
    if (supportsFullscreen())
        toggleFullscreen();
    else
        pressWindowButton(Button::Zoom);
}

void MacAppBase::toggleFullscreen()
{
    if (!supportsFullscreen()) {
        toggleMaximize();
        return;
    }
    setFullScreen(!isFullScreen());
}

void MacAppBase::scroll(int x, int y)
{
    Q_UNUSED(x)
    // Below 10 (not 0) scrolls up: the clients' resting position is not zero.
    postScroll(y < 10 ? -10 : 10);
}

void MacAppBase::performKeySequence(const QString &sequence)
{
    ensureActive();
    for (const QString &shortcut : MacKeys::shortcuts(sequence))
        performShortcut(shortcut);
}

void MacAppBase::performShortcut(const QString &shortcut)
{
    const std::optional<MacKeys::Press> press = MacKeys::resolve(shortcut, keyTable());
    if (!press)
        return;
    postKey(press->code, press->flags, true);
    postKey(press->code, press->flags, false);
}

const std::vector<MenuItem> &MacAppBase::getMenuItems()
{
    if (!accessibilityTrusted() || !menuCache.empty())
        return menuCache;
    if (process() == Process::None)
        return menuCache;
    dropMenus();
    menuCache = MacMenu::build(menuReader(), menuBarEntries(), &MacMenu::randomId);
    return menuCache;
}

void MacAppBase::performMenu(const QString &identifier)
{
    const MenuItem *item = MacMenu::find(getMenuItems(), identifier);
    if (!item) {
        qCWarning(lcMac) << "Cannot get menu" << identifier;
        return;
    }
    if (!pressElement(item->element))
        qCWarning(lcMac) << "Cannor press menu" << identifier;
}

void MacAppBase::dropMenus()
{
    menuCache.clear();
    menusDropped();
}

void MacAppBase::performFocusedElement()
{
    if (performFocusAction() != FocusAction::Performed)
        performKeySequence(QStringLiteral("Return"));
}

void MacAppBase::setCurrent(bool current)
{
    if (this->current == current)
        return;
    App::setCurrent(current);
    if (!followFocus(current))
        return;
    if (current) {
        if (browser)
            startPollingBrowser();
        return;
    }
    // Menu identifiers are only good while the application stays in front.
    dropMenus();
    if (browser)
        stopPollingBrowser();
}

void MacAppBase::setBrowser(bool browser)
{
    App::setBrowser(browser);
    if (!browser)
        return;
    if (!commands.isEmpty())
        browserScript = MacFocus::browserScript(name, commands);
    if (current)
        startPollingBrowser();
}

void MacAppBase::startPollingBrowser()
{
    if (!browserTimer) {
        browserTimer = new QTimer(this);
        browserTimer->setInterval(browserPollInterval);
        browserTimer->setTimerType(Qt::VeryCoarseTimer);
        connect(browserTimer, &QTimer::timeout, this, &MacAppBase::pollBrowser);
    }
    browserTimer->start();
    pollBrowser();
}

void MacAppBase::stopPollingBrowser()
{
    if (!browserTimer)
        return;
    browserTimer->stop();
    browserTimer->deleteLater();
    browserTimer = nullptr;
    browserUrl.clear();
}

void MacAppBase::pollBrowser()
{
    // The script runs beside the event loop; a browser slow to answer delays the next poll
    // instead of the program.
    if (browserPollRunning)
        return;
    browserPollRunning = true;
    AppleScriptUtils::startScript(browserScript, this, [this](const QByteArray &output) {
        browserPollRunning = false;
        // Stopped meanwhile: the answer is stale.
        if (!browserTimer)
            return;
        const QString address = MacFocus::addressFromOutput(output);
        if (address == browserUrl)
            return;
        browserUrl = address;
        emit browserAddressChanged(address);
        onBrowserUrlChanged(address);
    });
}
