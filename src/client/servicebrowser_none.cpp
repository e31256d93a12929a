#include "servicebrowser.h"

// A build without DNS-SD finds nothing: computers are named with --host and --port.
class ServiceBrowserPrivate
{
};

ServiceBrowser::ServiceBrowser(QObject *parent)
    : QObject(parent)
{ }

ServiceBrowser::~ServiceBrowser() = default;

bool ServiceBrowser::start(QString *error)
{
    *error = QStringLiteral("this build cannot look for computers on the network");
    return false;
}

void ServiceBrowser::add(const FoundServer &server)
{
    found.append(server);
    emit serverFound(server);
}
