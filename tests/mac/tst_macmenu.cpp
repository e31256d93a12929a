#include "logcapture.h"
#include "macmenu.h"

#include <QtTest>

#include <map>

using namespace MacMenu;

namespace {
// A menu bar as the accessibility interface would show it, built in the test.
struct Node
{
    // No title attribute at all (a container), or a title that is null.
    bool hasTitle = true;
    bool nullTitle = false;
    QString title;
    bool enabledReadable = true;
    bool enabled = true;
    // The children cannot be read (with this error).
    int childrenError = 0;
    std::vector<Node *> children;
};

class TreeReader : public Reader
{
public:
    Read<std::vector<void *>> children(void *element) const override
    {
        const auto *node = static_cast<Node *>(element);
        if (node->childrenError)
            return { false, node->childrenError, {} };
        std::vector<void *> result(node->children.begin(), node->children.end());
        return { true, 0, result };
    }
    Read<Title> title(void *element) const override
    {
        const auto *node = static_cast<Node *>(element);
        if (!node->hasTitle)
            return { false, -25205, {} };
        return { true, 0, Title { node->nullTitle, node->title } };
    }
    Read<bool> enabled(void *element) const override
    {
        const auto *node = static_cast<Node *>(element);
        if (!node->enabledReadable)
            return { false, -25205, false };
        return { true, 0, node->enabled };
    }
};

// Identifiers counted up, so that the test knows them.
std::function<QString()> counter()
{
    auto next = std::make_shared<int>(0);
    return [next] { return QString::number(++*next); };
}

QStringList names(const std::vector<MenuItem> &items)
{
    QStringList result;
    for (const MenuItem &item : items)
        result << item.name;
    return result;
}
} // namespace

// The menu bar read into a tree, and entries found by identifier.
class TestMacMenu : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void topLevelEntriesHaveTheEmptyIdentifier();
    void containersAreFlattened();
    void appleAndServicesAreNeverListed();
    void disabledEntriesAndTheirSubmenusAreLeftOut();
    void unreadableSubmenusAreLoggedAndLeftEmpty();
    void emptyIdentifierFindsTheFirstMenuBarEntry();
    void searchIsDepthFirstInPreOrder();
    void identifiersOfAnEarlierReadNoLongerMatch();
    void randomIdentifiersAreDecimal();

private:
    Node *node(const QString &title, std::vector<Node *> children = {});
    std::vector<void *> bar() const;
    std::vector<Node *> all;
    std::vector<Node *> menuBar;
    Node *edit = nullptr;
    Node *transform = nullptr;
    Node *upper = nullptr;
};

Node *TestMacMenu::node(const QString &title, std::vector<Node *> children)
{
    auto *created = new Node;
    created->title = title;
    created->children = std::move(children);
    all.push_back(created);
    return created;
}

std::vector<void *> TestMacMenu::bar() const { return { menuBar.begin(), menuBar.end() }; }

void TestMacMenu::init()
{
    // Apple | File: New, Services > ..., Close (disabled) > Sub | Edit: [container: Copy,
    // Transform > [container: Upper, Lower]]
    Node *appleMenu = node(QStringLiteral("Apple"), { node(QStringLiteral("About")) });
    Node *services = node(QStringLiteral("Services"), { node(QStringLiteral("Mail")) });
    Node *close = node(QStringLiteral("Close"), { node(QStringLiteral("Sub")) });
    close->enabled = false;
    Node *fileMenu = node(QString(), { node(QStringLiteral("New")), services, close });
    fileMenu->hasTitle = false;
    Node *file = node(QStringLiteral("File"), { fileMenu });
    upper = node(QStringLiteral("Upper"));
    Node *transformMenu = node(QString(), { upper, node(QStringLiteral("Lower")) });
    transformMenu->hasTitle = false;
    transform = node(QStringLiteral("Transform"), { transformMenu });
    Node *editMenu = node(QString(), { node(QStringLiteral("Copy")), transform });
    editMenu->hasTitle = false;
    edit = node(QStringLiteral("Edit"), { editMenu });
    menuBar = { appleMenu, file, edit };
}

void TestMacMenu::cleanup()
{
    qDeleteAll(all);
    all.clear();
}

void TestMacMenu::topLevelEntriesHaveTheEmptyIdentifier()
{
    const std::vector<MenuItem> items = build(TreeReader(), bar(), counter());
    QCOMPARE(names(items), (QStringList { QStringLiteral("File"), QStringLiteral("Edit") }));
    for (const MenuItem &item : items)
        QVERIFY(item.id.isEmpty());
    QCOMPARE(items[1].element, static_cast<void *>(edit));
}

