#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

typedef struct _AtspiAccessible AtspiAccessible;

// One element of another application's user interface, through AT-SPI: typed reads of what
// the rest of the backend needs (role, names, states, text, actions, the document's address)
// and the few things it does to elements. Holds a reference to the element; copies share it.
// A failed read gives an empty value and logs the AT-SPI error, so callers never see errors.
class Accessible
{
public:
    // Typical element kinds, as far as this program tells them apart.
    enum Kind {
        Other,
        Application,
        Frame, // frames, windows and dialogs
        MenuBar,
        Menu, // a menu-bar entry or an entry with a submenu (GTK)
        MenuItem,
        MenuContainer, // the untitled pop-up that holds a menu's entries (Qt)
        Separator,
        SingleLineText, // entries, password fields, combo boxes
        MultiLineText,
        List, // lists and trees
        Table,
        Button, // push and toggle buttons
        Document, // a page shown by a browser
    };

    Accessible() = default;
    // Takes over the reference the caller holds (as AT-SPI's getters return them).
    static Accessible adopt(AtspiAccessible *element);
    // Adds a reference of its own.
    static Accessible share(AtspiAccessible *element);
    Accessible(const Accessible &other);
    Accessible &operator=(const Accessible &other);
    ~Accessible();

    bool isNull() const { return element == nullptr; }
    AtspiAccessible *handle() const { return element; }
    bool operator==(const Accessible &other) const { return element == other.element; }

    // Forgets what AT-SPI remembers of the element (role, name, states), so that the next reads
    // ask the application.
    void refresh() const;

    Kind kind() const;
    QString roleName() const;
    // Null when the element has no name at all; empty when it is empty.
    QString name() const;
    QString description() const;
    int processId() const;
    // At most `limit` children, in order; `ok` is false when they could not be read.
    QVector<Accessible> children(int limit = 1000, bool *ok = nullptr) const;
    // Sensitive and enabled: what a user could press.
    bool isEnabled() const;
    bool isFocused() const;
    bool isActive() const;
    bool isShowing() const;

    // The element's whole text (Text interface), or its numeric value (Value interface).
    QString value() const;
    bool hasText() const;
    // The selection's start and length, or the caret and 0 when nothing is selected.
    bool selection(int *start, int *length) const;
    // Replaces the text (EditableText interface).
    bool setText(const QString &text) const;

    QStringList actions() const;
    bool doAction(int index) const;
    // The address of the document (its "DocURL" or "URI" attribute); empty when it has none.
    QString documentUrl() const;

    // Breadth-first search below this element, at most `depth` levels deep.
    Accessible findFirst(Kind kind, int depth) const;

private:
    explicit Accessible(AtspiAccessible *element)
        : element(element)
    { }
    AtspiAccessible *element = nullptr;
};
