#include "json.h"

#include <QLocale>
#include <QVariant>

#include <cmath>
#include <cstring>

#include <QHash>
#include <QJsonArray>
#include <QJsonParseError>
#include <QJsonValue>
#include <QString>
#include <QVarLengthArray>
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

char hexDigit(uint value) { return char(value < 10 ? '0' + value : 'a' + value - 10); }

void writeEscapedUnit(QByteArray &out, uint unit)
{
    out += "\\u";
    out += hexDigit((unit >> 12) & 0xf);
    out += hexDigit((unit >> 8) & 0xf);
    out += hexDigit((unit >> 4) & 0xf);
    out += hexDigit(unit & 0xf);
}

// As Qt writes strings: quotes, backslashes and control characters escaped, everything else as
// UTF-8, and a surrogate without its partner as an escape.
void writeString(QByteArray &out, const QString &text)
{
    const QChar *at = text.constData();
    const QChar *end = at + text.size();
    // Most strings need no escape and hold no surrogate: Qt's own conversion writes them, and
    // those in ASCII (keys, identifiers, most names) go straight into the buffer.
    bool plain = true;
    bool ascii = true;
    for (const QChar *c = at; c < end; ++c) {
        const ushort unit = c->unicode();
        if (unit < 0x20 || unit == '"' || unit == '\\' || QChar::isSurrogate(unit)) {
            plain = false;
            break;
        }
        ascii = ascii && unit < 0x80;
    }
    if (plain && ascii) {
        const int start = out.size();
        out.resize(start + int(end - at) + 2);
        char *to = out.data() + start;
        *to++ = '"';
        for (const QChar *c = at; c < end; ++c)
            *to++ = char(c->unicode());
        *to = '"';
        return;
    }
    out += '"';
    if (plain) {
        out += text.toUtf8();
        out += '"';
        return;
    }
    while (at < end) {
        const ushort unit = at->unicode();
        ++at;
        if (unit < 0x80) {
            if (unit >= 0x20 && unit != '"' && unit != '\\') {
                out += char(unit);
                continue;
            }
            out += '\\';
            switch (unit) {
            case '"':
                out += '"';
                break;
            case '\\':
                out += '\\';
                break;
            case '\b':
                out += 'b';
                break;
            case '\f':
                out += 'f';
                break;
            case '\n':
                out += 'n';
                break;
            case '\r':
                out += 'r';
                break;
            case '\t':
                out += 't';
                break;
            default:
                out += "u00";
                out += hexDigit(unit >> 4);
                out += hexDigit(unit & 0xf);
            }
        } else if (unit < 0x800) {
            out += char(0xc0 | (unit >> 6));
            out += char(0x80 | (unit & 0x3f));
        } else if (!QChar::isSurrogate(unit)) {
            out += char(0xe0 | (unit >> 12));
            out += char(0x80 | ((unit >> 6) & 0x3f));
            out += char(0x80 | (unit & 0x3f));
        } else if (QChar::isHighSurrogate(unit) && at < end && at->isLowSurrogate()) {
            const uint point = QChar::surrogateToUcs4(unit, at->unicode());
            ++at;
            out += char(0xf0 | (point >> 18));
            out += char(0x80 | ((point >> 12) & 0x3f));
            out += char(0x80 | ((point >> 6) & 0x3f));
            out += char(0x80 | (point & 0x3f));
        } else {
            writeEscapedUnit(out, unit);
        }
    }
    out += '"';
}

void writeValue(QByteArray &out, const QJsonValue &value);

// With a method, the object is written as if "_" held it: in its place among the keys, which
// Qt keeps in the order of their UTF-16 code units, and instead of any "_" already there.
void writeObject(QByteArray &out, const QJsonObject &object, const QString *method = nullptr)
{
    out += '{';
    bool first = true;
    auto writeMethod = [&] {
        if (!first)
            out += ',';
        first = false;
        out += "\"_\":";
        writeString(out, *method);
        method = nullptr;
    };
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        const QString key = it.key();
        if (method) {
            const int order = key.compare(QLatin1String("_"));
            if (order >= 0) {
                writeMethod();
                if (order == 0)
                    continue;
            }
        }
        if (!first)
            out += ',';
        first = false;
        writeString(out, key);
        out += ':';
        writeValue(out, it.value());
    }
    if (method)
        writeMethod();
    out += '}';
}

