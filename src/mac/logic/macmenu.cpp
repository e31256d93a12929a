#include "macmenu.h"

#include "axerror.h"
#include "maclogging.h"
#include "random.h"

namespace MacMenu {

namespace {
void fill(
    const Reader &reader, MenuItem &parent, void *element, const std::function<QString()> &newId)
{
    const Read<std::vector<void *>> children = reader.children(element);
    if (!children.ok) {
        qCWarning(lcMac) << "Cannot get submenus" << AXErrorTag { children.error };
        return;
    }
    for (void *child : children.value) {
        const Read<Title> title = reader.title(child);
        if (!title.ok) {
            // A container without a title (the menu that holds a menu-bar entry's entries):
            // its entries belong to the parent directly.
            fill(reader, parent, child, newId);
            continue;
        }
        if (title.value.text == QLatin1String("Services"))
            continue;
        const Read<bool> enabled = reader.enabled(child);
        if (!enabled.ok || !enabled.value)
            continue;
        MenuItem item(newId(), title.value.isNull ? QString() : title.value.text, child);
        fill(reader, item, child, newId);
        parent.children.push_back(std::move(item));
    }
}

const MenuItem *findIn(const std::vector<MenuItem> &items, const QString &id)
{
    for (const MenuItem &item : items) {
        if (item.id == id)
            return &item;
        if (const MenuItem *found = findIn(item.children, id))
            return found;
    }
    return nullptr;
}
} // namespace

std::vector<MenuItem> build(const Reader &reader, const std::vector<void *> &menuBarChildren,
    const std::function<QString()> &newId)
{
    std::vector<MenuItem> items;
    items.reserve(menuBarChildren.size());
    for (void *child : menuBarChildren) {
        const Read<Title> title = reader.title(child);
        if (!title.ok || title.value.isNull || title.value.text == QLatin1String("Apple"))
            continue;
        MenuItem item(QString(), title.value.text, child);
        fill(reader, item, child, newId);
        items.push_back(std::move(item));
    }
    return items;
}

const MenuItem *find(const std::vector<MenuItem> &items, const QString &id)
{
    return findIn(items, id);
}

QString randomId() { return QString::number(Random::integer(0, 2147483647)); }

} // namespace MacMenu
