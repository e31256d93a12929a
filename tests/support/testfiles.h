#pragma once

#include <QString>

// Files a person can have on disk that are hard on whoever reads them.
namespace TestFiles {

// A valid grey PNG that declares width x height pixels: all black, so that it stays small on
// disk (20000 x 20000 takes under 1 MB) while a decoder that believes it needs 400 MB.
bool writePngDeclaring(const QString &path, int width, int height);
// A PNG of width x height cut off after half of its bytes.
bool writeTruncatedPng(const QString &path, int width, int height);
// A grey JPEG of width x height (a 50-megapixel one is 8660 x 5774).
bool writeJpeg(const QString &path, int width, int height);
bool makeFifo(const QString &path);
// A socket bound at path; the descriptor is returned (close it when done), -1 on failure.
int bindSocket(const QString &path);
// count empty files named 000000 ... in folder.
bool fillFolder(const QString &folder, int count);

} // namespace TestFiles
