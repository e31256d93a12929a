#include <gio/gio.h>

#include "commandlines.h"

#include <QFile>
#include <QFileInfo>

namespace CommandLines {

QString executableOf(int pid)
{
    if (pid <= 0)
        return QString();
    return QFileInfo(QStringLiteral("/proc/%1/exe").arg(pid)).symLinkTarget();
}

QString programPath(const QByteArray &program)
{
    if (program.isEmpty())
        return QString();
    char *found = g_find_program_in_path(program.constData());
    QString path = found ? QString::fromUtf8(found) : QString::fromLocal8Bit(program);
    g_free(found);
    const QString resolved = QFileInfo(path).canonicalFilePath();
    return resolved.isEmpty() ? path : resolved;
}

QString entryExecutable(GAppInfo *info)
{
    const char *executable = g_app_info_get_executable(info);
    return executable ? programPath(executable) : QString();
}

namespace {
// The words of the command line a process was started with.
QList<QByteArray> commandOf(int pid)
{
    QFile file(QStringLiteral("/proc/%1/cmdline").arg(pid));
    if (pid <= 0 || !file.open(QIODevice::ReadOnly))
        return {};
    QList<QByteArray> words = file.readAll().split('\0');
    if (!words.isEmpty() && words.last().isEmpty())
        words.removeLast();
    return words;
}
} // namespace

QList<QByteArray> entryCommand(GAppInfo *info)
{
    const char *line = g_app_info_get_commandline(info);
    gint count = 0;
    gchar **words = nullptr;
    if (!line || !g_shell_parse_argv(line, &count, &words, nullptr))
        return {};
    QList<QByteArray> command;
    for (gint i = 0; i < count; ++i) {
        const QByteArray word(words[i]);
        if (word == "%%")
            command << QByteArray("%");
        else if (!(word.size() == 2 && word.at(0) == '%'))
            command << word;
    }
    g_strfreev(words);
    return command;
}

ProcessCommand processCommand(int pid)
{
    ProcessCommand command;
    command.words = commandOf(pid);
    for (int i = 0; i < qMin(3, command.words.size()); ++i)
        command.programs << programPath(command.words.at(i));
    return command;
}

int commandMatch(const ProcessCommand &process, const QList<QByteArray> &entry)
{
    if (entry.isEmpty())
        return 0;
    const QString program = programPath(entry.first());
    for (int start = 0; start < process.programs.size(); ++start) {
        if (process.programs.at(start) == program
            && process.words.mid(start + 1, entry.size() - 1) == entry.mid(1))
            return int(entry.size());
    }
    return 0;
}

} // namespace CommandLines
