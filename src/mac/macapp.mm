#include "macapp.h"

#include "axerror.h"
#include "macfocus.h"
#include "mackeys.h"
#include "maclogging.h"
#include "macmenu.h"
#include "macplatform.h"

#import "axelementhelper.h"
#import <AppKit/AppKit.h>
#import <ApplicationServices/ApplicationServices.h>
#import <Carbon/Carbon.h>

namespace {

// A Core Foundation object this code holds a reference to.
template<typename T>
class Owned
{
public:
    explicit Owned(T ref = nullptr)
        : ref(ref)
    { }
    ~Owned()
    {
        if (ref)
            CFRelease(ref);
    }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    T get() const { return ref; }
    // Hands the reference on to the caller.
    T take()
    {
        T taken = ref;
        ref = nullptr;
        return taken;
    }
    explicit operator bool() const { return ref != nullptr; }

private:
    T ref;
};

AXError copyAttribute(AXUIElementRef element, CFStringRef attribute, CFTypeRef *value)
{
    *value = nullptr;
    return AXUIElementCopyAttributeValue(element, attribute, value);
}

// The key-name table of the layout in use when the first shortcut came; built once.
const MacKeys::Table &layoutKeyTable()
{
    static const MacKeys::Table table = [] {
        TISInputSourceRef source = TISCopyCurrentKeyboardInputSource();
        CFDataRef layoutData = source
            ? (CFDataRef)TISGetInputSourceProperty(source, kTISPropertyUnicodeKeyLayoutData)
            : nullptr;
        if (!layoutData) {
            if (source)
                CFRelease(source);
            source = TISCopyCurrentASCIICapableKeyboardLayoutInputSource();
            layoutData = source
                ? (CFDataRef)TISGetInputSourceProperty(source, kTISPropertyUnicodeKeyLayoutData)
                : nullptr;
        }
        MacKeys::Table::Translate translate;
        if (layoutData) {
            const auto *layout
                = reinterpret_cast<const UCKeyboardLayout *>(CFDataGetBytePtr(layoutData));
            translate = [layout](quint16 code) {
                UInt32 deadKeyState = 0;
                UniChar characters[4] = {};
                UniCharCount length = 0;
                UCKeyTranslate(layout, code, kUCKeyActionDisplay, 0, LMGetKbdType(), kNilOptions,
                    &deadKeyState, 4, &length, characters);
                if (length == 0)
                    return QByteArray();
                NSString *text = [NSString stringWithCharacters:characters length:length];
                return QByteArray([text UTF8String]);
            };
        }
        MacKeys::Table built = MacKeys::Table::build(translate);
        if (source)
            CFRelease(source);
        return built;
    }();
    return table;
}

// The menus as the accessibility interface gives them. The arrays that hold the elements are
// kept until the menu tree is dropped, so the items' elements stay valid as long as it.
} // namespace

class MacMenuReader : public MacMenu::Reader
{
public:
    explicit MacMenuReader(std::vector<CFTypeRef> &held)
        : held(held)
    { }

    MacMenu::Read<std::vector<void *>> children(void *element) const override
    {
        MacMenu::Read<std::vector<void *>> read;
        CFTypeRef value = nullptr;
        read.error
            = copyAttribute(static_cast<AXUIElementRef>(element), kAXChildrenAttribute, &value);
        read.ok = read.error == kAXErrorSuccess && value;
        if (!read.ok) {
            if (value)
                CFRelease(value);
            if (read.error == kAXErrorSuccess)
                read.error = kAXErrorNoValue;
            return read;
        }
        held.push_back(value);
        if (CFGetTypeID(value) != CFArrayGetTypeID())
            return read;
        const auto array = static_cast<CFArrayRef>(value);
        for (CFIndex i = 0; i < CFArrayGetCount(array); ++i)
            read.value.push_back(const_cast<void *>(CFArrayGetValueAtIndex(array, i)));
        return read;
    }

    MacMenu::Read<MacMenu::Title> title(void *element) const override
    {
        MacMenu::Read<MacMenu::Title> read;
        CFTypeRef value = nullptr;
        read.error = copyAttribute(static_cast<AXUIElementRef>(element), kAXTitleAttribute, &value);
        read.ok = read.error == kAXErrorSuccess;
        Owned<CFTypeRef> owned(value);
        if (!read.ok)
            return read;
        if (!value || CFGetTypeID(value) != CFStringGetTypeID())
            read.value.isNull = true;
        else
            read.value.text = QString::fromCFString(static_cast<CFStringRef>(value));
        return read;
    }

