#pragma once

#include <QString>

// What velmctl keeps between runs: its device id, the token the computer gave it, and where
// that computer was. $XDG_CONFIG_HOME/velmctl/velmctl.conf, readable by the user alone;
// VELM_DEVICE_ID and VELM_TOKEN take precedence over what is stored.
class CtlConfig
{
public:
    // The stored values, then the environment's.
    static CtlConfig load();
    static QString path();

    // Writes id, token, host and port (mode 0600); false with a message when it cannot.
    bool save(QString *error) const;
    // Removes the file; false with a message when it is there and cannot be removed.
    static bool forget(QString *error);

    // A new device id for this user and computer.
    static QString newDeviceId();

    QString deviceId;
    QString token;
    QString host;
    quint16 port = 0;
    // The stored port as written, when it is no port (edited by hand): said, not wrapped.
    QString badPort;
};
