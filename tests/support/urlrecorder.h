#pragma once

#include <QList>
#include <QObject>
#include <QUrl>

// Stands in for the desktop's browser and file manager: install it with
// QDesktopServices::setUrlHandler(scheme, recorder, "open") and read what was opened.
class UrlRecorder : public QObject
{
    Q_OBJECT
public:
    QList<QUrl> opened;

public slots:
    void open(const QUrl &url) { opened << url; }
};
