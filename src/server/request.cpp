#include "request.h"

#include "json.h"
#include "l.h"

#include <QJsonDocument>
#include <QJsonParseError>

#include <cstring>

namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// What may stand in a string read in one pass: printable ASCII but the quote and the
// backslash. Anything else (escapes, other scripts) is left to Qt's parser.
struct PlainBytes
{
    bool plain[256] = {};
    constexpr PlainBytes()
    {
        for (int c = 0x20; c < 0x7f; ++c)
            plain[c] = c != '"' && c != '\\';
    }
};
constexpr PlainBytes plainBytes;
bool isPlain(char c) { return plainBytes.plain[uchar(c)]; }

// More members than any request has; beyond it the search for a repeated key would grow.
constexpr int maxFlatMembers = 32;

// Whole numbers up to 15 digits are exact in a double and need no conversion rules.
constexpr int maxIntegerDigits = 15;

} // namespace

Request::Request(const QJsonObject &object)
    : object(object)
{ }

bool Request::read(const QByteArray &input, QJsonParseError *error)
{
    object = QJsonObject();
    members.clear();
    text = input;
    flat = readFlat(input);
    if (flat) {
        if (error) {
            error->error = QJsonParseError::NoError;
            error->offset = 0;
        }
        return true;
    }
    members.clear();
    text.clear();
    const QJsonDocument document = Json::parse(input, error);
    if (document.isNull())
        return false;
    object = document.object();
    return true;
}

// Accepts only a single object whose members are plain strings, whole numbers without sign
// trouble, true, false and null, each key once; anything else returns false and goes to Qt.
// All it accepts, Qt accepts too and reads as the same values.
bool Request::readFlat(const QByteArray &input)
{
    const char *begin = input.constData();
    const char *end = begin + input.size();
    const char *p = begin;
    auto skipSpace = [&] {
        while (p < end && isSpace(*p))
            ++p;
    };
    auto readString = [&](int *at, int *length) {
        if (p == end || *p != '"')
            return false;
        const char *start = ++p;
        while (p < end && isPlain(*p))
            ++p;
        if (p == end || *p != '"')
            return false;
        *at = int(start - begin);
        *length = int(p - start);
        ++p;
        return true;
    };
    auto readLiteral = [&](const char *literal, int length) {
        if (end - p < length || memcmp(p, literal, size_t(length)) != 0)
            return false;
        p += length;
        return true;
    };

    skipSpace();
    if (p == end || *p != '{')
        return false;
    ++p;
    skipSpace();
    if (p < end && *p == '}') {
        ++p;
        skipSpace();
        return p == end;
    }
    for (;;) {
        Member member;
        if (!readString(&member.key, &member.keyLength))
            return false;
        const char *key = begin + member.key;
        for (const Member &other : members) {
            if (other.keyLength == member.keyLength
                && (member.keyLength == 0
                    || (begin[other.key] == key[0]
                        && memcmp(begin + other.key, key, size_t(member.keyLength)) == 0)))
                return false;
        }
        skipSpace();
        if (p == end || *p != ':')
            return false;
        ++p;
        skipSpace();
        if (p == end)
            return false;
        const char c = *p;
        if (c == '"') {
            if (!readString(&member.value, &member.valueLength))
                return false;
            member.kind = Kind::String;
        } else if (c == '-' || (c >= '0' && c <= '9')) {
            const char *start = p;
            if (c == '-')
                ++p;
            if (p == end)
                return false;
            if (*p == '0') {
                // "-0" is Qt's to read.
                if (c == '-')
                    return false;
                ++p;
            } else if (*p >= '1' && *p <= '9') {
                while (p < end && *p >= '0' && *p <= '9')
                    ++p;
            } else {
                return false;
            }
            if (p - start - (c == '-' ? 1 : 0) > maxIntegerDigits)
                return false;
            member.value = int(start - begin);
            member.valueLength = int(p - start);
            member.kind = Kind::Integer;
        } else if (readLiteral("true", 4)) {
            member.kind = Kind::True;
        } else if (readLiteral("false", 5)) {
            member.kind = Kind::False;
        } else if (readLiteral("null", 4)) {
            member.kind = Kind::Null;
        } else {
            return false;
        }
        if (member.kind >= Kind::True) {
            member.value = 0;
            member.valueLength = 0;
        }
        if (members.size() == maxFlatMembers)
            return false;
        members.append(member);
        // A fraction, an exponent or anything else after a value ends up here as well.
        skipSpace();
        if (p == end)
            return false;
        if (*p == '}') {
            ++p;
            break;
        }
        if (*p != ',')
            return false;
        ++p;
        skipSpace();
    }
    skipSpace();
    return p == end;
}

int Request::indexOf(const QString &key) const
{
    const char *bytes = text.constData();
    for (int i = 0; i < members.size(); ++i) {
        const Member &member = members[i];
        if (member.keyLength != key.size())
            continue;
        const char *at = bytes + member.key;
        const QChar *unit = key.constData();
        int j = 0;
        while (j < member.keyLength && unit[j].unicode() == ushort(uchar(at[j])))
            ++j;
        if (j == member.keyLength)
            return i;
    }
    return -1;
}

QJsonValue Request::valueAt(int index) const
{
    const Member &member = members[index];
    const char *at = text.constData() + member.value;
    switch (member.kind) {
    case Kind::String:
        return QJsonValue(QString::fromLatin1(at, member.valueLength));
    case Kind::Integer: {
        qint64 number = 0;
        const bool negative = *at == '-';
        for (int i = negative ? 1 : 0; i < member.valueLength; ++i)
            number = number * 10 + (at[i] - '0');
        return QJsonValue(negative ? -number : number);
    }
    case Kind::True:
        return QJsonValue(true);
    case Kind::False:
        return QJsonValue(false);
    case Kind::Null:
        break;
    }
    return QJsonValue(QJsonValue::Null);
}

QJsonValue Request::value(const QString &key) const
{
    if (!flat)
        return object.value(key);
    const int index = indexOf(key);
    return index < 0 ? QJsonValue(QJsonValue::Undefined) : valueAt(index);
}

QString Request::string(const QString &key) const
{
    if (!flat)
        return object.value(key).toString();
    const int index = indexOf(key);
    if (index < 0 || members[index].kind != Kind::String)
        return QString();
    return QString::fromLatin1(text.constData() + members[index].value, members[index].valueLength);
}

bool Request::contains(const QString &key) const
{
    return flat ? indexOf(key) >= 0 : object.contains(key);
}

int Request::size() const { return flat ? members.size() : object.size(); }

QString Request::method() const { return string(L::method); }

QJsonObject Request::toObject() const
{
    if (!flat)
        return object;
    QJsonObject result;
    for (int i = 0; i < members.size(); ++i) {
        result.insert(QString::fromLatin1(text.constData() + members[i].key, members[i].keyLength),
            valueAt(i));
    }
    return result;
}
