#pragma once

#include <QImage>
#include <QString>

// What the platform knows about files, asked on worker threads. Paths come from clients and
// can name anything: a named pipe, a device, a picture that declares more pixels than memory
// holds, a file on a mount that never answers. So these are never called on the event loop;
// an implementation must be thread-safe and use no GUI object (QImage, not QPixmap).
class FileServices
{
public:
    virtual ~FileServices();

    // The type of what the path names, in the form Platform::iconForFileType and
    // appsForFileType take; empty when nothing is there.
    virtual QString typeOfFile(const QString &path) = 0;
    // A preview fitting width by height, or a null image when there is none.
    virtual QImage previewForFile(const QString &path, int width, int height) = 0;
};
