#include "qzeroconf.h"

#include <QSharedPointer>
#include <QSocketNotifier>
#include <QtEndian>

#include <dns_sd.h>

class QZeroConfPrivate
{
public:
    explicit QZeroConfPrivate(QZeroConf *q)
        : q(q)
    { }

    void cleanUp()
    {
        // The notifier may be the one whose signal is running right now: disable it and let the
        // event loop delete it.
        if (publishNotifier)
            publishNotifier->setEnabled(false);
        publishNotifier.reset();
        if (publishRef) {
            DNSServiceRefDeallocate(publishRef);
            publishRef = nullptr;
        }
    }

    static void DNSSD_API registerCallback(DNSServiceRef, DNSServiceFlags,
        DNSServiceErrorType error, const char *, const char *, const char *, void *context)
    {
        auto *self = static_cast<QZeroConfPrivate *>(context);
        if (error == kDNSServiceErr_NoError) {
            emit self->q->servicePublished();
        } else {
            self->cleanUp();
            emit self->q->error(errorFor(error));
        }
    }

    // Where the system does not rename on a conflict itself (Avahi refuses a name already taken
    // on this host), the caller gets the chance to choose another name.
    static QZeroConf::error_t errorFor(DNSServiceErrorType error)
    {
        return error == kDNSServiceErr_NameConflict ? QZeroConf::serviceNameCollision
                                                    : QZeroConf::serviceRegistrationFailed;
    }

    void onSocketReadyRead()
    {
        if (!publishRef)
            return;
        if (DNSServiceProcessResult(publishRef) != kDNSServiceErr_NoError) {
            cleanUp();
            emit q->error(QZeroConf::serviceRegistrationFailed);
        }
    }

    QZeroConf *q;
    DNSServiceRef publishRef = nullptr;
    QSharedPointer<QSocketNotifier> publishNotifier;
};

QZeroConf::QZeroConf(QObject *parent)
    : QObject(parent)
    , d(new QZeroConfPrivate(this))
{
    qRegisterMetaType<QZeroConf::error_t>();
    // Avahi's compatibility layer otherwise prints a warning at every registration.
    if (!qEnvironmentVariableIsSet("AVAHI_COMPAT_NOWARN"))
        qputenv("AVAHI_COMPAT_NOWARN", "1");
}

QZeroConf::~QZeroConf() { d->cleanUp(); }

void QZeroConf::startServicePublish(
    const char *name, const char *type, const char *domain, quint16 port)
{
    if (d->publishRef) {
        emit error(serviceRegistrationFailed);
        return;
    }
    const DNSServiceErrorType result = DNSServiceRegister(&d->publishRef, 0,
        kDNSServiceInterfaceIndexAny, name, type, domain, nullptr, qToBigEndian(port),
        uint16_t(m_txt.size()), m_txt.isEmpty() ? nullptr : m_txt.constData(),
        &QZeroConfPrivate::registerCallback, d.data());
    if (result != kDNSServiceErr_NoError) {
        d->publishRef = nullptr;
        d->cleanUp();
        emit error(QZeroConfPrivate::errorFor(result));
        return;
    }
    const int fd = DNSServiceRefSockFD(d->publishRef);
    if (fd >= 0) {
        d->publishNotifier.reset(
            new QSocketNotifier(fd, QSocketNotifier::Read), &QObject::deleteLater);
        QObject::connect(d->publishNotifier.data(), &QSocketNotifier::activated, this,
            [this] { d->onSocketReadyRead(); });
    }
}

void QZeroConf::stopServicePublish() { d->cleanUp(); }

bool QZeroConf::publishExists() const { return d->publishRef != nullptr; }

QString QZeroConf::unavailableReason() { return QStringLiteral("no DNS-SD daemon answers"); }
