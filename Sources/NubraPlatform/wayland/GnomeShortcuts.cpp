#include "NubraPlatform/wayland/GnomeShortcuts.h"

#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/wayland/DesktopShortcutKeys.h"

#include <QStringList>

// GIO names a struct member `signals`, which Qt defines as a keyword.
#undef signals
#include <gio/gio.h>

#include <memory>

namespace {

constexpr char mediaKeysSchema[] = "org.gnome.settings-daemon.plugins.media-keys";
constexpr char customSchema[] = "org.gnome.settings-daemon.plugins.media-keys.custom-keybinding";
constexpr char listKey[] = "custom-keybindings";
// Where GNOME keeps its own shortcuts; not every desktop installs all of them.
constexpr const char* builtInSchemas[] = {
    "org.gnome.desktop.wm.keybindings", "org.gnome.shell.keybindings",          mediaKeysSchema,
    "org.gnome.mutter.keybindings",     "org.gnome.mutter.wayland.keybindings",
};

struct Unref {
    void operator()(GSettings* settings) const { g_object_unref(settings); }
    void operator()(GSettingsSchema* schema) const { g_settings_schema_unref(schema); }
};
using Settings = std::unique_ptr<GSettings, Unref>;
using Schema = std::unique_ptr<GSettingsSchema, Unref>;

Schema installedSchema(const char* id) {
    GSettingsSchemaSource* source = g_settings_schema_source_get_default();
    return Schema(source ? g_settings_schema_source_lookup(source, id, TRUE) : nullptr);
}

Settings customBinding(const QString& path) {
    return Settings(g_settings_new_with_path(customSchema, path.toUtf8().constData()));
}

QString stringOf(GSettings* settings, const char* key) {
    gchar* value = g_settings_get_string(settings, key);
    QString text = QString::fromUtf8(value);
    g_free(value);
    return text;
}

QStringList stringsOf(GVariant* value) {
    QStringList strings;
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING)) {
        strings << QString::fromUtf8(g_variant_get_string(value, nullptr));
    } else if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING_ARRAY)) {
        gsize count = 0;
        const gchar** items = g_variant_get_strv(value, &count);
        for (gsize i = 0; i < count; ++i)
            strings << QString::fromUtf8(items[i]);
        g_free(items);
    }
    return strings;
}

QStringList customPaths(GSettings* mediaKeys) {
    GVariant* value = g_settings_get_value(mediaKeys, listKey);
    const QStringList paths = stringsOf(value);
    g_variant_unref(value);
    return paths;
}

void setCustomPaths(GSettings* mediaKeys, const QStringList& paths) {
    QList<QByteArray> bytes;
    for (const QString& path : paths)
        bytes << path.toUtf8();
    std::vector<const gchar*> strv;
    for (const QByteArray& path : bytes)
        strv.push_back(path.constData());
    strv.push_back(nullptr);
    g_settings_set_strv(mediaKeys, listKey, strv.data());
}

bool binds(const QString& accelerator, const DesktopShortcutKeys& keys) {
    const std::optional<DesktopShortcutKeys> bound = DesktopShortcutKeys::fromGnome(accelerator);
    return bound && *bound == keys;
}

// What a built-in shortcut does, as GNOME's settings describe it ("Close window"), else its key.
QString builtInUser(const DesktopShortcutKeys& keys) {
    for (const char* id : builtInSchemas) {
        const Schema schema = installedSchema(id);
        if (!schema)
            continue;
        const Settings settings(g_settings_new(id));
        gchar** names = g_settings_schema_list_keys(schema.get());
        QString user;
        for (gchar** name = names; *name && user.isEmpty(); ++name) {
            if (qstrcmp(*name, listKey) == 0)
                continue;
            GVariant* value = g_settings_get_value(settings.get(), *name);
            const QStringList accelerators = stringsOf(value);
            g_variant_unref(value);
            for (const QString& accelerator : accelerators) {
                if (!binds(accelerator, keys))
                    continue;
                GSettingsSchemaKey* key = g_settings_schema_get_key(schema.get(), *name);
                const gchar* summary = g_settings_schema_key_get_summary(key);
                user = QString::fromUtf8(summary && *summary ? summary : *name);
                g_settings_schema_key_unref(key);
                break;
            }
        }
        g_strfreev(names);
        if (!user.isEmpty())
            return user;
    }
    return {};
}

} // namespace

GnomeShortcuts::GnomeShortcuts(QString program) : m_command(lookupCommand(program)) {}

bool GnomeShortcuts::available() {
    return installedSchema(mediaKeysSchema) && installedSchema(customSchema);
}

GnomeShortcuts::Status GnomeShortcuts::query(const HotkeyCombo& combo) {
    const std::optional<DesktopShortcutKeys> keys = DesktopShortcutKeys::of(combo);
    if (!keys || !available())
        return {false, {}, !available()};
    const Settings mediaKeys(g_settings_new(mediaKeysSchema));
    Status status{false, {}, false};
    const QString own = QString::fromLatin1(ownPath);
    for (const QString& path : customPaths(mediaKeys.get())) {
        const Settings binding = customBinding(path);
        if (!binds(stringOf(binding.get(), "binding"), *keys))
            continue;
        if (path == own)
            status.active = stringOf(binding.get(), "command") == m_command;
        else if (status.takenBy.isEmpty())
            status.takenBy = stringOf(binding.get(), "name");
    }
    if (status.takenBy.isEmpty())
        status.takenBy = builtInUser(*keys);
    return status;
}

GnomeShortcuts::Status GnomeShortcuts::add(const HotkeyCombo& combo) {
    const Status status = query(combo);
    if (status.failed || !status.takenBy.isEmpty() || status.active == true)
        return status;
    const QString own = QString::fromLatin1(ownPath);
    const Settings binding = customBinding(own);
    const QString name =
        L10n::t(QStringLiteral("Nubra: explain selection"), QStringLiteral("Nubra：解释选中内容"));
    g_settings_set_string(binding.get(), "name", name.toUtf8().constData());
    g_settings_set_string(binding.get(), "command", m_command.toUtf8().constData());
    g_settings_set_string(binding.get(), "binding",
                          DesktopShortcutKeys::of(combo)->gnome().toUtf8().constData());
    // The entry is complete before the settings daemon sees its path.
    const Settings mediaKeys(g_settings_new(mediaKeysSchema));
    QStringList paths = customPaths(mediaKeys.get());
    if (!paths.contains(own))
        setCustomPaths(mediaKeys.get(), paths << own);
    g_settings_sync();
    return query(combo);
}

GnomeShortcuts::Status GnomeShortcuts::remove() {
    if (!available())
        return {false, {}, true};
    const QString own = QString::fromLatin1(ownPath);
    const Settings mediaKeys(g_settings_new(mediaKeysSchema));
    QStringList paths = customPaths(mediaKeys.get());
    if (paths.removeAll(own) == 0)
        return {false, {}, false};
    setCustomPaths(mediaKeys.get(), paths);
    const Settings binding = customBinding(own);
    for (const char* key : {"name", "command", "binding"})
        g_settings_reset(binding.get(), key);
    g_settings_sync();
    return {false, {}, false};
}
