#include "servicebrowser.h"

#include <QSet>
#include <QSocketNotifier>
#include <QtEndian>

#include <dns_sd.h>

#include <list>

namespace {
// A DNS-SD operation and the notifier that feeds it its answers.
struct Operation
{
    DNSServiceRef ref = nullptr;
    std::unique_ptr<QSocketNotifier> notifier;
    QString name;

    ~Operation()
    {
        notifier.reset();
        if (ref)
            DNSServiceRefDeallocate(ref);
    }
};
} // namespace

class ServiceBrowserPrivate
{
public:
    explicit ServiceBrowserPrivate(ServiceBrowser *q)
        : q(q)
    { }

    // Answers are read on the event loop as they come.
    void watch(Operation &operation)
    {
        operation.notifier = std::make_unique<QSocketNotifier>(
            DNSServiceRefSockFD(operation.ref), QSocketNotifier::Read);
        DNSServiceRef ref = operation.ref;
        QObject::connect(operation.notifier.get(), &QSocketNotifier::activated, q,
            [this, ref] { process(ref); });
    }

    void process(DNSServiceRef ref)
    {
        if (DNSServiceProcessResult(ref) == kDNSServiceErr_NoError)
            return;
        // The daemon went away: its socket would stay readable for nothing.
        if (ref == browse.ref)
            browse.notifier->setEnabled(false);
        else
            forget(ref);
    }

    // Called from within the operation's own answer: it is released on the next turn of the
    // event loop, outside the library's call.
    void forget(DNSServiceRef ref)
    {
        for (auto it = resolves.begin(); it != resolves.end(); ++it) {
            if (it->ref != ref)
                continue;
            it->notifier->setEnabled(false);
            finished.splice(finished.end(), resolves, it);
            QMetaObject::invokeMethod(
                q, [this] { finished.clear(); }, Qt::QueuedConnection);
            return;
        }
    }

    static void DNSSD_API browsed(DNSServiceRef, DNSServiceFlags flags, uint32_t interface,
        DNSServiceErrorType error, const char *name, const char *type, const char *domain,
        void *context)
    {
        auto *self = static_cast<ServiceBrowserPrivate *>(context);
        if (error != kDNSServiceErr_NoError || !(flags & kDNSServiceFlagsAdd))
            return;
        const QString serviceName = QString::fromUtf8(name);
        // Seen on each interface and protocol: resolved once.
        if (self->seen.contains(serviceName))
            return;
        self->seen.insert(serviceName);
        self->resolves.emplace_back();
        Operation &resolve = self->resolves.back();
        resolve.name = serviceName;
        if (DNSServiceResolve(&resolve.ref, 0, interface, name, type, domain, resolved, self)
            != kDNSServiceErr_NoError) {
            resolve.ref = nullptr;
            self->resolves.pop_back();
            self->seen.remove(serviceName);
            return;
        }
        self->watch(resolve);
    }

    static void DNSSD_API resolved(DNSServiceRef ref, DNSServiceFlags, uint32_t,
        DNSServiceErrorType error, const char *, const char *host, uint16_t port,
        uint16_t txtLength, const unsigned char *txt, void *context)
    {
        auto *self = static_cast<ServiceBrowserPrivate *>(context);
        if (error != kDNSServiceErr_NoError) {
            self->forget(ref);
            return;
        }
        FoundServer server;
        for (const Operation &resolve : self->resolves) {
            if (resolve.ref == ref)
                server.name = resolve.name;
        }
        server.host = QString::fromUtf8(host);
        if (server.host.endsWith(QLatin1Char('.')))
            server.host.chop(1);
        server.port = qFromBigEndian(port);
        const uint16_t count = TXTRecordGetCount(txtLength, txt);
        for (uint16_t i = 0; i < count; ++i) {
            char key[256] = {};
            uint8_t valueLength = 0;
            const void *value = nullptr;
            if (TXTRecordGetItemAtIndex(txtLength, txt, i, sizeof key, key, &valueLength, &value)
                == kDNSServiceErr_NoError)
                server.txt.insert(QString::fromUtf8(key),
                    QString::fromUtf8(static_cast<const char *>(value), valueLength));
        }
        self->forget(ref);
        self->q->add(server);
    }

    ServiceBrowser *q;
    Operation browse;
    std::list<Operation> resolves;
    std::list<Operation> finished;
    QSet<QString> seen;
};

ServiceBrowser::ServiceBrowser(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<ServiceBrowserPrivate>(this))
{
    // Avahi's compatibility layer otherwise prints a warning when it is used.
    if (!qEnvironmentVariableIsSet("AVAHI_COMPAT_NOWARN"))
        qputenv("AVAHI_COMPAT_NOWARN", "1");
}

ServiceBrowser::~ServiceBrowser() = default;

bool ServiceBrowser::start(QString *error)
{
    if (d->browse.ref)
        return true;
    const DNSServiceErrorType status
        = DNSServiceBrowse(&d->browse.ref, 0, kDNSServiceInterfaceIndexAny, "_velm._tcp", nullptr,
            ServiceBrowserPrivate::browsed, d.get());
    if (status != kDNSServiceErr_NoError) {
        d->browse.ref = nullptr;
        *error = QStringLiteral("no DNS-SD service answers (is avahi-daemon running?)");
        return false;
    }
    d->watch(d->browse);
    return true;
}

void ServiceBrowser::add(const FoundServer &server)
{
    found.append(server);
    emit serverFound(server);
}
