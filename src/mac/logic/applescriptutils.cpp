#include "applescriptutils.h"

#include "macapps.h"
#include "maclogging.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QProcess>

// The scripts are resources of this library; a static library's resources are registered by
// hand, and outside any namespace.
static void registerScripts() { Q_INIT_RESOURCE(macscripts); }

namespace AppleScriptUtils {
namespace {

QProcess *scriptProcess(const QString &script)
{
    auto *process = new QProcess;
    process->setProgram(QStringLiteral("osascript"));
    process->setArguments({ QStringLiteral("-e"), script });
    return process;
}

// osascript reports a script's error by its exit status.
bool succeeded(const QProcess *process)
{
    return process->exitStatus() == QProcess::NormalExit && process->exitCode() == 0;
}

void warnFailure(QProcess *process)
{
    qCWarning(lcMac) << "Error running script:" << process->errorString()
                     << process->readAllStandardError();
}

QString resourceScript(const QString &fileName)
{
    static const bool registered = (registerScripts(), true);
    Q_UNUSED(registered)
    return readScriptFromFile(QStringLiteral(":/") + fileName);
}

} // namespace

QByteArray runScript(const QString &script)
{
    QProcess *process = scriptProcess(script);
    process->start(QIODevice::ReadWrite);
    const bool finished = process->waitForFinished(-1);
    QByteArray output = process->readAllStandardOutput();
    if (!finished || !succeeded(process))
        warnFailure(process);
    delete process;
    return output;
}

void startScript(const QString &script, QObject *context, std::function<void(QByteArray)> done)
{
    QProcess *process = scriptProcess(script);
    QPointer<QObject> receiver(context);
    auto finish = [process, receiver, done](bool ok) {
        // errorOccurred comes before or instead of finished: answer once.
        if (process->property("answered").toBool())
            return;
        process->setProperty("answered", true);
        QByteArray output = process->readAllStandardOutput();
        if (!ok)
            warnFailure(process);
        process->deleteLater();
        if (receiver)
            done(output);
    };
    QObject::connect(process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), process,
        [process, finish] { finish(succeeded(process)); });
    QObject::connect(process, &QProcess::errorOccurred, process,
        [process, finish](QProcess::ProcessError error) {
            // A crash or a failed start ends the script; a failed read or write does not.
            if (error == QProcess::FailedToStart || process->state() == QProcess::NotRunning)
                finish(false);
        });
    process->start(QIODevice::ReadWrite);
}

QString readScriptFromFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    QByteArray data = file.readAll();
    const int zero = data.indexOf('\0');
    if (zero >= 0)
        data.truncate(zero);
    return QString::fromUtf8(data);
}

QByteArray runScriptFromFile(const QString &path) { return runScript(readScriptFromFile(path)); }

QByteArray runScriptWithName(const QString &name)
{
    return runScript(resourceScript(name + QStringLiteral(".applescript")));
}

void installScriptFromFile(const QString &fileName, const QString &folder)
{
    const QString target = folder + QLatin1Char('/') + fileName;
    const QFileInfo installed(target);
    QString script;
    bool read = false;
    if (installed.exists()
        && installed.lastModified()
            > QFileInfo(QCoreApplication::applicationFilePath()).lastModified()) {
        script = resourceScript(fileName);
        read = true;
        if (installed.size() == script.size())
            return;
    }
    QDir().mkpath(folder);
    QFile file(target);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        qCWarning(lcMac) << "Error opening file for writing" << file.fileName();
        return;
    }
    if (!read)
        script = resourceScript(fileName);
    file.write(script.toUtf8());
}

void installSandboxScripts()
{
    const QString folder = MacApps::sandboxScriptFolder(QDir::homePath());
    for (const QString &script : MacApps::sandboxScripts())
        installScriptFromFile(script, folder);
}

} // namespace AppleScriptUtils
