#include "qzeroconf.h"

#include <QTimer>

// A build without service advertisement: every publication fails, so that the server says
// once that clients must be given its address.
class QZeroConfPrivate
{
};

QZeroConf::QZeroConf(QObject *parent)
    : QObject(parent)
{
    qRegisterMetaType<QZeroConf::error_t>();
}

QZeroConf::~QZeroConf() = default;

void QZeroConf::startServicePublish(const char *, const char *, const char *, quint16)
{
    // As a daemon would answer: later, not from within the call.
    QTimer::singleShot(0, this, [this] { emit error(serviceRegistrationFailed); });
}

void QZeroConf::stopServicePublish() { }

bool QZeroConf::publishExists() const { return false; }

QString QZeroConf::unavailableReason()
{
    return QStringLiteral("this build has no service advertisement");
}
