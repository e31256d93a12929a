#pragma once

#include "menuitem.h"

#include <QString>

#include <functional>
#include <vector>

// Reading an application's menu bar into a tree of MenuItem, and finding an entry by its
// identifier: the macOS rules, over elements the backend reads through the accessibility
// interface (here behind an abstract reader, so the rules run anywhere).
namespace MacMenu {

// One read of an element's attribute: whether it worked, and the error code when not.
template<typename T>
struct Read
{
    bool ok = false;
    int error = 0;
    T value {};
};

struct Title
{
    // A title attribute that exists but holds nothing.
    bool isNull = false;
    QString text;
};

// What the backend reads of elements; handles are the platform's (AXUIElementRef).
class Reader
{
public:
    virtual ~Reader() = default;
    virtual Read<std::vector<void *>> children(void *element) const = 0;
    virtual Read<Title> title(void *element) const = 0;
    virtual Read<bool> enabled(void *element) const = 0;
};

// The menu bar's entries (`menuBarChildren`, already read) as top-level items with the empty
// identifier; "Apple" and untitled entries are left out. Entries below get random decimal
// identifiers from `newId`; containers without a title are flattened, "Services" and disabled
// entries are left out with everything below them. A failed read of an element's children
// logs "Cannot get submenus" with the error and leaves that branch empty.
std::vector<MenuItem> build(const Reader &reader, const std::vector<void *> &menuBarChildren,
    const std::function<QString()> &newId);

// Depth-first, in pre-order: the first item with the identifier; null when there is none.
const MenuItem *find(const std::vector<MenuItem> &items, const QString &id);

// A fresh identifier: the decimal text of a random integer from 0 to 2147483647.
QString randomId();

} // namespace MacMenu