void writeArray(QByteArray &out, const QJsonArray &array)
{
    out += '[';
    bool first = true;
    for (const QJsonValue &value : array) {
        if (!first)
            out += ',';
        first = false;
        writeValue(out, value);
    }
    out += ']';
}

void writeValue(QByteArray &out, const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        out += value.toBool() ? "true" : "false";
        break;
    case QJsonValue::Double: {
        // Qt keeps whole numbers given as integers apart and writes them exactly, as long as a
        // double holds them exactly. Every other number is written as the shortest text that
        // reads back as the same double: without exponent when it is whole and below 2^64.
        const QVariant variant = value.toVariant();
        constexpr qint64 exact = qint64(1) << 53;
        const qint64 whole = variant.toLongLong();
        if (variant.userType() == QMetaType::LongLong && whole >= -exact && whole <= exact) {
            out += QByteArray::number(whole);
            break;
        }
        const double number
            = variant.userType() == QMetaType::LongLong ? double(whole) : value.toDouble();
        if (!qIsFinite(number)) {
            out += "null";
            break;
        }
        const double magnitude = std::abs(number);
        const bool integral
            = magnitude < 18446744073709551616.0 && std::floor(magnitude) == magnitude;
        out += QByteArray::number(number, integral ? 'f' : 'g', QLocale::FloatingPointShortest);
        break;
    }
    case QJsonValue::String:
        writeString(out, value.toString());
        break;
    case QJsonValue::Array:
        writeArray(out, value.toArray());
        break;
    case QJsonValue::Object:
        writeObject(out, value.toObject());
        break;
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        out += "null";
        break;
    }
}

} // namespace

namespace Json {

bool repeatsContainerKey(const QByteArray &text)
{
    // Most messages are one flat object: with no second container anywhere in the text (not
    // even inside a string) no key can repeat one.
    const char *begin = text.constData();
    const char *end = begin + text.size();
    if (!memchr(begin, '[', size_t(text.size()))) {
        const char *first = static_cast<const char *>(memchr(begin, '{', size_t(text.size())));
        if (!first || !memchr(first + 1, '{', size_t(end - first - 1)))
            return false;
    }
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

void appendString(QByteArray &out, const QString &text) { writeString(out, text); }

QByteArray compact(const QJsonObject &object)
{
    QByteArray out;
    out.reserve(64);
    writeObject(out, object);
    return out;
}

QByteArray compact(const QJsonObject &object, const QString &method)
{
    QByteArray out;
    out.reserve(64);
    writeObject(out, object, &method);
    return out;
}

QByteArray compact(const QString &method, std::initializer_list<Field> fields)
{
    // Qt's order, kept stable so that of a repeated key the last one given is the one seen last.
    QVarLengthArray<const Field *, 8> order;
    for (const Field &field : fields) {
        int at = order.size();
        order.append(&field);
        while (at > 0 && order[at - 1]->key->compare(*field.key) > 0) {
            order[at] = order[at - 1];
            --at;
        }
        order[at] = &field;
    }
    QByteArray out;
    out.reserve(64);
    out += '{';
    bool first = true;
    bool methodWritten = false;
    auto separate = [&] {
        if (!first)
            out += ',';
        first = false;
    };
    for (int i = 0; i < order.size(); ++i) {
        const Field &field = *order[i];
        if (i + 1 < order.size() && *order[i + 1]->key == *field.key)
            continue;
        if (!methodWritten) {
            const int place = field.key->compare(QLatin1String("_"));
            if (place >= 0) {
                separate();
                out += "\"_\":";
                writeString(out, method);
                methodWritten = true;
                if (place == 0)
                    continue;
            }
        }
        if (!field.string && field.json.isUndefined())
            continue;
        separate();
        writeString(out, *field.key);
        out += ':';
        if (field.string)
            writeString(out, *field.string);
        else
            writeValue(out, field.json);
    }
    if (!methodWritten) {
        separate();
        out += "\"_\":";
        writeString(out, method);
    }
    out += '}';
    return out;
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
