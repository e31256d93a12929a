#include <atspi/atspi.h>

#include "accessible.h"

#include "linuxlogging.h"

#include <QQueue>

Q_LOGGING_CATEGORY(lcLinuxA11y, "velm.linux.accessibility")

namespace {

// Texts longer than this are cut: a client shows a field, not a book.
constexpr int maxTextLength = 100000;

// Logs and clears an AT-SPI error; true when there was one.
bool failed(GError *&error, const char *what)
{
    if (!error)
        return false;
    qCWarning(lcLinuxA11y) << "AT-SPI" << what << "failed:" << error->message;
    g_clear_error(&error);
    return true;
}

QString takeString(gchar *text)
{
    const QString result = text ? QString::fromUtf8(text) : QString();
    g_free(text);
    return result;
}

// Interfaces come with a reference of their own.
template<typename Interface>
struct Iface
{
    explicit Iface(Interface *iface)
        : iface(iface)
    { }
    ~Iface()
    {
        if (iface)
            g_object_unref(iface);
    }
    Iface(const Iface &) = delete;
    Iface &operator=(const Iface &) = delete;
    explicit operator bool() const { return iface != nullptr; }
    Interface *iface;
};

} // namespace

Accessible Accessible::adopt(AtspiAccessible *element) { return Accessible(element); }

Accessible Accessible::share(AtspiAccessible *element)
{
    if (element)
        g_object_ref(element);
    return Accessible(element);
}

Accessible::Accessible(const Accessible &other)
    : element(other.element)
{
    if (element)
        g_object_ref(element);
}

Accessible &Accessible::operator=(const Accessible &other)
{
    if (other.element)
        g_object_ref(other.element);
    if (element)
        g_object_unref(element);
    element = other.element;
    return *this;
}

Accessible::~Accessible()
{
    if (element)
        g_object_unref(element);
}

Accessible::Kind Accessible::kind() const
{
    if (!element)
        return Other;
    GError *error = nullptr;
    const AtspiRole role = atspi_accessible_get_role(element, &error);
    if (failed(error, "role"))
        return Other;
    switch (role) {
    case ATSPI_ROLE_APPLICATION:
        return Application;
    case ATSPI_ROLE_FRAME:
    case ATSPI_ROLE_WINDOW:
    case ATSPI_ROLE_DIALOG:
    case ATSPI_ROLE_FILE_CHOOSER:
        return Frame;
    case ATSPI_ROLE_MENU_BAR:
        return MenuBar;
    case ATSPI_ROLE_MENU:
        return Menu;
    case ATSPI_ROLE_MENU_ITEM:
    case ATSPI_ROLE_CHECK_MENU_ITEM:
    case ATSPI_ROLE_RADIO_MENU_ITEM:
    case ATSPI_ROLE_TEAROFF_MENU_ITEM:
        return MenuItem;
    case ATSPI_ROLE_POPUP_MENU:
        return MenuContainer;
    case ATSPI_ROLE_SEPARATOR:
        return Separator;
    case ATSPI_ROLE_ENTRY:
    case ATSPI_ROLE_PASSWORD_TEXT:
    case ATSPI_ROLE_COMBO_BOX:
        return SingleLineText;
    case ATSPI_ROLE_TEXT: {
        // Both toolkits call entries and text areas "text"; text areas say they are multi-line
        // (Qt does not say that its entries are single-line).
        AtspiStateSet *states = atspi_accessible_get_state_set(element);
        const bool multiLine = states && atspi_state_set_contains(states, ATSPI_STATE_MULTI_LINE);
        if (states)
            g_object_unref(states);
        return multiLine ? MultiLineText : SingleLineText;
    }
    case ATSPI_ROLE_LIST:
    case ATSPI_ROLE_LIST_BOX:
    case ATSPI_ROLE_TREE:
    case ATSPI_ROLE_TREE_TABLE:
        return List;
    case ATSPI_ROLE_TABLE:
        return Table;
    case ATSPI_ROLE_PUSH_BUTTON:
    case ATSPI_ROLE_TOGGLE_BUTTON:
    case ATSPI_ROLE_PUSH_BUTTON_MENU:
        return Button;
    case ATSPI_ROLE_DOCUMENT_WEB:
    case ATSPI_ROLE_DOCUMENT_FRAME:
        return Document;
    default:
        return Other;
    }
}

QString Accessible::roleName() const
{
    if (!element)
        return QString();
    GError *error = nullptr;
    QString role = takeString(atspi_accessible_get_role_name(element, &error));
    failed(error, "role name");
    return role;
}

QString Accessible::name() const
{
    if (!element)
        return QString();
    GError *error = nullptr;
    const QString name = takeString(atspi_accessible_get_name(element, &error));
    failed(error, "name");
    return name;
}

QString Accessible::description() const
{
    if (!element)
        return QString();
    GError *error = nullptr;
    const QString description = takeString(atspi_accessible_get_description(element, &error));
    failed(error, "description");
    return description;
}

int Accessible::processId() const
{
    if (!element)
        return 0;
    GError *error = nullptr;
    const guint pid = atspi_accessible_get_process_id(element, &error);
    return failed(error, "process id") ? 0 : int(pid);
}

QVector<Accessible> Accessible::children(int limit, bool *ok) const
{
    QVector<Accessible> result;
    if (ok)
        *ok = false;
    if (!element)
        return result;
    GError *error = nullptr;
    const gint count = atspi_accessible_get_child_count(element, &error);
    if (failed(error, "child count"))
        return result;
    const int wanted = qMin(int(count), limit);
    result.reserve(wanted);
    for (int i = 0; i < wanted; ++i) {
        AtspiAccessible *child = atspi_accessible_get_child_at_index(element, i, &error);
        if (failed(error, "child"))
            return result;
        if (child)
            result.append(adopt(child));
    }
    if (ok)
        *ok = true;
    return result;
}

