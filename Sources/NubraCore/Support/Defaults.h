#pragma once

#include <QHash>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <optional>

// The user-defaults store: a flat key-value map of settings. The typed readers answer nothing for an
// absent key or a value that cannot be read as the asked type, so callers fall back key by key.
class Defaults {
public:
    virtual ~Defaults() = default;

    virtual QVariant value(const QString& key) const = 0; // invalid when absent
    virtual void setValue(const QString& key, const QVariant& value) = 0;
    virtual void remove(const QString& key) = 0;
    virtual bool contains(const QString& key) const = 0;

    std::optional<qint64> integer(const QString& key) const;
    std::optional<QString> string(const QString& key) const;
    std::optional<bool> boolean(const QString& key) const;
    std::optional<QStringList> stringList(const QString& key) const;
};

// Defaults held in memory; what tests and headless tools use.
class InMemoryDefaults final : public Defaults {
public:
    QVariant value(const QString& key) const override;
    void setValue(const QString& key, const QVariant& value) override;
    void remove(const QString& key) override;
    bool contains(const QString& key) const override;

private:
    QHash<QString, QVariant> m_values;
};

// Defaults in QSettings: the user defaults on macOS, ~/.config/Nubra/Nubra.conf on Linux. The file (and
// the application's own folder) is readable by its owner only, as it may hold an older version's
// credentials; an existing one is made so when opened.
class SettingsDefaults final : public Defaults {
public:
    SettingsDefaults(); // the application's own settings
    explicit SettingsDefaults(const QString& iniPath);

    QVariant value(const QString& key) const override;
    void setValue(const QString& key, const QVariant& value) override;
    void remove(const QString& key) override;
    bool contains(const QString& key) const override;

    void sync();

private:
    void prepareToWrite();

    std::unique_ptr<QSettings> m_settings;
    QString m_ownFolder; // only for the application's own settings
    bool m_preparedToWrite = false;
};
