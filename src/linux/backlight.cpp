#include "backlight.h"

#include "linuxlogging.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <climits>

namespace {

// Digits only: a value with anything else (or nothing) reads as -1.
long long readNumber(const QString &file)
{
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly))
        return -1;
    bool ok = false;
    const long long value = in.read(64).trimmed().toLongLong(&ok);
    return ok && value >= 0 ? value : -1;
}

int typeRank(const QString &directory)
{
    QFile in(directory + QStringLiteral("/type"));
    if (!in.open(QIODevice::ReadOnly))
        return 3;
    const QByteArray type = in.read(64).trimmed();
    if (type == "firmware")
        return 0;
    if (type == "platform")
        return 1;
    if (type == "raw")
        return 2;
    return 3;
}

} // namespace

Backlight::Backlight(const QString &sysfsRoot)
{
    const QDir classDir(sysfsRoot + QStringLiteral("/class/backlight"));
    QStringList names = classDir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    std::stable_sort(names.begin(), names.end(), [&](const QString &a, const QString &b) {
        return typeRank(classDir.filePath(a)) < typeRank(classDir.filePath(b));
    });
    for (const QString &name : qAsConst(names)) {
        const QString directory = classDir.filePath(name);
        const long long max = readNumber(directory + QStringLiteral("/max_brightness"));
        if (max <= 0 || max > INT_MAX)
            continue;
        device = directory;
        deviceName = name;
        maxLevel = int(max);
        qCInfo(lcLinux) << "Backlight" << name << "with" << maxLevel << "levels";
        return;
    }
}

QString Backlight::defaultRoot()
{
    const QString root = qEnvironmentVariable("VELM_SYSFS_ROOT");
    return root.isEmpty() ? QStringLiteral("/sys") : root;
}

int Backlight::percent() const
{
    if (!isAvailable())
        return -1;
    // What the hardware shows; some drivers have no separate reading.
    long long level = readNumber(device + QStringLiteral("/actual_brightness"));
    if (level < 0)
        level = readNumber(device + QStringLiteral("/brightness"));
    if (level < 0)
        return -1;
    return int(std::min(level, (long long)maxLevel) * 100 / maxLevel);
}

uint Backlight::levelFor(int percent) const
{
    const long long clamped = std::clamp(percent, 0, 100);
    return uint((clamped * maxLevel + 99) / 100);
}

bool Backlight::write(uint level) const
{
    if (!isAvailable())
        return false;
    QFile out(device + QStringLiteral("/brightness"));
    if (!out.open(QIODevice::WriteOnly) || out.write(QByteArray::number(level)) < 0
        || !out.flush()) {
        qCWarning(lcLinux) << "Cannot set the brightness of" << deviceName << out.errorString();
        return false;
    }
    return true;
}
