#include "json.h"

#include <QLocale>
#include <QVariant>

#include <cmath>
#include <cstring>
#include <utility>

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

// The text being written: a QByteArray filled through a pointer, so that putting a character
// is a store rather than a call into Qt that checks for sharing.
class Writer
{
public:
    Writer(QByteArray &&start, int room)
        : buffer(std::move(start))
    {
        const int used = buffer.size();
        buffer.resize(used + room);
        point(used);
    }
    explicit Writer(int room)
        : Writer(QByteArray(), room)
    { }

    Writer &operator+=(char c)
    {
        if (at == end)
            grow(1);
        *at++ = c;
        return *this;
    }
    Writer &operator+=(const char *text) { return append(text, int(strlen(text))); }
    Writer &operator+=(const QByteArray &text) { return append(text.constData(), text.size()); }
    Writer &append(const char *text, int length)
    {
        memcpy(reserve(length), text, size_t(length));
        at += length;
        return *this;
    }
    // Where the next length bytes go; commit() says how many of them were written.
    char *reserve(int length)
    {
        if (end - at < length)
            grow(length);
        return at;
    }
    void commit(int length) { at += length; }
    QByteArray take()
    {
        buffer.truncate(int(at - buffer.data()));
        return std::move(buffer);
    }

private:
    void point(int used)
    {
        at = buffer.data() + used;
        end = buffer.data() + buffer.size();
    }
    void grow(int length)
    {
        const int used = int(at - buffer.data());
        buffer.resize(qMax(2 * buffer.size(), used + length));
        point(used);
    }

    QByteArray buffer;
    char *at = nullptr;
    char *end = nullptr;
};

void writeEscapedUnit(Writer &out, uint unit)
{
    out += "\\u";
    out += hexDigit((unit >> 12) & 0xf);
    out += hexDigit((unit >> 8) & 0xf);
    out += hexDigit((unit >> 4) & 0xf);
    out += hexDigit(unit & 0xf);
}

// As Qt writes strings: quotes, backslashes and control characters escaped, everything else as
// UTF-8, and a surrogate without its partner as an escape.
void writeString(Writer &out, const QString &text)
{
    const QChar *at = text.constData();
    const QChar *end = at + text.size();
    // Most strings are plain ASCII (keys, identifiers, most names): copied as they are read.
    // The first character that is not ends the copy and the string is written by the general
    // rules instead.
    char *const first = out.reserve(int(end - at) + 2);
    char *to = first;
    *to++ = '"';
    const QChar *c = at;
    for (; c < end; ++c) {
        const ushort unit = c->unicode();
        if (unit < 0x20 || unit >= 0x80 || unit == '"' || unit == '\\')
            break;
        *to++ = char(unit);
    }
    if (c == end) {
        *to++ = '"';
        out.commit(int(to - first));
        return;
    }
    // What came before c was plain ASCII.
    bool plain = true;
    for (; c < end; ++c) {
        const ushort unit = c->unicode();
        if (unit < 0x20 || unit == '"' || unit == '\\' || QChar::isSurrogate(unit)) {
            plain = false;
            break;
        }
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

void writeValue(Writer &out, const QJsonValue &value);

// Where key stands against "_" in Qt's order of UTF-16 code units: below 0 before it.
int orderAgainstMethodKey(const QString &key)
{
    if (key.isEmpty())
        return -1;
    const ushort first = key.at(0).unicode();
    if (first != '_')
        return first < '_' ? -1 : 1;
    return key.size() == 1 ? 0 : 1;
}

void writeInteger(Writer &out, qint64 number)
{
    char digits[24];
    char *end = digits + sizeof digits;
    char *at = end;
    quint64 magnitude = number < 0 ? quint64(0) - quint64(number) : quint64(number);
    do {
        *--at = char('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude);
    if (number < 0)
        *--at = '-';
    out.append(at, int(end - at));
}

// With a method, the object is written as if "_" held it: in its place among the keys, which
// Qt keeps in the order of their UTF-16 code units, and instead of any "_" already there.
void writeObject(Writer &out, const QJsonObject &object, const QString *method = nullptr)
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
            const int order = orderAgainstMethodKey(key);
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

void writeArray(Writer &out, const QJsonArray &array)
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

void writeValue(Writer &out, const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        out += value.toBool() ? "true" : "false";
        break;
    case QJsonValue::Double: {
        // Whole numbers a double holds exactly are written as integers, whichever way Qt stores
        // them (the rules below come to the same digits for them).
        const double given = value.toDouble();
        constexpr double exactLimit = 9007199254740992.0;
        if (std::floor(given) == given && std::abs(given) <= exactLimit
            && !(given == 0 && std::signbit(given))) {
            writeInteger(out, qint64(given));
            break;
        }
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

void appendString(QByteArray &out, const QString &text)
{
    Writer writer(std::move(out), text.size() + 2);
    writeString(writer, text);
    out = writer.take();
}

QByteArray compact(const QJsonObject &object)
{
    Writer out(64);
    writeObject(out, object);
    return out.take();
}

QByteArray compact(const QJsonObject &object, const QString &method)
{
    Writer out(64);
    writeObject(out, object, &method);
    return out.take();
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
    // Room for all of it when the text is plain, as a reply's usually is.
    int room = 8 + method.size();
    for (const Field &field : fields)
        room += field.key->size() + (field.string ? field.string->size() : 24) + 4;
    Writer out(room);
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
            const int place = orderAgainstMethodKey(*field.key);
            if (place >= 0) {
                separate();
                out += "\"_\":";
                writeString(out, method);
                methodWritten = true;
                if (place == 0)
                    continue;
            }
        }
        if (!field.string && field.json->isUndefined())
            continue;
        separate();
        writeString(out, *field.key);
        out += ':';
        if (field.string)
            writeString(out, *field.string);
        else
            writeValue(out, *field.json);
    }
    if (!methodWritten) {
        separate();
        out += "\"_\":";
        writeString(out, method);
    }
    out += '}';
    return out.take();
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
