#pragma once

#include <QString>

class QFile;

// What a path is, found without opening it, and opening files only when they are regular: a
// named pipe blocks whoever opens it until a writer comes, a device can be endless, and a
// socket cannot be read at all. Paths come from clients; nothing about them is trusted.
namespace FileProbe {

enum class Kind { Missing, Directory, Regular, Fifo, Socket, CharacterDevice, BlockDevice };

// The kind of what the path names, following symbolic links.
Kind kindOf(const QString &path);

// The MIME type of a special file ("inode/fifo", ...), of a directory ("inode/directory");
// empty for regular and missing files, whose type comes from their name and content.
QString inodeType(Kind kind);

// Opens the path for reading into `file` only when it is a regular file; never blocks on a
// named pipe or opens a device.
bool openRegular(const QString &path, QFile &file);

} // namespace FileProbe
