#pragma once

#include <QByteArray>
#include <QObject>
#include <QScopedPointer>
#include <QString>

class QZeroConfPrivate;

// Publishes one DNS-SD service and turns the outcome into signals. The build chooses how: through
// the system's dns_sd interface (results processed on the thread that owns the object, driven by
// a socket notifier), or not at all.
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
    // Why a publication fails when it does, in words for the log.
    static QString unavailableReason();

signals:
    void servicePublished();
    void error(QZeroConf::error_t);

private:
    friend class QZeroConfPrivate;
    QScopedPointer<QZeroConfPrivate> d;
    QByteArray m_txt;
};
