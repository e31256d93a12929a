#pragma once

#include <QByteArray>
#include <QJsonDocument>

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

} // namespace Json
