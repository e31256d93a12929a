#pragma once

#include <QString>
#include <QVariant>
#include <QtGlobal>

Q_FORWARD_DECLARE_OBJC_CLASS(NSString);

// Desktop functions of the Mac: strings for Cocoa, the Finder, notifications, the screen, the
// thin system font and AppleScript run in this process.
namespace mac {
NSString *q2ns(const QString &text);
void showInFinder(const QString &path);
bool canNotify();
// An empty subtitle is left out.
void notify(const QString &title, const QString &subtitle, const QString &text);
bool isHiDPI();
// ".SF NS Display" Thin at that size, or an invalid variant without the font file.
QVariant lightFont(int size);
// The script's result as text; empty (after a log line) when it fails.
QString runScript(const QString &script);
} // namespace mac
