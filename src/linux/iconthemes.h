#pragma once

#include <QIcon>
#include <QString>
#include <QStringList>

// Icon themes found as the freedesktop icon theme rules say, for when Qt has no platform theme
// to ask (the offscreen platform on a headless computer, a session whose Qt has no theme
// plugin): then Qt knows neither a theme nor where themes live, and every themed icon is empty.
namespace IconThemes {

// Where themes live, in look-up order: $XDG_DATA_HOME/icons, ~/.icons, then icons/ in each of
// $XDG_DATA_DIRS. Only folders that exist.
QStringList searchPaths();
// Where icons outside any theme live: pixmaps/ in each of $XDG_DATA_DIRS, /usr/share/pixmaps.
QStringList pixmapPaths();
// The icon theme the desktop is set to (KDE's, GNOME's, GTK's settings), when one of the search
// paths has it; empty when none is known.
QString configuredTheme();
// Tells Qt the theme, its fall-back and the search paths when its platform theme named none.
void configure();
// The theme's generic application icon, for applications that have none of their own; a drawn
// one when no installed theme has it. Never null.
QIcon genericApplication();

} // namespace IconThemes
