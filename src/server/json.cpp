#include "json.h"

#include <QHash>
#include <QJsonParseError>
#include <QString>
#include <QVector>

namespace {

// Nothing this program reads nests deeper; a peer's deeply nested text costs work for nothing.
constexpr int maxDepth = 64;

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Reads the string starting at the quote at `at`; leaves `at` after the closing quote. The
// escapes are decoded so that "a" and "\u0061" compare equal, as they are the same key.
bool readString(const QByteArray &text, int &at, QString *decoded)
{
    ++at;
    QByteArray plain;
    while (at < text.size()) {
        const char c = text.at(at);
        if (c == '"') {
            ++at;
            if (decoded)
                decoded->append(QString::fromUtf8(plain));
            return true;
        }
        if (c != '\\') {
            if (decoded)
                plain.append(c);
            ++at;
            continue;
        }
        if (at + 1 >= text.size())
            return false;
        const char escape = text.at(at + 1);
        at += 2;
        if (!decoded)
            continue;
        // Plain bytes collected so far go first, then the escaped character.
        decoded->append(QString::fromUtf8(plain));
        plain.clear();
        switch (escape) {
        case 'b':
            decoded->append(QLatin1Char('\b'));
            break;
        case 'f':
            decoded->append(QLatin1Char('\f'));
            break;
        case 'n':
            decoded->append(QLatin1Char('\n'));
            break;
        case 'r':
            decoded->append(QLatin1Char('\r'));
            break;
        case 't':
            decoded->append(QLatin1Char('\t'));
            break;
        case 'u': {
            if (at + 4 > text.size())
                return false;
            int unit = 0;
            for (int i = 0; i < 4; ++i) {
                const int digit = hexValue(text.at(at + i));
                if (digit < 0)
                    return false;
                unit = unit * 16 + digit;
            }
            at += 4;
            decoded->append(QChar(ushort(unit)));
            break;
        }
        default:
            decoded->append(QLatin1Char(escape));
            break;
        }
    }
    return false;
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

} // namespace

namespace Json {

bool repeatsContainerKey(const QByteArray &text)
{
    // One entry per open container: for objects, each key seen and whether one of its values
    // was a container; arrays have no keys.
    struct Level
    {
        bool object = false;
        QHash<QString, bool> keys;
    };
    QVector<Level> levels;
    // The key whose value comes next in the innermost object ("" is a key too).
    QString pendingKey;
    bool hasPendingKey = false;
    bool expectingKey = false;
    int at = 0;
    while (at < text.size()) {
        const char c = text.at(at);
        if (isSpace(c) || c == ':') {
            ++at;
            continue;
        }
        if (c == '"') {
            if (expectingKey) {
                QString key;
                if (!readString(text, at, &key))
                    return false;
                Level &level = levels.last();
                if (level.keys.value(key, false))
                    return true;
                level.keys.insert(key, false);
                pendingKey = key;
                hasPendingKey = true;
                expectingKey = false;
            } else if (!readString(text, at, nullptr)) {
                return false;
            }
            continue;
        }
        if (c == '{' || c == '[') {
            if (!levels.isEmpty() && levels.last().object && hasPendingKey)
                levels.last().keys[pendingKey] = true;
            // Refused; not looked at any further.
            if (levels.size() >= maxDepth)
                return true;
            levels.append(Level { c == '{', {} });
            hasPendingKey = false;
            expectingKey = c == '{';
            ++at;
            continue;
        }
        if (c == '}' || c == ']') {
            if (levels.isEmpty())
                return false;
            levels.removeLast();
            hasPendingKey = false;
            expectingKey = false;
            ++at;
            continue;
        }
        if (c == ',') {
            hasPendingKey = false;
            expectingKey = !levels.isEmpty() && levels.last().object;
            ++at;
            continue;
        }
        // Numbers, true, false, null.
        ++at;
    }
    return false;
}

QJsonDocument parse(const QByteArray &text, QJsonParseError *error)
{
    if (repeatsContainerKey(text)) {
        if (error) {
            error->error = QJsonParseError::IllegalValue;
            error->offset = 0;
        }
        return QJsonDocument();
    }
    return QJsonDocument::fromJson(text, error);
}

} // namespace Json
