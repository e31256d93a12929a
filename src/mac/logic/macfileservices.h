#pragma once

#include "standardfileservices.h"

// Files on macOS: a file's type is what the workspace and LaunchServices take, an extension
// (lower-cased) or a uniform type identifier. Previews are the picture formats loaded directly,
// as everywhere.
class MacFileServices : public StandardFileServices
{
public:
    // "public.folder" for a folder, the extension for a file that has one, "public.data" for
    // any other file, and nothing when nothing is there.
    QString typeOfFile(const QString &path) override;

    // The extension of a path: the text after the last "." of its name, lower-cased; none when
    // the name has no "." or ends with it.
    static QString extension(const QString &path);
    // Whether a type is a uniform type identifier rather than an extension.
    static bool isTypeIdentifier(const QString &type);
};
