#pragma once

#include "clientsession.h"
#include "ctlconfig.h"
#include "servicebrowser.h"

#include <QJsonArray>
#include <QObject>
#include <QStringList>
#include <QTextStream>
#include <QTimer>

#include <functional>
#include <memory>

// velmctl's exit codes.
namespace Exit {
enum Code {
    Done = 0,
    Failed = 1,
    Usage = 2,
    NotPaired = 3,
    NoServer = 4,
    TimedOut = 5,
    Unsupported = 6,
};
}

// What the command line asked for.
struct CtlOptions
{
    QString command;
    QStringList arguments;
    // Named options of the command ("size", "o", "invoke", "set", "press", "app", ...).
    QHash<QString, QString> values;
    QString host;
    quint16 port = 0;
    bool json = false;
    int timeoutMs = 10000;
};

class Ctl;

// One subcommand: what it sends and how it shows the answer.
struct CtlCommand
{
    QString name;
    QString usage;
    QString summary;
    // Runs the command once the session is accepted; calls ctl.finish() when done.
    std::function<void(Ctl &ctl)> run;
    // Needs no session (discover, pair, forget, help).
    bool local = false;
};

const QVector<CtlCommand> &ctlCommands();
// pair, forget, discover and help: what works without a session.
QVector<CtlCommand> localCommands();
QString usageText();
// Parses the command line (arguments[0] is the program); false with a message on a mistake.
bool parseCtlArguments(const QStringList &arguments, CtlOptions *options, QString *error);
// What is wrong with the command and its arguments, or nothing.
QString checkCtlCommand(const CtlOptions &options);
const CtlCommand *findCommand(const QString &name);

// One velmctl run: finds the computer, connects, proves the device, runs the command, and
// ends with an exit code. Everything is asynchronous; finished() carries the code.
class Ctl : public QObject
{
    Q_OBJECT
public:
    Ctl(const CtlOptions &options, QTextStream &out, QTextStream &err, QObject *parent = nullptr);

    void start();

    const CtlOptions &options() const { return opts; }
    ClientSession *session() const { return client.get(); }
    QTextStream &out;
    QTextStream &err;

    // Ends the run; an error message goes to standard error first.
    void finish(int code, const QString &message = QString());
    // What a time-out says, when the command knows better than the general message.
    void setTimeoutMessage(const QString &message) { timeoutMessage = message; }
    // No time limit from now on (watch).
    void keepWaiting();
    // Sends a request (none when it is empty) and calls `handle` with each message until it
    // returns true.
    void request(const QJsonObject &message, std::function<bool(const Frame &)> handle);
    // Sends a message that has no answer, then waits until the computer has dealt with it.
    void sendAndSettle(const QJsonObject &message, std::function<void()> then);
    // Checks that the computer offers the code before `then` runs; else ends with code 6.
    void requireSupported(const QString &code, std::function<void()> then);
    // The application named by `name` (an id, or a name ignoring case; empty: the front one);
    // ends the run when there is none.
    // `code` is the request the application is wanted for: a computer that cannot do it says
    // so before anything is asked about applications.
    void resolveApp(
        const QString &code, const QString &name, std::function<void(const QString &id)> then);
    // Prints one message: as JSON with --json, else as `text` gives it.
    void print(const QJsonObject &json, const QString &text);
    void connectTo(const QString &host, quint16 port, const QString &id, const QString &token);
    // Looks for computers on the network for a while, then hands on what it found; ends the
    // run when there is no DNS-SD service to ask.
    void discover(int windowMs, std::function<void(const QVector<FoundServer> &)> then);
    // The one computer a command goes to when none is named: ends the run when there is none
    // or more than one.
    void discoverOne(const QString &wanted, std::function<void(const FoundServer &)> then);

signals:
    void finished(int code);

private:
    void resolveSupportedApp(const QString &name, std::function<void(const QString &id)> then);
    void onFrame(const Frame &frame);
    void onClosed();
    void resetTimer();

    CtlOptions opts;
    CtlConfig config;
    const CtlCommand *command = nullptr;
    std::unique_ptr<ClientSession> client;
    std::unique_ptr<ServiceBrowser> browser;
    std::function<bool(const Frame &)> handler;
    QTimer timer;
    bool done = false;
    bool pairing = false;
    // The WebSocket handshake succeeded: the computer was there.
    bool reached = false;
    QString target;
    QString timeoutMessage;
};