namespace {
bool hasStates(AtspiAccessible *element, std::initializer_list<AtspiStateType> wanted)
{
    if (!element)
        return false;
    AtspiStateSet *states = atspi_accessible_get_state_set(element);
    if (!states)
        return false;
    bool all = true;
    for (AtspiStateType state : wanted)
        all = all && atspi_state_set_contains(states, state);
    g_object_unref(states);
    return all;
}
} // namespace

bool Accessible::isEnabled() const
{
    return hasStates(element, { ATSPI_STATE_SENSITIVE, ATSPI_STATE_ENABLED });
}

void Accessible::refresh() const
{
    if (element)
        atspi_accessible_clear_cache(element);
}

bool Accessible::isFocused() const { return hasStates(element, { ATSPI_STATE_FOCUSED }); }

bool Accessible::isActive() const { return hasStates(element, { ATSPI_STATE_ACTIVE }); }

bool Accessible::isShowing() const { return hasStates(element, { ATSPI_STATE_SHOWING }); }

bool Accessible::hasText() const
{
    return element && Iface<AtspiText>(atspi_accessible_get_text_iface(element));
}

QString Accessible::value() const
{
    if (!element)
        return QString();
    GError *error = nullptr;
    if (Iface<AtspiText> text { atspi_accessible_get_text_iface(element) }) {
        const gint count = atspi_text_get_character_count(text.iface, &error);
        if (failed(error, "character count"))
            return QString();
        gchar *content
            = atspi_text_get_text(text.iface, 0, qMin(int(count), maxTextLength), &error);
        if (failed(error, "text"))
            return QString();
        return takeString(content);
    }
    if (Iface<AtspiValue> number { atspi_accessible_get_value_iface(element) }) {
        const gdouble current = atspi_value_get_current_value(number.iface, &error);
        if (!failed(error, "value"))
            return QString::number(current);
    }
    return QString();
}

bool Accessible::selection(int *start, int *length) const
{
    if (!element)
        return false;
    Iface<AtspiText> text { atspi_accessible_get_text_iface(element) };
    if (!text)
        return false;
    GError *error = nullptr;
    const gint selections = atspi_text_get_n_selections(text.iface, &error);
    if (failed(error, "selections"))
        return false;
    if (selections > 0) {
        AtspiRange *range = atspi_text_get_selection(text.iface, 0, &error);
        if (failed(error, "selection") || !range)
            return false;
        *start = qMin(range->start_offset, range->end_offset);
        *length = qAbs(range->end_offset - range->start_offset);
        g_free(range);
        return true;
    }
    const gint caret = atspi_text_get_caret_offset(text.iface, &error);
    if (failed(error, "caret"))
        return false;
    *start = caret;
    *length = 0;
    return true;
}

bool Accessible::setText(const QString &value) const
{
    if (!element)
        return false;
    Iface<AtspiEditableText> editable { atspi_accessible_get_editable_text_iface(element) };
    if (!editable)
        return false;
    GError *error = nullptr;
    const gboolean done
        = atspi_editable_text_set_text_contents(editable.iface, value.toUtf8().constData(), &error);
    return !failed(error, "set text") && done;
}

QStringList Accessible::actions() const
{
    QStringList names;
    if (!element)
        return names;
    Iface<AtspiAction> action { atspi_accessible_get_action_iface(element) };
    if (!action)
        return names;
    GError *error = nullptr;
    const gint count = atspi_action_get_n_actions(action.iface, &error);
    if (failed(error, "actions"))
        return names;
    for (gint i = 0; i < count; ++i) {
        names << takeString(atspi_action_get_action_name(action.iface, i, &error));
        if (failed(error, "action name"))
            break;
    }
    return names;
}

bool Accessible::doAction(int index) const
{
    if (!element)
        return false;
    Iface<AtspiAction> action { atspi_accessible_get_action_iface(element) };
    if (!action)
        return false;
    GError *error = nullptr;
    const gboolean done = atspi_action_do_action(action.iface, index, &error);
    return !failed(error, "action") && done;
}

QString Accessible::documentUrl() const
{
    if (!element)
        return QString();
    Iface<AtspiDocument> document { atspi_accessible_get_document_iface(element) };
    if (!document)
        return QString();
    // Firefox and Chromium say "DocURL"; WebKit says "URI".
    for (QByteArray attribute : { QByteArrayLiteral("DocURL"), QByteArrayLiteral("URI") }) {
        GError *error = nullptr;
        const QString url = takeString(
            atspi_document_get_document_attribute_value(document.iface, attribute.data(), &error));
        g_clear_error(&error);
        if (!url.isEmpty())
            return url;
    }
    return QString();
}

Accessible Accessible::findFirst(Kind wanted, int depth) const
{
    QQueue<QPair<Accessible, int>> queue;
    queue.enqueue({ *this, 0 });
    while (!queue.isEmpty()) {
        const auto [candidate, level] = queue.dequeue();
        if (level > 0 && candidate.kind() == wanted)
            return candidate;
        if (level < depth) {
            const QVector<Accessible> children = candidate.children(200);
            for (const Accessible &child : children)
                queue.enqueue({ child, level + 1 });
        }
    }
    return Accessible();
}
