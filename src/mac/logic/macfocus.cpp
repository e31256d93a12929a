#include "macfocus.h"

#include "l.h"

#include <QJsonDocument>

namespace MacFocus {

App::ElementRole classify(const QString &role)
{
    // In this order, as the roles were added.
    if (role == QLatin1String("AXTextField") || role == QLatin1String("AXComboBox"))
        return App::Text;
    if (role == QLatin1String("AXTextArea"))
        return App::TextArea;
    if (role == QLatin1String("AXButton"))
        return App::Button;
    if (role == QLatin1String("AXList") || role == QLatin1String("AXOutline"))
        return App::List;
    if (role == QLatin1String("AXTable"))
        return App::Table;
    if (role == QLatin1String("AXWindow"))
        return App::Window;
    return App::Null;
}

Report report(const QString &role, const QString &title, const QString &description,
    const QString &value, const std::optional<Range> &selection)
{
    Report result;
    result.role = classify(role);
    if (result.role == App::Null)
        return result;
    result.title = title.isEmpty() ? description : title;
    result.value = value;
    if (result.role == App::Text && selection) {
        result.extras.insert(L::index, qint64(selection->location));
        result.extras.insert(L::length, qint64(selection->length));
    }
    return result;
}

QString browserScript(const QString &appName, const QByteArray &commands)
{
    if (commands.isEmpty())
        return QString();
    const QJsonValue body = QJsonDocument::fromJson(commands).object().value(QStringLiteral("u"));
    if (!body.isString())
        return QString();
    return QStringLiteral("tell application \"") + appName + QStringLiteral("\"\n")
        + body.toString() + QStringLiteral("\nend tell");
}

QString addressFromOutput(const QByteArray &output)
{
    const int end = output.indexOf('\0');
    return QString::fromLatin1(end < 0 ? output : output.left(end));
}

} // namespace MacFocus
