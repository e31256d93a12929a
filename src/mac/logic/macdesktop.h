#pragma once

#include <QString>
#include <QVariant>

#include <optional>

// The rules of the Mac's desktop functions and accessibility values that are plain
// computation.
namespace MacDesktop {

// What a notification shows: the subtitle only when there is one.
struct Notification
{
    QString title;
    std::optional<QString> subtitle;
    QString informativeText;
};
Notification notification(const QString &title, const QString &subtitle, const QString &text);

// A screen is high-resolution above a backing scale of 1.5; one that does not say is not.
bool isHiDPI(std::optional<double> backingScaleFactor);

// The system's thin font (".SF NS Display" Thin) at that size from its file, looked for once
// per process: a file that appears later is not taken. Invalid without it.
QVariant lightFont(
    int size, const QString &file = QStringLiteral("/System/Library/Fonts/SFNSDisplay.ttf"));

// How many elements a list of windows or children is read with at most.
constexpr long listLimit = 100;

// A text range as accessibility values give it: a negative location or length is no range.
struct Range
{
    long location = 0;
    long length = 0;
};
Range rangeOrEmpty(long location, long length);

} // namespace MacDesktop
