// GLib's headers first: they use the word "signals", which Qt defines.
#include <gio/gio.h>

#include "iconthemes.h"

#include "linuxlogging.h"

#include <QDir>
#include <QFileInfo>
#include <QPainter>
#include <QPixmap>
#include <QSettings>
#include <QStandardPaths>

namespace {

const QString hicolor = QStringLiteral("hicolor");

QStringList dataDirs()
{
    QString value = qEnvironmentVariable("XDG_DATA_DIRS");
    if (value.isEmpty())
        value = QStringLiteral("/usr/local/share:/usr/share");
    return value.split(QLatin1Char(':'), Qt::SkipEmptyParts);
}

QString dataHome()
{
    const QString value = qEnvironmentVariable("XDG_DATA_HOME");
    return value.isEmpty() ? QDir::homePath() + QStringLiteral("/.local/share") : value;
}

QString configHome()
{
    const QString value = qEnvironmentVariable("XDG_CONFIG_HOME");
    return value.isEmpty() ? QDir::homePath() + QStringLiteral("/.config") : value;
}

void appendExisting(QStringList &list, const QString &path)
{
    const QString clean = QDir::cleanPath(path);
    if (!list.contains(clean) && QFileInfo(clean).isDir())
        list.append(clean);
}

bool installed(const QString &theme)
{
    if (theme.isEmpty() || theme.contains(QLatin1Char('/')))
        return false;
    const QStringList paths = IconThemes::searchPaths();
    for (const QString &path : paths) {
        if (QFileInfo::exists(path + QLatin1Char('/') + theme + QStringLiteral("/index.theme")))
            return true;
    }
    return false;
}

QString iniValue(const QString &file, const QString &key)
{
    if (!QFileInfo::exists(file))
        return QString();
    return QSettings(file, QSettings::IniFormat).value(key).toString().trimmed();
}

// GNOME's setting, when its schema is installed (asking for a missing schema aborts).
QString gnomeTheme()
{
    GSettingsSchemaSource *source = g_settings_schema_source_get_default();
    if (!source)
        return QString();
    GSettingsSchema *schema
        = g_settings_schema_source_lookup(source, "org.gnome.desktop.interface", TRUE);
    if (!schema)
        return QString();
    QString theme;
    if (g_settings_schema_has_key(schema, "icon-theme")) {
        GSettings *settings = g_settings_new_full(schema, nullptr, nullptr);
        gchar *value = g_settings_get_string(settings, "icon-theme");
        theme = QString::fromUtf8(value);
        g_free(value);
        g_object_unref(settings);
    }
    g_settings_schema_unref(schema);
    return theme;
}

QPixmap drawnApplicationIcon(int size)
{
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal margin = size * 0.1;
    const QRectF frame(margin, margin, size - 2 * margin, size - 2 * margin);
    painter.setPen(QPen(QColor(0x50, 0x50, 0x50), qMax(1.0, size / 32.0)));
    painter.setBrush(QColor(0xf0, 0xf0, 0xf0));
    painter.drawRoundedRect(frame, size * 0.08, size * 0.08);
    // A title bar, as a window reads at any size.
    painter.setBrush(QColor(0x35, 0x84, 0xe4));
    painter.drawRect(QRectF(frame.left(), frame.top(), frame.width(), frame.height() * 0.22));
    return pixmap;
}

} // namespace

namespace IconThemes {

QStringList searchPaths()
{
    QStringList paths;
    appendExisting(paths, dataHome() + QStringLiteral("/icons"));
    appendExisting(paths, QDir::homePath() + QStringLiteral("/.icons"));
    for (const QString &dir : dataDirs())
        appendExisting(paths, dir + QStringLiteral("/icons"));
    return paths;
}

QStringList pixmapPaths()
{
    QStringList paths;
    for (const QString &dir : dataDirs())
        appendExisting(paths, dir + QStringLiteral("/pixmaps"));
    appendExisting(paths, QStringLiteral("/usr/share/pixmaps"));
    return paths;
}

QString configuredTheme()
{
    const QString desktop = qEnvironmentVariable("XDG_CURRENT_DESKTOP");
    QStringList candidates;
    const QString kde
        = iniValue(configHome() + QStringLiteral("/kdeglobals"), QStringLiteral("Icons/Theme"));
    const QString gtk = iniValue(configHome() + QStringLiteral("/gtk-3.0/settings.ini"),
        QStringLiteral("Settings/gtk-icon-theme-name"));
    // The running desktop's own setting first.
    if (desktop.contains(QLatin1String("KDE"), Qt::CaseInsensitive))
        candidates << kde << gtk;
    else
        candidates << gtk << kde;
    if (desktop.contains(QLatin1String("GNOME"), Qt::CaseInsensitive))
        candidates.prepend(gnomeTheme());
    for (const QString &theme : qAsConst(candidates)) {
        if (installed(theme))
            return theme;
    }
    return QString();
}

void configure()
{
    // A platform theme that names a theme also knows where themes live: leave it alone.
    if (!QIcon::themeName().isEmpty())
        return;
    QStringList paths = searchPaths();
    // Qt's own resources stay searchable.
    for (const QString &path : QIcon::themeSearchPaths()) {
        if (!paths.contains(path))
            paths.append(path);
    }
    QIcon::setThemeSearchPaths(paths);
    QStringList pixmaps = QIcon::fallbackSearchPaths();
    for (const QString &path : pixmapPaths()) {
        if (!pixmaps.contains(path))
            pixmaps.append(path);
    }
    QIcon::setFallbackSearchPaths(pixmaps);
    const QString theme = configuredTheme();
    QIcon::setThemeName(theme.isEmpty() ? hicolor : theme);
    QIcon::setFallbackThemeName(hicolor);
    qCDebug(lcLinux) << "Icon theme" << QIcon::themeName() << "from" << paths;
}

QIcon genericApplication()
{
    for (const QString &name : { QStringLiteral("application-x-executable"),
             QStringLiteral("application-default-icon"), QStringLiteral("applications-other") }) {
        if (QIcon::hasThemeIcon(name))
            return QIcon::fromTheme(name);
    }
    // Drawn once and shared by every application without an icon; kept for the process's life.
    static const QIcon *drawn = [] {
        auto *icon = new QIcon;
        for (int size : { 16, 32, 48, 64, 128, 256 })
            icon->addPixmap(drawnApplicationIcon(size));
        return icon;
    }();
    return *drawn;
}

} // namespace IconThemes
