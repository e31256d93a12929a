#include "ctl.h"

// velmctl's command line: global options anywhere, the command, its arguments and its named
// options.

namespace {
// Options that take a value, and flags.
const QStringList valued { QStringLiteral("host"), QStringLiteral("port"),
    QStringLiteral("timeout"), QStringLiteral("size"), QStringLiteral("o"),
    QStringLiteral("invoke"), QStringLiteral("set"), QStringLiteral("app"), QStringLiteral("width"),
    QStringLiteral("height") };
const QStringList flags { QStringLiteral("json"), QStringLiteral("press"), QStringLiteral("help"),
    QStringLiteral("version") };
} // namespace

bool parseCtlArguments(const QStringList &arguments, CtlOptions *options, QString *error)
{
    QStringList positional;
    for (int i = 1; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        if (argument == QLatin1String("--")) {
            positional += arguments.mid(i + 1);
            break;
        }
        const bool isOption = argument.startsWith(QLatin1String("--"))
            || argument == QLatin1String("-o") || argument == QLatin1String("-h");
        if (!isOption) {
            positional.append(argument);
            continue;
        }
        QString name = argument.mid(argument.startsWith(QLatin1String("--")) ? 2 : 1);
        QString value;
        bool hasValue = false;
        const int equals = name.indexOf(QLatin1Char('='));
        if (equals > 0) {
            value = name.mid(equals + 1);
            name = name.left(equals);
            hasValue = true;
        }
        if (name == QLatin1String("h"))
            name = QStringLiteral("help");
        if (flags.contains(name)) {
            options->values.insert(name, QStringLiteral("true"));
            continue;
        }
        if (!valued.contains(name)) {
            *error = QStringLiteral("unknown option %1").arg(argument);
            return false;
        }
        if (!hasValue) {
            if (i + 1 >= arguments.size()) {
                *error = QStringLiteral("%1 needs a value").arg(argument);
                return false;
            }
            value = arguments.at(++i);
        }
        options->values.insert(name, value);
    }
    options->host = options->values.take(QStringLiteral("host"));
    if (options->values.contains(QStringLiteral("port"))) {
        bool ok = false;
        const uint port = options->values.take(QStringLiteral("port")).toUInt(&ok);
        if (!ok || port == 0 || port > 65535) {
            *error = QStringLiteral("--port takes a number from 1 to 65535");
            return false;
        }
        options->port = quint16(port);
    }
    options->json = options->values.take(QStringLiteral("json")) == QLatin1String("true");
    if (options->values.contains(QStringLiteral("timeout"))) {
        bool ok = false;
        const double seconds = options->values.take(QStringLiteral("timeout")).toDouble(&ok);
        if (!ok || seconds <= 0) {
            *error = QStringLiteral("--timeout takes a number of seconds");
            return false;
        }
        options->timeoutMs = int(seconds * 1000);
    } else if (positional.value(0) == QLatin1String("pair")) {
        // Someone has to walk to the computer and answer the prompt.
        options->timeoutMs = 120000;
    }
    if (options->values.take(QStringLiteral("help")) == QLatin1String("true"))
        positional.prepend(QStringLiteral("help"));
    if (options->values.take(QStringLiteral("version")) == QLatin1String("true")) {
        positional = QStringList { QStringLiteral("version") };
    }
    if (positional.isEmpty()) {
        *error = QStringLiteral("no command given");
        return false;
    }
    options->command = positional.takeFirst();
    options->arguments = positional;
    return true;
}

// Named options each command takes, and whether -o is required.
QString checkCtlCommand(const CtlOptions &options)
{
    if (options.command == QLatin1String("version"))
        return QString();
    const CtlCommand *command = findCommand(options.command);
    if (!command)
        return QStringLiteral("unknown command \"%1\" (velmctl help lists them)")
            .arg(options.command);
    const bool needsOutput = options.command == QLatin1String("icon")
        || options.command == QLatin1String("file-icon")
        || options.command == QLatin1String("preview");
    if (needsOutput && options.values.value(QStringLiteral("o")).isEmpty())
        return QStringLiteral("%1 writes a PNG: give the file with -o FILE").arg(options.command);
    const bool needsPath = needsOutput && options.command != QLatin1String("icon");
    if ((needsPath || options.command == QLatin1String("open")
            || options.command == QLatin1String("open-with")
            || options.command == QLatin1String("commands")
            || options.command == QLatin1String("send") || options.command == QLatin1String("icon")
            || options.command == QLatin1String("scroll"))
        && options.arguments.isEmpty())
        return QStringLiteral("usage: velmctl %1").arg(command->usage);
    return QString();
}