    MacMenu::Read<bool> enabled(void *element) const override
    {
        MacMenu::Read<bool> read;
        CFTypeRef value = nullptr;
        read.error
            = copyAttribute(static_cast<AXUIElementRef>(element), kAXEnabledAttribute, &value);
        Owned<CFTypeRef> owned(value);
        read.ok
            = read.error == kAXErrorSuccess && value && CFGetTypeID(value) == CFBooleanGetTypeID();
        if (read.ok)
            read.value = CFBooleanGetValue(static_cast<CFBooleanRef>(value));
        return read;
    }

private:
    std::vector<CFTypeRef> &held;
};

namespace {

void focusChanged(AXObserverRef, AXUIElementRef element, CFStringRef, void *context)
{
    static_cast<MacApp *>(context)->reportFocus(element);
}

} // namespace

MacApp::MacApp(const QString &id, QObject *parent)
    : MacAppBase(id, parent)
    , reader(new MacMenuReader(menuElements))
{ }

MacApp::~MacApp()
{
    menusDropped();
    delete reader;
    if (observer) {
        CFRunLoopRemoveSource(
            CFRunLoopGetCurrent(), AXObserverGetRunLoopSource(observer), kCFRunLoopCommonModes);
        CFRelease(observer);
    }
    if (element)
        CFRelease(element);
}

NSRunningApplication *MacApp::runningApplication() const
{
    NSArray<NSRunningApplication *> *found =
        [NSRunningApplication runningApplicationsWithBundleIdentifier:id.toNSString()];
    if (found && [found count] > 0)
        return [found firstObject];
    qCWarning(lcMac) << "No NSRunningApplication for" << id;
    return nil;
}

AXUIElementRef MacApp::processElement() const
{
    if (!MacPlatform::accessibilityEnabledWithPrompt())
        return nullptr;
    NSRunningApplication *running = runningApplication();
    if (!running)
        return nullptr;
    return AXUIElementCreateApplication([running processIdentifier]);
}

AXUIElementRef MacApp::frontWindow() const
{
    Owned<AXUIElementRef> application(processElement());
    if (!application)
        return nullptr;
    CFTypeRef window = nullptr;
    if (copyAttribute(application.get(), kAXFocusedWindowAttribute, &window) != kAXErrorSuccess
        || !window) {
        qCWarning(lcMac) << "Cannot get window";
        return nullptr;
    }
    return static_cast<AXUIElementRef>(window);
}

AXUIElementRef MacApp::windowButton(Button button) const
{
    Owned<AXUIElementRef> window(frontWindow());
    if (!window)
        return nullptr;
    CFStringRef attribute = kAXCloseButtonAttribute;
    switch (button) {
    case Button::Close:
        attribute = kAXCloseButtonAttribute;
        break;
    case Button::Minimize:
        attribute = kAXMinimizeButtonAttribute;
        break;
    case Button::Zoom:
        attribute = kAXZoomButtonAttribute;
        break;
    case Button::FullScreen:
        attribute = CFSTR("AXFullScreenButton");
        break;
    }
    CFTypeRef value = nullptr;
    if (copyAttribute(window.get(), attribute, &value) != kAXErrorSuccess)
        return nullptr;
    return static_cast<AXUIElementRef>(value);
}

MacAppBase::Process MacApp::process() const
{
    NSRunningApplication *running = runningApplication();
    if (!running)
        return Process::None;
    return [running isActive] ? Process::Active : Process::Inactive;
}

void MacApp::launch() { [[NSWorkspace sharedWorkspace] launchApplication:path.toNSString()]; }

void MacApp::activateProcess()
{
    [runningApplication() activateWithOptions:NSApplicationActivateIgnoringOtherApps];
}

void MacApp::terminateProcess() { [runningApplication() terminate]; }

void MacApp::hideProcess() { [runningApplication() hide]; }

bool MacApp::pressWindowButton(Button button)
{
    Owned<AXUIElementRef> pressed(windowButton(button));
    if (!pressed)
        return false;
    AXUIElementPerformAction(pressed.get(), kAXPressAction);
    return true;
}

bool MacApp::hasWindowButton(Button button)
{
    Owned<AXUIElementRef> found(windowButton(button));
    return bool(found);
}

