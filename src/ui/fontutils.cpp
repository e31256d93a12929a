#include "fontutils.h"

#include "desktop.h"

#include <QGuiApplication>

namespace {
QFont derived(qreal ratio, int weight, bool smallMinimum)
{
    QFont font = QGuiApplication::font();
    if (font.pointSizeF() > 0)
        font.setPointSize(qMax(1, int(font.pointSizeF() * ratio)));
    font.setWeight(weight);
    // A font sized in points reports pixel size -1, so this always applies: small text is
    // 11 px whatever the default font.
    if (smallMinimum && font.pixelSize() < 11)
        font.setPixelSize(11);
    return font;
}
} // namespace

const QFont &FontUtils::small()
{
    static const QFont font = derived(0.9, QFont::Normal, true);
    return font;
}

const QFont &FontUtils::smallBold()
{
    static const QFont font = derived(0.9, QFont::Bold, true);
    return font;
}

const QFont &FontUtils::medium()
{
    static const QFont font = derived(1.1, QFont::Normal, false);
    return font;
}

const QFont &FontUtils::mediumBold()
{
    static const QFont font = derived(1.1, QFont::Bold, false);
    return font;
}

const QFont &FontUtils::big()
{
    static const QFont font = derived(1.5, QFont::Normal, false);
    return font;
}

const QFont &FontUtils::bigBold()
{
    static const QFont font = derived(1.5, QFont::Bold, false);
    return font;
}

QFont FontUtils::light(int pointSize)
{
    const QVariant system = desktop::lightFont(pointSize);
    if (system.isValid())
        return system.value<QFont>();
    QFont font = QGuiApplication::font();
    font.setPointSize(pointSize);
    font.setStyleName(QStringLiteral("Light"));
    font.setWeight(QFont::Light);
    return font;
}
