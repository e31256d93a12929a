#include "ctl.h"

#include "l.h"

#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>

namespace {

QString arg(const Ctl &ctl, int index)
{
    const QStringList &arguments = ctl.options().arguments;
    return index < arguments.size() ? arguments.at(index) : QString();
}

QString value(const Ctl &ctl, const QString &name) { return ctl.options().values.value(name); }

// Writes an attachment to the file named by -o.
bool writeOutput(Ctl &ctl, const QByteArray &data)
{
    const QString file = value(ctl, QStringLiteral("o"));
    QSaveFile output(file);
    if (!output.open(QIODevice::WriteOnly) || output.write(data) != data.size()
        || !output.commit()) {
        ctl.finish(
            Exit::Failed, QStringLiteral("cannot write %1: %2").arg(file, output.errorString()));
        return false;
    }
    return true;
}

QByteArray firstPart(const Frame &frame, qint8 type)
{
    for (const auto &part : frame.parts) {
        if (part.first == type)
            return part.second;
    }
    return QByteArray();
}

// A request whose one answer carries the same code, shown by `show`.
void ask(Ctl &ctl, const QJsonObject &message, std::function<void(const Frame &)> show)
{
    const QString code = message.value(L::method).toString();
    ctl.requireSupported(code, [&ctl, message, code, show] {
        ctl.request(message, [&ctl, code, show](const Frame &frame) {
            if (frame.method() != code)
                return false;
            show(frame);
            return true;
        });
    });
}

// A request that has no answer.
void tell(Ctl &ctl, const QJsonObject &message, const QString &done)
{
    const QString code = message.value(L::method).toString();
    ctl.requireSupported(code, [&ctl, message, done] {
        ctl.sendAndSettle(message, [&ctl, message, done] {
            ctl.print(message, done);
            ctl.finish(Exit::Done);
        });
    });
}

// An action on an application: the one named, else the one in front.
CtlCommand appAction(
    const QString &name, const QString &code, const QString &summary, const QString &done)
{
    return { name, name + QStringLiteral(" [APP]"), summary, [code, done](Ctl &ctl) {
                ctl.resolveApp(code, arg(ctl, 0), [&ctl, code, done](const QString &id) {
                    tell(ctl, QJsonObject { { L::method, code }, { L::id, id } }, done.arg(id));
                });
            } };
}

// A machine action without argument or answer.
CtlCommand systemAction(
    const QString &name, const QString &code, const QString &summary, const QString &done)
{
    return { name, name, summary, [code, done](Ctl &ctl) {
                tell(ctl, QJsonObject { { L::method, code } }, done);
            } };
}

void printMenu(QTextStream &out, const QJsonArray &items, int depth)
{
    for (const QJsonValue &value : items) {
        const QJsonObject item = value.toObject();
        out << QString(depth * 2, QLatin1Char(' ')) << item.value(L::name).toString() << '\n';
        printMenu(out, item.value(QStringLiteral("m")).toArray(), depth + 1);
    }
}

// The identifier of the entry at a path of titles ("Edit/Transform/Upper").
QString findMenu(const QJsonArray &items, QStringList path)
{
    if (path.isEmpty())
        return QString();
    const QString title = path.takeFirst();
    for (const QJsonValue &value : items) {
        const QJsonObject item = value.toObject();
        if (item.value(L::name).toString().compare(title, Qt::CaseInsensitive) != 0)
            continue;
        if (path.isEmpty())
            return item.value(L::id).toString();
        const QString found = findMenu(item.value(QStringLiteral("m")).toArray(), path);
        if (!found.isNull())
            return found;
    }
    return QString();
}

void menu(Ctl &ctl)
{
    ctl.resolveApp(L::appMenu, arg(ctl, 0), [&ctl](const QString &id) {
        ask(ctl, QJsonObject { { L::method, L::appMenu }, { L::id, id } },
            [&ctl, id](const Frame &frame) {
                const QJsonArray tree = QJsonDocument::fromJson(firstPart(frame, 0)).array();
                const QString invoke = value(ctl, QStringLiteral("invoke"));
                if (invoke.isEmpty()) {
                    if (ctl.options().json) {
                        ctl.print(QJsonObject { { L::method, L::appMenu }, { L::id, id },
                                      { QStringLiteral("m"), tree } },
                            QString());
                    } else {
                        printMenu(ctl.out, tree, 0);
                        ctl.out.flush();
                    }
                    ctl.finish(tree.isEmpty() ? Exit::Failed : Exit::Done,
                        tree.isEmpty() ? QStringLiteral("%1 shows no menus").arg(id) : QString());
                    return;
                }
                const QString menuId
                    = findMenu(tree, invoke.split(QLatin1Char('/'), Qt::SkipEmptyParts));
                if (menuId.isNull()) {
                    ctl.finish(Exit::Failed,
                        QStringLiteral("no menu entry \"%1\" in %2 (`velmctl menu %2` shows them)")
                            .arg(invoke, id));
                    return;
                }
                tell(ctl,
                    QJsonObject { { L::method, L::performMenu }, { L::id, id },
                        { QStringLiteral("m"), menuId } },
                    QStringLiteral("Chose %1").arg(invoke));
            });
    });
}

void focus(Ctl &ctl)
{
    const QString code = ctl.options().values.contains(QStringLiteral("press"))
            && !ctl.options().values.contains(QStringLiteral("set"))
        ? L::performFocus
        : L::focusValue;
    ctl.resolveApp(code, arg(ctl, 0), [&ctl](const QString &id) {
        if (ctl.options().values.contains(QStringLiteral("set"))) {
            tell(ctl,
                QJsonObject { { L::method, L::focusValue }, { L::id, id },
                    { L::value, value(ctl, QStringLiteral("set")) } },
                QStringLiteral("Set the focused element of %1").arg(id));
            return;
        }
        if (ctl.options().values.contains(QStringLiteral("press"))) {
            tell(ctl, QJsonObject { { L::method, L::performFocus }, { L::id, id } },
                QStringLiteral("Pressed the focused element of %1").arg(id));
            return;
        }
        // The value comes back under the code of the focused element.
        ctl.requireSupported(L::focusValue, [&ctl, id] {
            ctl.request(QJsonObject { { L::method, L::focusValue }, { L::id, id } },
                [&ctl](const Frame &frame) {
                    if (frame.method() != L::focusedElement || !frame.object().contains(L::value))
                        return false;
                    ctl.print(frame.object(), frame.object().value(L::value).toString());
                    ctl.finish(Exit::Done);
                    return true;
                });
        });
    });
}

// A value of the machine: shown without argument, set with one.
CtlCommand level(const QString &name, const QString &code, const QString &summary, bool toggle)
{
    return { name, name + (toggle ? QStringLiteral(" [on|off]") : QStringLiteral(" [N]")), summary,
        [name, code, toggle](Ctl &ctl) {
            const QString given = arg(ctl, 0);
            if (given.isEmpty()) {
                ask(ctl, QJsonObject { { L::method, code } }, [&ctl, toggle](const Frame &frame) {
                    const QJsonValue current = frame.object().value(L::value);
                    ctl.print(frame.object(),
                        toggle ? (current.toBool() ? QStringLiteral("on") : QStringLiteral("off"))
                               : QString::number(current.toInt()));
                    ctl.finish(Exit::Done);
                });
                return;
            }
            QJsonValue wanted;
            if (toggle) {
                if (given != QLatin1String("on") && given != QLatin1String("off")) {
                    ctl.finish(Exit::Usage, QStringLiteral("%1 takes on or off").arg(name));
                    return;
                }
                wanted = given == QLatin1String("on");
            } else {
                bool ok = false;
                const int number = given.toInt(&ok);
                if (!ok || number < 0 || number > 100) {
                    ctl.finish(
                        Exit::Usage, QStringLiteral("%1 takes a number from 0 to 100").arg(name));
                    return;
                }
                wanted = number;
            }
            tell(ctl, QJsonObject { { L::method, code }, { L::value, wanted } },
                QStringLiteral("%1 set to %2").arg(name, given));
        } };
}

QVector<CtlCommand> makeCommands()
{
    QVector<CtlCommand> commands;
    commands.append({ QStringLiteral("apps"), QStringLiteral("apps"),
        QStringLiteral("the installed applications, most recently used first"), [](Ctl &ctl) {
            ask(ctl, QJsonObject { { L::method, L::installedApps } }, [&ctl](const Frame &frame) {
                if (ctl.options().json) {
                    ctl.print(frame.object(), QString());
                } else {
                    for (const QJsonValue &value : frame.object().value(L::apps).toArray()) {
                        const QJsonObject app = value.toObject();
                        ctl.out << app.value(L::name).toString() << " ("
                                << app.value(L::id).toString() << ")"
                                << (app.value(L::status) == L::running ? ", running" : "") << '\n';
                    }
                    ctl.out.flush();
                }
                ctl.finish(Exit::Done);
            });
        } });
    commands.append({ QStringLiteral("front"), QStringLiteral("front"),
        QStringLiteral("the application in front"), [](Ctl &ctl) {
            ask(ctl, QJsonObject { { L::method, L::currentApp } }, [&ctl](const Frame &frame) {
                const QString id = frame.object().value(L::id).toString();
                ctl.print(frame.object(), id.isEmpty() ? QStringLiteral("(none)") : id);
                ctl.finish(Exit::Done);
            });
        } });
    commands.append({ QStringLiteral("icon"), QStringLiteral("icon APP [--size N] -o FILE"),
        QStringLiteral("an application's icon as PNG"), [](Ctl &ctl) {
            ctl.resolveApp(L::appIcon, arg(ctl, 0), [&ctl](const QString &id) {
                const int size = value(ctl, QStringLiteral("size")).isEmpty()
                    ? 128
                    : value(ctl, QStringLiteral("size")).toInt();
                ask(ctl,
                    QJsonObject { { L::method, L::appIcon }, { L::id, id }, { L::size, size } },
                    [&ctl](const Frame &frame) {
                        const QByteArray png = firstPart(frame, 1);
                        if (!writeOutput(ctl, png))
                            return;
                        ctl.print(frame.object(),
                            QStringLiteral("Wrote %1 (%2 bytes)")
                                .arg(value(ctl, QStringLiteral("o")))
                                .arg(png.size()));
                        ctl.finish(Exit::Done);
                    });
            });
        } });
    commands.append(appAction(QStringLiteral("activate"), L::activateApp,
        QStringLiteral("brings an application to the front, starting it if needed"),
        QStringLiteral("Activated %1")));
    commands.append(appAction(QStringLiteral("close"), L::closeApp,
        QStringLiteral("closes the front window"), QStringLiteral("Closed the window of %1")));
    commands.append(appAction(QStringLiteral("quit"), L::quitApp,
        QStringLiteral("quits an application"), QStringLiteral("Asked %1 to quit")));
    commands.append(appAction(QStringLiteral("minimize"), L::toggleMinimizeApp,
        QStringLiteral("minimises the front window, or brings a minimised one back"),
        QStringLiteral("Minimised or restored %1")));
    commands.append(appAction(QStringLiteral("maximize"), L::toggleMaximizeApp,
        QStringLiteral("maximises the front window or restores it"),
        QStringLiteral("Maximised or restored %1")));
    commands.append(appAction(QStringLiteral("fullscreen"), L::toggleFullscreenApp,
        QStringLiteral("switches full screen"), QStringLiteral("Switched full screen of %1")));
    commands.append({ QStringLiteral("scroll"), QStringLiteral("scroll N [APP]"),
        QStringLiteral("one wheel step: N below 10 scrolls down, otherwise up"), [](Ctl &ctl) {
            bool ok = false;
            const int steps = arg(ctl, 0).toInt(&ok);
            if (!ok) {
                ctl.finish(Exit::Usage, QStringLiteral("scroll takes a number"));
                return;
            }
            ctl.resolveApp(L::appScroll, arg(ctl, 1), [&ctl, steps](const QString &id) {
                tell(ctl,
                    QJsonObject {
                        { L::method, L::appScroll }, { L::id, id }, { L::x, 0 }, { L::y, steps } },
                    QStringLiteral("Scrolled %1").arg(id));
            });
        } });
    commands.append({ QStringLiteral("keys"), QStringLiteral("keys SEQUENCE [APP]"),
        QStringLiteral("types a key sequence such as Ctrl+Shift+t or a,b,c"), [](Ctl &ctl) {
            const QString sequence = arg(ctl, 0);
            if (sequence.isEmpty()) {
                ctl.finish(Exit::Usage, QStringLiteral("keys takes a sequence, such as Ctrl+c"));
                return;
            }
            ctl.resolveApp(L::keySequence, arg(ctl, 1), [&ctl, sequence](const QString &id) {
                tell(ctl,
                    QJsonObject {
                        { L::method, L::keySequence }, { L::id, id }, { L::keys, sequence } },
                    QStringLiteral("Typed %1 into %2").arg(sequence, id));
            });
        } });
    commands.append({ QStringLiteral("menu"), QStringLiteral("menu [APP] [--invoke PATH]"),
        QStringLiteral("an application's menus, or chooses one by its titles (Edit/Copy)"), menu });
    commands.append({ QStringLiteral("focus"), QStringLiteral("focus [APP] [--set TEXT | --press]"),
        QStringLiteral("the focused element's text, sets it, or presses the element"), focus });
    commands.append({ QStringLiteral("ls"), QStringLiteral("ls [PATH]"),
        QStringLiteral("a folder's files, folders first"), [](Ctl &ctl) {
            const QString path = arg(ctl, 0).isEmpty() ? QStringLiteral("~") : arg(ctl, 0);
            ask(ctl, QJsonObject { { L::method, L::directoryListing }, { L::path, path } },
                [&ctl](const Frame &frame) {
                    if (ctl.options().json) {
                        ctl.print(frame.object(), QString());
                    } else {
                        for (const QJsonValue &value : frame.object().value(L::files).toArray()) {
                            const QJsonObject file = value.toObject();
                            ctl.out << file.value(L::name).toString()
                                    << (file.value(L::type) == QLatin1String("d") ? "/" : "")
                                    << '\n';
                        }
                        ctl.out.flush();
                    }
                    ctl.finish(Exit::Done);
                });
        } });
    commands.append({ QStringLiteral("file-icon"),
        QStringLiteral("file-icon PATH [--size N] -o FILE"), QStringLiteral("a file's icon as PNG"),
        [](Ctl &ctl) {
            const QString path = arg(ctl, 0);
            const int size = value(ctl, QStringLiteral("size")).isEmpty()
                ? 64
                : value(ctl, QStringLiteral("size")).toInt();
            ask(ctl,
                QJsonObject { { L::method, L::fileIcon }, { L::path, path }, { L::size, size } },
                [&ctl](const Frame &frame) {
                    if (!writeOutput(ctl, firstPart(frame, 1)))
                        return;
                    ctl.print(frame.object(),
                        QStringLiteral("Wrote %1").arg(value(ctl, QStringLiteral("o"))));
                    ctl.finish(Exit::Done);
                });
        } });
    commands.append({ QStringLiteral("preview"),
        QStringLiteral("preview PATH [--width W] [--height H] -o FILE"),
        QStringLiteral("a picture's preview as PNG"), [](Ctl &ctl) {
            const int width = value(ctl, QStringLiteral("width")).isEmpty()
                ? 400
                : value(ctl, QStringLiteral("width")).toInt();
            const int height = value(ctl, QStringLiteral("height")).isEmpty()
                ? 400
                : value(ctl, QStringLiteral("height")).toInt();
            ask(ctl,
                QJsonObject { { L::method, L::filePreview }, { L::path, arg(ctl, 0) },
                    { L::width, width }, { L::height, height } },
                [&ctl](const Frame &frame) {
                    const QByteArray png = firstPart(frame, 1);
                    if (png.isEmpty()) {
                        ctl.finish(
                            Exit::Failed, QStringLiteral("there is no preview of that file"));
                        return;
                    }
                    if (!writeOutput(ctl, png))
                        return;
                    ctl.print(frame.object(),
                        QStringLiteral("Wrote %1").arg(value(ctl, QStringLiteral("o"))));
                    ctl.finish(Exit::Done);
                });
        } });
    commands.append({ QStringLiteral("open-with"), QStringLiteral("open-with PATH"),
        QStringLiteral("the applications that open a file"), [](Ctl &ctl) {
            ask(ctl, QJsonObject { { L::method, L::fileApps }, { L::path, arg(ctl, 0) } },
                [&ctl](const Frame &frame) {
                    if (ctl.options().json) {
                        ctl.print(frame.object(), QString());
                    } else {
                        for (const QJsonValue &value : frame.object().value(L::apps).toArray())
                            ctl.out << value.toObject().value(L::id).toString() << '\n';
                        ctl.out.flush();
                    }
                    ctl.finish(Exit::Done);
                });
        } });
    commands.append({ QStringLiteral("open"), QStringLiteral("open PATH [--app APP]"),
        QStringLiteral("opens a file, with its default application or the one named"),
        [](Ctl &ctl) {
            const QString path = arg(ctl, 0);
            const auto open = [&ctl, path](const QString &id) {
                QJsonObject message { { L::method, L::fileOpen }, { L::path, path } };
                if (!id.isEmpty())
                    message.insert(L::id, id);
                tell(ctl, message, QStringLiteral("Opened %1").arg(path));
            };
            if (value(ctl, QStringLiteral("app")).isEmpty())
                open(QString());
            else
                ctl.resolveApp(L::fileOpen, value(ctl, QStringLiteral("app")), open);
        } });
    commands.append(level(QStringLiteral("volume"), L::volume,
        QStringLiteral("the output volume in percent, or sets it"), false));
    commands.append(
        level(QStringLiteral("mute"), L::volumeMute, QStringLiteral("mute, or sets it"), true));
    commands.append(level(QStringLiteral("brightness"), L::brightness,
        QStringLiteral("the display's brightness in percent, or sets it"), false));
    commands.append({ QStringLiteral("lock"), QStringLiteral("lock"),
        QStringLiteral("locks the screen"), [](Ctl &ctl) {
            tell(ctl, QJsonObject { { L::method, L::screenLock }, { L::value, true } },
                QStringLiteral("Locked the screen"));
        } });
    commands.append(systemAction(QStringLiteral("sleep"), L::sleep,
        QStringLiteral("puts the computer to sleep"),
        QStringLiteral("Asked the computer to sleep")));
    commands.append(systemAction(QStringLiteral("restart"), L::restart,
        QStringLiteral("restarts the computer"), QStringLiteral("Asked the computer to restart")));
    commands.append(systemAction(QStringLiteral("shutdown"), L::shutdown,
        QStringLiteral("shuts the computer down"),
        QStringLiteral("Asked the computer to shut down")));
    commands.append(systemAction(QStringLiteral("logout"), L::logout,
        QStringLiteral("logs the user out"), QStringLiteral("Asked the computer to log out")));
    commands.append(systemAction(QStringLiteral("play-pause"), L::playPause,
        QStringLiteral("plays or pauses media"), QStringLiteral("Play/pause")));
    commands.append(systemAction(QStringLiteral("next"), L::nextTrack,
        QStringLiteral("the next track"), QStringLiteral("Next track")));
    commands.append(systemAction(QStringLiteral("previous"), L::previousTrack,
        QStringLiteral("the previous track"), QStringLiteral("Previous track")));
    commands.append({ QStringLiteral("commands"), QStringLiteral("commands APP"),
        QStringLiteral("the web service's command set of an application"), [](Ctl &ctl) {
            ctl.resolveApp(L::appCommands, arg(ctl, 0), [&ctl](const QString &id) {
                // The computer answers once the web service has; it stays silent without one.
                ctl.setTimeoutMessage(
                    QStringLiteral("no command set came for %1 (does that computer have a web "
                                   "service configured?)")
                        .arg(id));
                ask(ctl, QJsonObject { { L::method, L::appCommands }, { L::id, id } },
                    [&ctl, id](const Frame &frame) {
                        const QJsonDocument set = QJsonDocument::fromJson(firstPart(frame, 0));
                        QJsonObject json = frame.object();
                        json.insert(QStringLiteral("commands"),
                            set.isArray() ? QJsonValue(set.array()) : QJsonValue(set.object()));
                        ctl.print(
                            json, QString::fromUtf8(set.toJson(QJsonDocument::Indented)).trimmed());
                        ctl.finish(Exit::Done);
                    });
            });
        } });
    commands.append({ QStringLiteral("unsupported"), QStringLiteral("unsupported"),
        QStringLiteral("the message codes that computer cannot serve"), [](Ctl &ctl) {
            ctl.request(QJsonObject { { L::method, L::unsupported } }, [&ctl](const Frame &frame) {
                if (frame.method() != L::unsupported)
                    return false;
                QStringList codes;
                for (const QJsonValue &code : frame.object().value(L::value).toArray())
                    codes.append(code.toString());
                ctl.print(frame.object(),
                    codes.isEmpty() ? QStringLiteral("(none)") : codes.join(QLatin1Char(' ')));
                ctl.finish(Exit::Done);
                return true;
            });
        } });
    commands.append({ QStringLiteral("watch"), QStringLiteral("watch"),
        QStringLiteral("prints every message the computer pushes, until interrupted"),
        [](Ctl &ctl) {
            // Everything that comes is shown; waiting is the point, so there is no time limit.
            ctl.request(QJsonObject(), [&ctl](const Frame &frame) {
                ctl.print(frame.object(),
                    QString::fromUtf8(
                        QJsonDocument(frame.object()).toJson(QJsonDocument::Compact)));
                return false;
            });
            ctl.keepWaiting();
        } });
    commands.append({ QStringLiteral("send"), QStringLiteral("send JSON"),
        QStringLiteral("sends one message and prints the replies"), [](Ctl &ctl) {
            QJsonParseError error;
            const QJsonDocument document = QJsonDocument::fromJson(arg(ctl, 0).toUtf8(), &error);
            if (!document.isObject()) {
                ctl.finish(Exit::Usage,
                    QStringLiteral("send takes a JSON object, such as '{\"_\":\"ia\"}' (%1)")
                        .arg(error.errorString()));
                return;
            }
            // File requests are answered when their work is done, maybe after later requests;
            // the others in order, so the answer to a following "un" closes them.
            static const QStringList fileCodes { L::directoryListing, L::fileIcon, L::filePreview,
                L::fileApps };
            const QString code = document.object().value(L::method).toString();
            auto waitingFor
                = std::make_shared<QString>(fileCodes.contains(code) ? code : QString());
            auto settled = std::make_shared<bool>(false);
            ctl.session()->send(document.object());
            ctl.request(QJsonObject { { L::method, L::unsupported } },
                [&ctl, waitingFor, settled](const Frame &frame) {
                    if (frame.method() == L::unsupported && !*settled) {
                        *settled = true;
                    } else {
                        if (frame.method() == *waitingFor)
                            waitingFor->clear();
                        ctl.print(frame.object(),
                            QString::fromUtf8(
                                QJsonDocument(frame.object()).toJson(QJsonDocument::Compact)));
                    }
                    if (*settled && waitingFor->isEmpty()) {
                        ctl.finish(Exit::Done);
                        return true;
                    }
                    return false;
                });
        } });
    return commands;
}

} // namespace

const QVector<CtlCommand> &ctlCommands()
{
    static const QVector<CtlCommand> commands = [] {
        QVector<CtlCommand> all = localCommands();
        all += makeCommands();
        return all;
    }();
    return commands;
}

const CtlCommand *findCommand(const QString &name)
{
    for (const CtlCommand &command : ctlCommands()) {
        if (command.name == name)
            return &command;
    }
    return nullptr;
}
