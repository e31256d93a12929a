#include "macdesktop.h"

#include <QFile>
#include <QFont>
#include <QFontDatabase>

namespace MacDesktop {

Notification notification(const QString &title, const QString &subtitle, const QString &text)
{
    Notification shown { title, std::nullopt, text };
    if (!subtitle.isEmpty())
        shown.subtitle = subtitle;
    return shown;
}

bool isHiDPI(std::optional<double> backingScaleFactor)
{
    return backingScaleFactor && *backingScaleFactor > 1.5;
}

QVariant lightFont(int size, const QString &file)
{
    static QFontDatabase *database = [&file]() -> QFontDatabase * {
        if (!QFile::exists(file))
            return nullptr;
        auto *fonts = new QFontDatabase;
        QFontDatabase::addApplicationFont(file);
        return fonts;
    }();
    if (!database)
        return QVariant();
    return database->font(QStringLiteral(".SF NS Display"), QStringLiteral("Thin"), size);
}

Range rangeOrEmpty(long location, long length)
{
    if (location < 0 || length < 0)
        return {};
    return { location, length };
}

} // namespace MacDesktop
