#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QVarLengthArray>

class QJsonParseError;

// One message from a client: the members of a JSON object, as handlers read them. Nearly every
// request is a single flat object of short ASCII strings, whole numbers and literals; such text
// is read in one pass, and a member becomes a QJsonValue only when a handler asks for it. Any
// other text goes to Json::parse, so what is accepted, what is refused and what each value
// reads as are exactly what Qt's parser makes of it.
class Request
{
public:
    // The empty request, which asks a handler for the current state.
    Request() = default;
    explicit Request(const QJsonObject &object);

    // Reads a message. False, with error set, when the text is not a JSON document by
    // Json::parse's rules; a document that is an array reads as an empty request, as
    // QJsonDocument::object() gives.
    bool read(const QByteArray &text, QJsonParseError *error = nullptr);

    // As QJsonObject's: Undefined for a key that is not there.
    QJsonValue value(const QString &key) const;
    // value(key).toString() without the QJsonValue: the text, empty when the member is missing
    // or not a string.
    QString string(const QString &key) const;
    bool contains(const QString &key) const;
    bool isEmpty() const { return size() == 0; }
    int size() const;
    // The message code ("_"), empty when missing or not a string.
    QString method() const;
    QJsonObject toObject() const;

    // True when the last read took the one-pass way (for tests and benchmarks).
    bool isFlat() const { return flat; }

private:
    enum class Kind : char { String, Integer, True, False, Null };
    struct Member
    {
        int key;
        int keyLength;
        int value;
        int valueLength;
        Kind kind;
    };

    bool readFlat(const QByteArray &text);
    int indexOf(const QString &key) const;
    QJsonValue valueAt(int index) const;

    QByteArray text;
    QVarLengthArray<Member, 6> members;
    QJsonObject object;
    bool flat = false;
};
