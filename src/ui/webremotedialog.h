#pragma once

#include <QDialog>
#include <QImage>
#include <QString>

class QLabel;

// Where the web remote is: the address, to type or copy, and a QR code of it for a phone's
// camera.
class WebRemoteDialog : public QDialog
{
    Q_OBJECT
public:
    explicit WebRemoteDialog(QWidget *parent = nullptr);

    // Shows this address (empty while the server does not listen).
    void setAddress(const QString &address);
    QString address() const { return m_address; }

    // The QR code of text, one pixel per module with a quiet zone of four; null when the text
    // cannot be encoded.
    static QImage qrCode(const QString &text);

    QLabel *addressLabel = nullptr;
    QLabel *codeLabel = nullptr;

private:
    QString m_address;
};
