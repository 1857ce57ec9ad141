#include "NubraCore/Support/Defaults.h"

#include "NubraCore/Support/PrivateFiles.h"

#include <QFileInfo>

std::optional<qint64> Defaults::integer(const QString& key) const {
    const QVariant stored = value(key);
    if (!stored.isValid())
        return std::nullopt;
    if (stored.typeId() == QMetaType::Bool)
        return stored.toBool() ? 1 : 0;
    bool ok = false;
    const qint64 number = stored.toLongLong(&ok);
    if (ok)
        return number;
    // Text files store numbers as text; accept a whole number written with a fraction of zero.
    const double real = stored.toDouble(&ok);
    if (ok && real == double(qint64(real)))
        return qint64(real);
    return std::nullopt;
}

std::optional<QString> Defaults::string(const QString& key) const {
    const QVariant stored = value(key);
    if (!stored.isValid() || !stored.canConvert<QString>() || stored.typeId() == QMetaType::QStringList)
        return std::nullopt;
    return stored.toString();
}

std::optional<bool> Defaults::boolean(const QString& key) const {
    const QVariant stored = value(key);
    if (!stored.isValid())
        return std::nullopt;
    if (stored.typeId() == QMetaType::Bool)
        return stored.toBool();
    const QString text = stored.toString().trimmed().toLower();
    if (text == u"true" || text == u"yes" || text == u"1")
        return true;
    if (text == u"false" || text == u"no" || text == u"0")
        return false;
    return std::nullopt;
}

std::optional<QStringList> Defaults::stringList(const QString& key) const {
    const QVariant stored = value(key);
    if (!stored.isValid())
        return std::nullopt;
    if (stored.typeId() == QMetaType::QStringList)
        return stored.toStringList();
    if (stored.typeId() == QMetaType::QString)
        return QStringList{stored.toString()}; // an INI file stores a one-element list as plain text
    if (stored.typeId() == QMetaType::QVariantList) {
        QStringList list;
        for (const QVariant& item : stored.toList()) {
            if (item.typeId() != QMetaType::QString)
                return std::nullopt;
            list.append(item.toString());
        }
        return list;
    }
    return std::nullopt;
}

QVariant InMemoryDefaults::value(const QString& key) const {
    return m_values.value(key);
}

void InMemoryDefaults::setValue(const QString& key, const QVariant& value) {
    m_values.insert(key, value);
}

void InMemoryDefaults::remove(const QString& key) {
    m_values.remove(key);
}

bool InMemoryDefaults::contains(const QString& key) const {
    return m_values.contains(key);
}

SettingsDefaults::SettingsDefaults()
    : m_settings(std::make_unique<QSettings>(QStringLiteral("Nubra"), QStringLiteral("Nubra"))),
      m_ownFolder(QFileInfo(m_settings->fileName()).absolutePath()) {
    PrivateFiles::restrict(m_ownFolder);
    PrivateFiles::restrict(m_settings->fileName());
}

SettingsDefaults::SettingsDefaults(const QString& iniPath)
    : m_settings(std::make_unique<QSettings>(iniPath, QSettings::IniFormat)) {
    PrivateFiles::restrict(m_settings->fileName());
}

void SettingsDefaults::prepareToWrite() {
    if (m_preparedToWrite)
        return;
    m_preparedToWrite = true;
    // QSettings replaces the file with one of the same permissions, so a private empty file written
    // first keeps every later version private.
    if (!m_ownFolder.isEmpty())
        PrivateFiles::ensureFolder(m_ownFolder);
    PrivateFiles::ensureFile(m_settings->fileName());
}

QVariant SettingsDefaults::value(const QString& key) const {
    return m_settings->value(key);
}

void SettingsDefaults::setValue(const QString& key, const QVariant& value) {
    prepareToWrite();
    m_settings->setValue(key, value);
}

void SettingsDefaults::remove(const QString& key) {
    prepareToWrite();
    m_settings->remove(key);
}

bool SettingsDefaults::contains(const QString& key) const {
    return m_settings->contains(key);
}

void SettingsDefaults::sync() {
    m_settings->sync();
}
