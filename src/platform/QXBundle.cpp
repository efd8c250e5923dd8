#include <QXFoundation/QXBundle.h>

#include "platform/QXPlatform_p.h"
#include "platform/QXTranslator_p.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLibraryInfo>
#include <QMutexLocker>
#include <QStringList>

#include <dlfcn.h>

const QString QXBundleNameKey = QStringLiteral("CFBundleName");
const QString QXBundleDisplayNameKey = QStringLiteral("CFBundleDisplayName");
const QString QXBundleShortVersionStringKey = QStringLiteral("CFBundleShortVersionString");
const QString QXBundleVersionKey = QStringLiteral("CFBundleVersion");
const QString QXBundleIdentifierKey = QStringLiteral("CFBundleIdentifier");

QXBundle::QXBundle(Kind kind)
    : m_kind(kind)
{
}

QXBundle &QXBundle::mainBundle()
{
    static QXBundle bundle(Kind::Main);
    return bundle;
}

QXBundle &QXBundle::frameworkBundle()
{
    static QXBundle bundle(Kind::Framework);
    return bundle;
}

static QString reversedDomainIdentifier(const QString &domain, const QString &name)
{
    QStringList parts = domain.split(QLatin1Char('.'), Qt::SkipEmptyParts);
    std::reverse(parts.begin(), parts.end());
    if (!name.isEmpty())
        parts.append(name);
    return parts.join(QLatin1Char('.'));
}

QVariantMap QXBundle::derivedInfo() const
{
    QVariantMap info;
    if (m_kind == Kind::Framework) {
        info.insert(QXBundleNameKey, QStringLiteral("QXFoundation"));
        info.insert(QXBundleIdentifierKey, QXPlatform::frameworkBundleIdentifier());
        info.insert(QXBundleShortVersionStringKey, QStringLiteral(QXFOUNDATION_VERSION_STRING));
        info.insert(QXBundleVersionKey, QStringLiteral(QXFOUNDATION_VERSION_STRING));
        return info;
    }
    const QString name = QCoreApplication::applicationName();
    if (!name.isEmpty())
        info.insert(QXBundleNameKey, name);
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        const QString displayName = QGuiApplication::applicationDisplayName();
        if (!displayName.isEmpty())
            info.insert(QXBundleDisplayNameKey, displayName);
    }
    const QString version = QCoreApplication::applicationVersion();
    if (!version.isEmpty()) {
        info.insert(QXBundleShortVersionStringKey, version);
        info.insert(QXBundleVersionKey, version);
    }
    const QString identifier = reversedDomainIdentifier(QCoreApplication::organizationDomain(), name);
    if (!identifier.isEmpty())
        info.insert(QXBundleIdentifierKey, identifier);
    return info;
}

QVariantMap QXBundle::infoDictionary() const
{
    QVariantMap info = derivedInfo();
    QMutexLocker locker(&m_mutex);
    for (auto it = m_overrides.cbegin(); it != m_overrides.cend(); ++it) {
        if (it.value())
            info.insert(it.key(), *it.value());
        else
            info.remove(it.key());
    }
    return info;
}

QVariant QXBundle::objectForInfoDictionaryKey(const QString &key) const
{
    {
        QMutexLocker locker(&m_mutex);
        auto it = m_overrides.constFind(key);
        if (it != m_overrides.constEnd())
            return it.value().value_or(QVariant());
    }
    return derivedInfo().value(key);
}

QString QXBundle::bundleIdentifier() const
{
    return objectForInfoDictionaryKey(QXBundleIdentifierKey).toString();
}

QString QXBundle::bundlePath() const
{
    if (m_kind == Kind::Main)
        return QCoreApplication::applicationDirPath();
    // The directory of the shared object this function lives in.
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void *>(&QXBundle::frameworkBundle), &info) && info.dli_fname)
        return QFileInfo(QString::fromLocal8Bit(info.dli_fname)).absolutePath();
    return QString();
}

void QXBundle::setInfoValue(const QString &key, const QVariant &value)
{
    QMutexLocker locker(&m_mutex);
    m_overrides.insert(key, value);
}

void QXBundle::removeInfoValue(const QString &key)
{
    QMutexLocker locker(&m_mutex);
    m_overrides.insert(key, std::nullopt);
}

void QXBundle::resetInfoValue(const QString &key)
{
    QMutexLocker locker(&m_mutex);
    m_overrides.remove(key);
}

void QXBundle::resetInfoValues()
{
    QMutexLocker locker(&m_mutex);
    m_overrides.clear();
}

QString QXBundle::localizedStringForKey(const QString &key, const QString &value, const QString &table) const
{
    QString text;
    if (m_kind == Kind::Framework) {
        text = QXTranslator::translate(key, table);
    } else {
        const QByteArray context = table.isEmpty() ? QByteArrayLiteral("Localizable") : table.toUtf8();
        const QByteArray source = key.toUtf8();
        text = QCoreApplication::translate(context.constData(), source.constData());
        if (text == key)
            text.clear();
    }
    if (!text.isEmpty())
        return text;
    return value.isEmpty() ? key : value;
}
