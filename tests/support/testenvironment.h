#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>

namespace TestEnvironment {
// Gives the test process the program's identity and a private, empty settings location.
// Call before anything reads settings (initTestCase).
void setUp();
// Empties the settings.
void clearSettings();
// The environment for a copy of the program that a test starts: this process's, with a home,
// XDG folders, a runtime directory and a temporary folder of its own below `root` (made here),
// so that it never meets a copy the user runs on the same desktop (through the single-instance
// lock, the local socket or the settings). Settings are then in
// root/config/Velm/velm-server.conf.
QProcessEnvironment isolatedProgram(const QString &root);

// Sets (or, given a null value, removes) an environment variable of this process while it
// exists.
class Variable
{
public:
    Variable(const QByteArray &name, const QByteArray &value);
    ~Variable();
    Variable(const Variable &) = delete;
    Variable &operator=(const Variable &) = delete;

private:
    QByteArray name;
    QByteArray old;
    bool had;
};
} // namespace TestEnvironment
