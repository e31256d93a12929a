#pragma once

#include <QFont>

// The few font variants the dialogs use, derived once from the application's default font.
class FontUtils
{
public:
    static const QFont &small();
    static const QFont &smallBold();
    static const QFont &medium();
    static const QFont &mediumBold();
    static const QFont &big();
    static const QFont &bigBold();
    // The desktop's thin font at that size, else the default font made light.
    static QFont light(int pointSize);
};
