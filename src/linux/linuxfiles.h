#pragma once

#include "fileservices.h"

// Files on Linux: types from the freedesktop MIME database, sniffing only regular files, and
// previews of the common picture formats decoded within a memory bound.
class LinuxFileServices : public FileServices
{
public:
    // A picture whose decoder would hold more pixels than this has no preview: a small file
    // can declare a huge picture (32 million pixels take 128 MB decoded).
    static constexpr qint64 maxDecodedPixels = 32'000'000;

    QString typeOfFile(const QString &path) override;
    QImage previewForFile(const QString &path, int width, int height) override;
};
