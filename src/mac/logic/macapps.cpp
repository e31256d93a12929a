#include "macapps.h"

namespace MacApps {

QString displayName(const QString &name)
{
    const QString suffix = QStringLiteral(".app");
    return name.endsWith(suffix) ? name.chopped(suffix.size()) : name;
}

QStringList searchScopes(const QString &home)
{
    return { QStringLiteral("/Applications"), QStringLiteral("/System/Applications"),
        home + QStringLiteral("/Applications") };
}

const QVector<int> &iconSizes()
{
    static const QVector<int> sizes { 32, 48, 128, 256 };
    return sizes;
}

QVector<int> iconRepresentations(const QVector<double> &widths)
{
    QVector<int> wanted = iconSizes();
    QVector<int> used;
    for (int i = 0; i < widths.size() && !wanted.isEmpty(); ++i) {
        const double width = widths.at(i);
        for (int k = 0; k < wanted.size(); ++k) {
            if (double(wanted.at(k)) == width) {
                used.append(i);
                wanted.remove(k);
                break;
            }
        }
    }
    return used;
}

QString loginItemIdentifier() { return QStringLiteral("org.brannow.quessa.VelmHelper"); }

QString sandboxScriptFolder(const QString &home)
{
    return home + QStringLiteral("/Library/Application Scripts/org.brannow.quessa.brellix");
}

QStringList sandboxScripts()
{
    return { QStringLiteral("delete-refresh.applescript"), QStringLiteral("delete.applescript"),
        QStringLiteral("refresh.applescript") };
}

} // namespace MacApps