bool MacApp::isFullScreen()
{
    Owned<AXUIElementRef> window(frontWindow());
    if (!window)
        return false;
    CFTypeRef value = nullptr;
    const AXError error = copyAttribute(window.get(), CFSTR("AXFullScreen"), &value);
    Owned<CFTypeRef> held(value);
    return error == kAXErrorSuccess && value && CFGetTypeID(value) == CFBooleanGetTypeID()
        && CFBooleanGetValue(static_cast<CFBooleanRef>(value));
}

void MacApp::setFullScreen(bool fullScreen)
{
    Owned<AXUIElementRef> window(frontWindow());
    if (!window)
        return;
    AXUIElementSetAttributeValue(
        window.get(), CFSTR("AXFullScreen"), fullScreen ? kCFBooleanTrue : kCFBooleanFalse);
}

std::optional<std::vector<std::optional<bool>>> MacApp::windowsMinimized()
{
    if (!element)
        return std::nullopt;
    CFTypeRef value = nullptr;
    if (copyAttribute(element, kAXWindowsAttribute, &value) != kAXErrorSuccess || !value)
        return std::nullopt;
    Owned<CFTypeRef> windows(value);
    if (CFGetTypeID(value) != CFArrayGetTypeID())
        return std::nullopt;
    const auto list = static_cast<CFArrayRef>(value);
    std::vector<std::optional<bool>> minimized;
    for (CFIndex i = 0; i < CFArrayGetCount(list); ++i) {
        const auto window = static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(list, i));
        CFTypeRef state = nullptr;
        const AXError error = copyAttribute(window, kAXMinimizedAttribute, &state);
        Owned<CFTypeRef> held(state);
        if (error != kAXErrorSuccess || !state || CFGetTypeID(state) != CFBooleanGetTypeID())
            minimized.push_back(std::nullopt);
        else
            minimized.push_back(bool(CFBooleanGetValue(static_cast<CFBooleanRef>(state))));
    }
    return minimized;
}

void MacApp::raiseWindow(int index)
{
    CFTypeRef value = nullptr;
    if (!element || copyAttribute(element, kAXWindowsAttribute, &value) != kAXErrorSuccess
        || !value)
        return;
    Owned<CFTypeRef> windows(value);
    if (CFGetTypeID(value) != CFArrayGetTypeID()
        || index >= CFArrayGetCount(static_cast<CFArrayRef>(value)))
        return;
    AXUIElementPerformAction(
        static_cast<AXUIElementRef>(CFArrayGetValueAtIndex(static_cast<CFArrayRef>(value), index)),
        kAXRaiseAction);
}

void MacApp::postScroll(int wheel)
{
    Owned<CGEventRef> event(
        CGEventCreateScrollWheelEvent(nullptr, kCGScrollEventUnitPixel, 3, wheel, 0, 0));
    CGEventPost(kCGHIDEventTap, event.get());
}

void MacApp::postKey(quint16 code, quint64 flags, bool down)
{
    Owned<CGEventRef> event(CGEventCreateKeyboardEvent(nullptr, code, down));
    // Exactly these modifiers: none of those the user may be holding.
    CGEventSetFlags(event.get(), CGEventFlags(flags));
    CGEventPost(kCGSessionEventTap, event.get());
}

const MacKeys::Table &MacApp::keyTable() { return layoutKeyTable(); }

bool MacApp::accessibilityTrusted() { return MacPlatform::accessibilityEnabledWithPrompt(); }

const MacMenu::Reader &MacApp::menuReader() { return *reader; }

std::vector<void *> MacApp::menuBarEntries()
{
    NSRunningApplication *running = runningApplication();
    if (!running)
        return {};
    Owned<AXUIElementRef> application(AXUIElementCreateApplication([running processIdentifier]));
    CFTypeRef menuBar = nullptr;
    if (copyAttribute(application.get(), kAXMenuBarAttribute, &menuBar) != kAXErrorSuccess
        || !menuBar)
        return {};
    menuElements.push_back(menuBar);
    const MacMenu::Read<std::vector<void *>> children
        = reader->children(const_cast<void *>(menuBar));
    return children.ok ? children.value : std::vector<void *>();
}

bool MacApp::pressElement(void *item)
{
    return AXUIElementPerformAction(static_cast<AXUIElementRef>(item), kAXPressAction)
        == kAXErrorSuccess;
}

void MacApp::menusDropped()
{
    for (CFTypeRef held : menuElements)
        CFRelease(held);
    menuElements.clear();
}

