#pragma once

#include <QByteArray>
#include <QObject>
#include <QScopedPointer>
#include <QString>

class QZeroConfPrivate;

// Publishes one DNS-SD service through the system's dns_sd interface and turns its callbacks
// into signals. Results are processed on the thread that owns the object, driven by a socket
// notifier.
class QZeroConf : public QObject
{
    Q_OBJECT
public:
    enum error_t {
        noError = 0,
        serviceRegistrationFailed = -1,
        serviceNameCollision = -2,
        browserFailed = -3,
    };
    Q_ENUM(error_t)

    explicit QZeroConf(QObject *parent = nullptr);
    ~QZeroConf() override;

    // Emits error(serviceRegistrationFailed) when a registration already exists.
    void startServicePublish(const char *name, const char *type, const char *domain, quint16 port);
    void stopServicePublish();
    bool publishExists() const;

    // TXT changes take effect at the next startServicePublish.
    void addServiceTxtRecord(QString name, QString value);
    void addServiceTxtRecord(QString name);
    void clearServiceTxtRecords();
    QByteArray serviceTxtRecords() const;

signals:
    void servicePublished();
    void error(QZeroConf::error_t);

private:
    friend class QZeroConfPrivate;
    QScopedPointer<QZeroConfPrivate> d;
};
