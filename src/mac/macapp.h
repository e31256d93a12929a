#pragma once

#include "macappbase.h"

#include <QtGlobal>

Q_FORWARD_DECLARE_CF_TYPE(AXUIElement);
Q_FORWARD_DECLARE_MUTABLE_CF_TYPE(AXObserver);
Q_FORWARD_DECLARE_OBJC_CLASS(NSRunningApplication);
typedef const void *CFTypeRef;

class MacMenuReader;

// An application on the Mac: its process through NSRunningApplication, its windows, menus and
// focused element through the accessibility interface, and keys and scrolling as synthesised
// events.
class MacApp : public MacAppBase
{
    Q_OBJECT
public:
    explicit MacApp(const QString &id, QObject *parent = nullptr);
    ~MacApp() override;

    // The element with the keyboard focus, or null; the caller releases it.
    AXUIElementRef getFocusedElement();
    // Classifies the element and reports it as the focused one.
    void reportFocus(AXUIElementRef element);
    void initObserver() { }

public slots:
    void launch() override;
    void setFocusValue(const QString &value) override;

protected:
    Process process() const override;
    void activateProcess() override;
    void terminateProcess() override;
    void hideProcess() override;
    bool pressWindowButton(Button button) override;
    bool hasWindowButton(Button button) override;
    bool isFullScreen() override;
    void setFullScreen(bool fullScreen) override;
    std::optional<std::vector<std::optional<bool>>> windowsMinimized() override;
    void raiseWindow(int index) override;
    void postScroll(int wheel) override;
    void postKey(quint16 code, quint64 flags, bool down) override;
    const MacKeys::Table &keyTable() override;
    bool accessibilityTrusted() override;
    const MacMenu::Reader &menuReader() override;
    std::vector<void *> menuBarEntries() override;
    bool pressElement(void *element) override;
    void menusDropped() override;
    FocusAction performFocusAction() override;
    bool followFocus(bool current) override;

private:
    // The process, or nil after the warning "No NSRunningApplication for".
    NSRunningApplication *runningApplication() const;
    // A new element for the process when the permission is there and it runs, else null; the
    // caller releases it.
    AXUIElementRef processElement() const;
    // The front window, or null; the caller releases it.
    AXUIElementRef frontWindow() const;
    // A button of the front window, or null; the caller releases it.
    AXUIElementRef windowButton(Button button) const;

    AXObserverRef observer = nullptr;
    AXUIElementRef element = nullptr;
    // The arrays that hold the menu tree's elements, released with the tree.
    std::vector<CFTypeRef> menuElements;
    MacMenuReader *reader = nullptr;
};