AXUIElementRef MacApp::getFocusedElement()
{
    Owned<AXUIElementRef> application(processElement());
    if (!application)
        return nullptr;
    CFTypeRef focused = nullptr;
    const AXError error = copyAttribute(application.get(), kAXFocusedUIElementAttribute, &focused);
    if (error != kAXErrorSuccess) {
        qCWarning(lcMac) << "Could not get focused element" << AXErrorTag { error };
        return nullptr;
    }
    return static_cast<AXUIElementRef>(focused);
}

void MacApp::reportFocus(AXUIElementRef focused)
{
    AXElementHelper *helper = [[AXElementHelper alloc] initWithAXUIElementRef:focused];
    const QString role = QString::fromNSString([helper role] ?: @"");
    std::optional<MacFocus::Range> selection;
    if (MacFocus::classify(role) == App::Text) {
        CFTypeRef value = nullptr;
        if (copyAttribute(focused, kAXSelectedTextRangeAttribute, &value) == kAXErrorSuccess
            && value) {
            Owned<CFTypeRef> held(value);
            CFRange range = CFRangeMake(0, 0);
            if (CFGetTypeID(value) == AXValueGetTypeID()
                && AXValueGetValue(static_cast<AXValueRef>(value), kAXValueTypeCFRange, &range))
                selection = MacFocus::Range { long(range.location), long(range.length) };
        }
    }
    const MacFocus::Report report
        = MacFocus::report(role, QString::fromNSString([helper title] ?: @""),
            QString::fromNSString([helper description] ?: @""),
            QString::fromNSString([helper value] ?: @""), selection);
    setFocusRoleAsync(report.role, report.title, report.value, report.extras.toVariantMap());
}

void MacApp::setFocusValue(const QString &value)
{
    Owned<AXUIElementRef> focused(getFocusedElement());
    if (!focused)
        return;
    AXUIElementSetAttributeValue(
        focused.get(), kAXValueAttribute, (__bridge CFStringRef)value.toNSString());
}

MacAppBase::FocusAction MacApp::performFocusAction()
{
    Owned<AXUIElementRef> focused(getFocusedElement());
    if (!focused)
        return FocusAction::NoElement;
    CFArrayRef names = nullptr;
    if (AXUIElementCopyActionNames(focused.get(), &names) != kAXErrorSuccess)
        names = nullptr;
    Owned<CFArrayRef> actions(names);
    NSLog(@"actions %@ %@", (__bridge NSArray *)names, (__bridge NSArray *)names);
    if (!names || CFArrayGetCount(names) == 0)
        return FocusAction::NoAction;
    AXUIElementPerformAction(
        focused.get(), static_cast<CFStringRef>(CFArrayGetValueAtIndex(names, 0)));
    return FocusAction::Performed;
}

bool MacApp::followFocus(bool current)
{
    if (!MacPlatform::accessibilityEnabled())
        return false;
    NSRunningApplication *running = [[NSRunningApplication
        runningApplicationsWithBundleIdentifier:id.toNSString()] firstObject];
    if (!running)
        return false;
    if (element)
        CFRelease(element);
    element = AXUIElementCreateApplication([running processIdentifier]);

    if (current) {
        CFTypeRef focused = nullptr;
        if (copyAttribute(element, kAXFocusedUIElementAttribute, &focused) != kAXErrorSuccess)
            NSLog(@"Could not get focused element");
        else if (focused)
            reportFocus(static_cast<AXUIElementRef>(focused));
        Owned<CFTypeRef> held(focused);
        if (!observer) {
            if (AXObserverCreate([running processIdentifier], focusChanged, &observer)
                != kAXErrorSuccess) {
                observer = nullptr;
                return false;
            }
            CFRunLoopAddSource(
                CFRunLoopGetCurrent(), AXObserverGetRunLoopSource(observer), kCFRunLoopCommonModes);
        }
        AXObserverAddNotification(observer, element, kAXFocusedUIElementChangedNotification, this);
        return true;
    }

    if (observer) {
        AXObserverRemoveNotification(observer, element, kAXFocusedUIElementChangedNotification);
        CFRunLoopRemoveSource(
            CFRunLoopGetCurrent(), AXObserverGetRunLoopSource(observer), kCFRunLoopCommonModes);
        CFRelease(observer);
        observer = nullptr;
        CFRelease(element);
        element = nullptr;
    }
    return true;
}
