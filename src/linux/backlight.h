#pragma once

#include <QString>

// A display's backlight as the kernel offers it (class/backlight in sysfs). The device is
// chosen once: firmware interfaces first, then platform ones, then raw hardware registers,
// which is the order in which they tend to be right about the whole range.
class Backlight
{
public:
    // `sysfsRoot` is where sysfs is mounted; defaultRoot() unless a test points elsewhere.
    explicit Backlight(const QString &sysfsRoot = defaultRoot());

    // /sys, or VELM_SYSFS_ROOT when set.
    static QString defaultRoot();

    bool isAvailable() const { return !device.isEmpty(); }
    // The device's name ("intel_backlight"); empty when there is none.
    QString name() const { return deviceName; }
    int maximum() const { return maxLevel; }
    // The actual level as a whole percentage of the maximum, truncated; -1 when unreadable.
    int percent() const;
    // The raw level for a percentage, rounded up so that it reads back as the same percentage,
    // and kept within what the device takes.
    uint levelFor(int percent) const;
    // Writes the level to the device itself, which only works where the user may.
    bool write(uint level) const;

private:
    QString device;
    QString deviceName;
    int maxLevel = 0;
};
