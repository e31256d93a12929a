#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVector>

#include <memory>

// One computer running Velm Server, as its DNS-SD advertisement describes it.
struct FoundServer
{
    QString name;
    // The host name the advertisement points at.
    QString host;
    quint16 port = 0;
    // The TXT entries ("os", "ip").
    QMap<QString, QString> txt;
    // Where to connect: the advertised address when there is one, else the host name.
    QString address() const { return txt.value(QStringLiteral("ip"), host); }
};

class ServiceBrowserPrivate;

// Looks for "_velm._tcp" services on the local network through the system's DNS-SD service
// (Avahi on Linux). Found services are resolved and reported one by one.
class ServiceBrowser : public QObject
{
    Q_OBJECT
public:
    explicit ServiceBrowser(QObject *parent = nullptr);
    ~ServiceBrowser() override;

    // False, with the reason, when there is no DNS-SD service to ask.
    bool start(QString *error);
    const QVector<FoundServer> &servers() const { return found; }

signals:
    void serverFound(const FoundServer &server);

private:
    friend class ServiceBrowserPrivate;
    void add(const FoundServer &server);

    std::unique_ptr<ServiceBrowserPrivate> d;
    QVector<FoundServer> found;
};
