#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

typedef struct _GAppInfo GAppInfo;

// How processes and desktop entries start programs: what a window's process is matched with to
// find the entry it was started from.
namespace CommandLines {

// The program a process runs, as /proc tells; empty when it cannot be read.
QString executableOf(int pid);
// A program as a path when it can be found: looked up in PATH, links resolved.
QString programPath(const QByteArray &program);
// The program a desktop entry starts, as a path when it can be found.
QString entryExecutable(GAppInfo *info);
// The words of the command line an entry starts, without its field codes.
QList<QByteArray> entryCommand(GAppInfo *info);

// A process's command line as it is compared with entries': its words, and its first three
// words as programs (the program itself, or an interpreter with an option before the script).
struct ProcessCommand
{
    QList<QByteArray> words;
    QStringList programs;
};
ProcessCommand processCommand(int pid);

// How many words of the entry's command line the process was started with: the entry's
// program first and then its words, either as the process's program or as the script an
// interpreter runs (the kernel, or env, puts the interpreter and its option before it). 0 when
// the process was not started from this entry.
int commandMatch(const ProcessCommand &process, const QList<QByteArray> &entry);

} // namespace CommandLines
