#include "mac.h"

#include "macdesktop.h"

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>

namespace mac {

NSString *q2ns(const QString &text)
{
    return [NSString stringWithCString:text.toLocal8Bit().constData()
                              encoding:NSUTF8StringEncoding];
}

void showInFinder(const QString &path)
{
    [[NSWorkspace sharedWorkspace] selectFile:q2ns(path) inFileViewerRootedAtPath:@""];
}

bool canNotify() { return NSClassFromString(@"NSUserNotification") != nil; }

void notify(const QString &title, const QString &subtitle, const QString &text)
{
    const MacDesktop::Notification shown = MacDesktop::notification(title, subtitle, text);
    NSUserNotification *notification = [[NSUserNotification alloc] init];
    [notification setTitle:q2ns(shown.title)];
    if (shown.subtitle)
        [notification setSubtitle:q2ns(*shown.subtitle)];
    [notification setInformativeText:q2ns(shown.informativeText)];
    [[NSUserNotificationCenter defaultUserNotificationCenter] deliverNotification:notification];
}

bool isHiDPI()
{
    NSScreen *screen = [NSScreen mainScreen];
    if (![screen respondsToSelector:@selector(backingScaleFactor)])
        return MacDesktop::isHiDPI(std::nullopt);
    return MacDesktop::isHiDPI(double([screen backingScaleFactor]));
}

QVariant lightFont(int size) { return MacDesktop::lightFont(size); }

QString runScript(const QString &script)
{
    NSAppleScript *compiled = [[NSAppleScript alloc] initWithSource:q2ns(script)];
    NSDictionary *error = nil;
    NSAppleEventDescriptor *result = [compiled executeAndReturnError:&error];
    if (!result) {
        NSLog(@"%s: %@", "QString mac::runScript(const QString &)", error);
        return QString();
    }
    NSString *text = [result stringValue];
    return text ? QString::fromNSString(text) : QString();
}

} // namespace mac
