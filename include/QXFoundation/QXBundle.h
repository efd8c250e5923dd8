#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QMutex>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <optional>

// Keys of the information map, with the meaning the host application gives them.
QXFOUNDATION_EXPORT extern const QString QXBundleNameKey;               // "CFBundleName"
QXFOUNDATION_EXPORT extern const QString QXBundleDisplayNameKey;        // "CFBundleDisplayName"
QXFOUNDATION_EXPORT extern const QString QXBundleShortVersionStringKey; // "CFBundleShortVersionString"
QXFOUNDATION_EXPORT extern const QString QXBundleVersionKey;            // "CFBundleVersion"
QXFOUNDATION_EXPORT extern const QString QXBundleIdentifierKey;         // "CFBundleIdentifier"

/*!
  Information about a bundle of code and resources: the application itself
  (mainBundle()) or this library (frameworkBundle()).

  The main bundle's information map is derived from QCoreApplication:
  name = applicationName, display name = the GUI application's display name
  when one exists, short version and version = applicationVersion,
  identifier = the organisation domain reversed and the application name
  ("example.com" and "Viewer" give "com.example.Viewer"). The host
  application (and tests) can override each entry on its own: set it to a
  value (possibly empty) or mark it absent. Derived entries follow the
  QCoreApplication properties at the time they are read.

  The framework bundle's localizedStringForKey() looks texts up in the
  library's own translations, chosen by the default QLocale; its translator
  is never installed into the application.
*/
class QXFOUNDATION_EXPORT QXBundle
{
public:
    static QXBundle &mainBundle();
    static QXBundle &frameworkBundle();

    QXBundle(const QXBundle &) = delete;
    QXBundle &operator=(const QXBundle &) = delete;

    // The whole information map: derived entries merged with the overrides.
    QVariantMap infoDictionary() const;
    // One entry; an invalid QVariant when the entry is absent.
    QVariant objectForInfoDictionaryKey(const QString &key) const;
    QString bundleIdentifier() const;
    // The directory that holds the bundle: the application's directory for
    // the main bundle, the directory of the loaded library for the framework.
    QString bundlePath() const;

    // Overrides one entry with a value (an empty string is a value).
    void setInfoValue(const QString &key, const QVariant &value);
    // Makes an entry absent, whatever QCoreApplication says.
    void removeInfoValue(const QString &key);
    // Drops the override of one entry, or of every entry, so derived values show again.
    void resetInfoValue(const QString &key);
    void resetInfoValues();

    /*!
      The text for `key` in this bundle's translations for the default
      locale. A missing translation yields `value` when it is not empty, else
      the key itself. `table` selects a translation context; empty means the
      default table.
    */
    QString localizedStringForKey(const QString &key, const QString &value = QString(),
                                  const QString &table = QString()) const;

private:
    enum class Kind { Main, Framework };
    explicit QXBundle(Kind kind);
    QVariantMap derivedInfo() const;

    const Kind m_kind;
    mutable QMutex m_mutex;
    // nullopt marks an entry that is overridden as absent.
    QHash<QString, std::optional<QVariant>> m_overrides;
};
