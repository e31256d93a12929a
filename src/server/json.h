#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <initializer_list>

class QJsonParseError;

// JSON from outside the program (clients, the web service). Qt 5's parser leaks the earlier
// value when an object repeats a key whose first value was an array or an object, so anyone
// could grow this program's memory with such messages; those are refused as unparseable.
namespace Json {

// A null document, with `error` set, when the text is not JSON, repeats such a key, or nests
// arrays and objects more than 64 deep.
QJsonDocument parse(const QByteArray &text, QJsonParseError *error = nullptr);

// True when some object in the text repeats a key whose earlier value was an array or an
// object, and for nesting more than 64 deep.
bool repeatsContainerKey(const QByteArray &text);

// The same text as QJsonDocument(object).toJson(QJsonDocument::Compact), byte for byte, made
// without Qt's detour through its binary form: every message the server sends is written here.
QByteArray compact(const QJsonObject &object);
// The same for the object with "_" set to method (replacing any), without changing the object.
QByteArray compact(const QJsonObject &object, const QString &method);
// One member of a reply written straight to text. The fields given to compact() below make
// the same bytes as the QJsonObject made from the same pairs (keys in Qt's order, the last of a
// repeated key kept, an undefined value leaving its key out) without making that object. Key
// and string value are referred to, not copied: a field lasts as long as the statement that
// writes it.
class Field
{
public:
    Field(const QString &key, const QString &value)
        : key(&key)
        , string(&value)
    { }
    Field(const QString &key, const QJsonValue &value)
        : key(&key)
        , json(&value)
    { }

private:
    friend QByteArray compact(const QString &method, std::initializer_list<Field> fields);
    const QString *key;
    const QString *string = nullptr;
    const QJsonValue *json = nullptr;
};

// The object of those fields with "_" set to method, as compact(object, method) writes it.
QByteArray compact(const QString &method, std::initializer_list<Field> fields);

// Appends text as a JSON string, quoted and escaped exactly as compact() writes strings, for
// handlers that write large replies themselves.
void appendString(QByteArray &out, const QString &text);

} // namespace Json
