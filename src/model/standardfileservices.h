#pragma once

#include "fileservices.h"

#include <QPixmap>

// Files through Qt and POSIX, for systems without a file service of their own (Linux, and any
// system without a backend): types from the freedesktop MIME database, sniffing only regular
// files, and previews of the common picture formats decoded within a memory bound.
class StandardFileServices : public FileServices
{
public:
    // A picture whose decoder would hold more pixels than this has no preview: a small file
    // can declare a huge picture (32 million pixels take 128 MB decoded).
    static constexpr qint64 maxDecodedPixels = 32'000'000;

    QString typeOfFile(const QString &path) override;
    QImage previewForFile(const QString &path, int width, int height) override;
};

// The icon of a file type (a MIME type name or an extension) from the icon theme, size by size
// pixels; a plain page when the theme has none. For the event loop (it uses QPixmap).
QPixmap iconForFileType(const QString &type, int size);
