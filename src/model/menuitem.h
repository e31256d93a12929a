#pragma once

#include <QString>

#include <vector>

// One entry of an application's menu bar, with its submenu.
struct MenuItem
{
    MenuItem(const QString &id, const QString &name, void *element)
        : id(id)
        , name(name)
        , element(element)
    { }

    QString id;
    QString name;
    // The platform's handle of the menu element; not owned.
    void *element = nullptr;
    std::vector<MenuItem> children;
};
