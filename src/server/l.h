#pragma once

#include <QString>

// The protocol's vocabulary. Several keys share a string on purpose: each message type uses only
// one of the meanings.
namespace L {
extern const QString method;
extern const QString auth;
extern const QString waitingForAuth;
extern const QString sessionToken;
extern const QString token;
extern const QString hash;
extern const QString installedApps;
extern const QString runningApps;
extern const QString currentApp;
extern const QString appIcon;
extern const QString appCommands;
extern const QString commandIcon;
extern const QString siteCommands;
extern const QString siteIcon;
extern const QString focusedElement;
extern const QString focusValue;
extern const QString properties;
extern const QString index;
extern const QString length;
extern const QString performFocus;
extern const QString appMenu;
extern const QString performMenu;
extern const QString activateApp;
extern const QString closeApp;
extern const QString quitApp;
extern const QString toggleMinimizeApp;
extern const QString toggleMaximizeApp;
extern const QString toggleFullscreenApp;
extern const QString appScroll;
extern const QString x;
extern const QString y;
extern const QString keySequence;
extern const QString apps;
extern const QString id;
extern const QString name;
extern const QString running;
extern const QString role;
extern const QString value;
extern const QString version;
extern const QString size;
extern const QString status;
extern const QString width;
extern const QString height;
extern const QString directoryListing;
extern const QString fileOpen;
extern const QString fileIcon;
extern const QString filePreview;
extern const QString fileApps;
extern const QString files;
extern const QString path;
extern const QString type;
extern const QString keys;
extern const QString screenLock;
extern const QString logout;
extern const QString sleep;
extern const QString restart;
extern const QString shutdown;
extern const QString brightness;
extern const QString volume;
extern const QString volumeMute;
extern const QString playPause;
extern const QString previousTrack;
extern const QString nextTrack;
extern const QString unsupported;
} // namespace L