void TestMacMenu::containersAreFlattened()
{
    const std::vector<MenuItem> items = build(TreeReader(), bar(), counter());
    const MenuItem &editItem = items[1];
    QCOMPARE(names(editItem.children),
        (QStringList { QStringLiteral("Copy"), QStringLiteral("Transform") }));
    QCOMPARE(names(editItem.children[1].children),
        (QStringList { QStringLiteral("Upper"), QStringLiteral("Lower") }));
    QCOMPARE(editItem.children[1].children[0].element, static_cast<void *>(upper));
}

void TestMacMenu::appleAndServicesAreNeverListed()
{
    const std::vector<MenuItem> items = build(TreeReader(), bar(), counter());
    QVERIFY(!names(items).contains(QStringLiteral("Apple")));
    QVERIFY(!names(items[0].children).contains(QStringLiteral("Services")));
    QVERIFY(!find(items, QStringLiteral("Mail")));
}

void TestMacMenu::disabledEntriesAndTheirSubmenusAreLeftOut()
{
    Node *unreadable = node(QStringLiteral("Unknown state"));
    unreadable->enabledReadable = false;
    static_cast<Node *>(menuBar[1]->children[0])->children.push_back(unreadable);
    const std::vector<MenuItem> items = build(TreeReader(), bar(), counter());
    QCOMPARE(names(items[0].children), QStringList { QStringLiteral("New") });
}

void TestMacMenu::unreadableSubmenusAreLoggedAndLeftEmpty()
{
    transform->childrenError = -25204;
    LogCapture log;
    const std::vector<MenuItem> items = build(TreeReader(), bar(), counter());
    QVERIFY(items[1].children[1].children.empty());
    const QStringList lines = log.lines().filter(QStringLiteral("Cannot get submenus"));
    QCOMPARE(lines.size(), 1);
    QVERIFY(lines.first().contains(QStringLiteral("kAXErrorCannotComplete")));
    // The rest of the tree is there.
    QCOMPARE(names(items[1].children),
        (QStringList { QStringLiteral("Copy"), QStringLiteral("Transform") }));
}

void TestMacMenu::emptyIdentifierFindsTheFirstMenuBarEntry()
{
    const std::vector<MenuItem> items = build(TreeReader(), bar(), counter());
    const MenuItem *found = find(items, QString());
    QVERIFY(found);
    QCOMPARE(found->name, QStringLiteral("File"));
}

void TestMacMenu::searchIsDepthFirstInPreOrder()
{
    // Identifiers in the order entries were read: New 1, Copy 2, Transform 3, Upper 4, Lower 5.
    const std::vector<MenuItem> items = build(TreeReader(), bar(), counter());
    QCOMPARE(find(items, QStringLiteral("1"))->name, QStringLiteral("New"));
    QCOMPARE(find(items, QStringLiteral("4"))->name, QStringLiteral("Upper"));
    QCOMPARE(find(items, QStringLiteral("5"))->name, QStringLiteral("Lower"));
    QVERIFY(!find(items, QStringLiteral("6")));
    // With repeated identifiers, the first in pre-order wins: a parent before its children.
    const std::vector<MenuItem> same
        = build(TreeReader(), bar(), [] { return QStringLiteral("7"); });
    QCOMPARE(find(same, QStringLiteral("7"))->name, QStringLiteral("New"));
}

void TestMacMenu::identifiersOfAnEarlierReadNoLongerMatch()
{
    const std::vector<MenuItem> before = build(TreeReader(), bar(), &randomId);
    const QString id = before[1].children[1].children[0].id;
    QVERIFY(find(before, id));
    // Read again (after the application lost and regained current status): fresh identifiers.
    const std::vector<MenuItem> after = build(TreeReader(), bar(), &randomId);
    QCOMPARE(after[1].children[1].children[0].name, QStringLiteral("Upper"));
    QVERIFY(after[1].children[1].children[0].id != id);
}

void TestMacMenu::randomIdentifiersAreDecimal()
{
    for (int i = 0; i < 100; ++i) {
        bool ok = false;
        const qint64 value = randomId().toLongLong(&ok);
        QVERIFY(ok);
        QVERIFY(value >= 0 && value <= 2147483647);
    }
}

QTEST_GUILESS_MAIN(TestMacMenu)
#include "tst_macmenu.moc"
