#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

class QObject;

// AppleScript run through the system's script runner ("osascript") as a child process, scripts
// read from files or from the program's resources, and resource scripts installed into a user
// folder. Plain Qt: the runner is found on the PATH like any program.
namespace AppleScriptUtils {

// Runs the script and waits for it, without a time limit: the caller's thread is blocked
// meanwhile, so never call it on the event loop's thread. Returns what the script wrote to
// standard output; when it fails, that output as it stands, after a warning with the error and
// what it wrote to standard error.
QByteArray runScript(const QString &script);
// The same without waiting: `done` gets the output on `context`'s thread when the script has
// ended (and is never called once `context` is gone).
void startScript(const QString &script, QObject *context, std::function<void(QByteArray)> done);

// The file's text up to the first zero byte (UTF-8); empty when it cannot be read.
QString readScriptFromFile(const QString &path);
QByteArray runScriptFromFile(const QString &path);
// Runs the resource script ":/<name>.applescript".
QByteArray runScriptWithName(const QString &name);

// Copies the resource script ":/<fileName>" to folder/fileName, unless the copy there is newer
// than the program and of the script's length.
void installScriptFromFile(const QString &fileName, const QString &folder);
// The scripts the sandboxed file manager runs, into its application-scripts folder.
void installSandboxScripts();

} // namespace AppleScriptUtils
