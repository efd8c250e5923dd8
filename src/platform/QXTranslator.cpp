#include "platform/QXTranslator_p.h"

#include <QHash>
#include <QLocale>
#include <QMutex>
#include <QMutexLocker>
#include <QTranslator>

#include <memory>

namespace {

// One translator per locale name, loaded on first use and kept for the life
// of the process: a locale switch back and forth costs nothing.
struct TranslatorCache
{
    QMutex mutex;
    QHash<QString, std::shared_ptr<const QTranslator>> byLocale;
};

Q_GLOBAL_STATIC(TranslatorCache, translatorCache)

std::shared_ptr<const QTranslator> translatorFor(const QLocale &locale)
{
    TranslatorCache *cache = translatorCache();
    QMutexLocker locker(&cache->mutex);
    const QString name = locale.name();
    auto it = cache->byLocale.constFind(name);
    if (it != cache->byLocale.constEnd())
        return *it;
    auto translator = std::make_shared<QTranslator>();
    std::shared_ptr<const QTranslator> loaded;
    if (translator->load(locale, QStringLiteral("qxfoundation"), QStringLiteral("_"),
                         QStringLiteral(":/qxfoundation/i18n")))
        loaded = std::move(translator);
    cache->byLocale.insert(name, loaded);
    return loaded;
}

} // namespace

QString QXTranslator::translate(const QString &key, const QString &context)
{
    const std::shared_ptr<const QTranslator> translator = translatorFor(QLocale());
    if (!translator)
        return QString();
    const QByteArray contextName = context.isEmpty() ? QByteArray(defaultContext) : context.toUtf8();
    const QString text = translator->translate(contextName.constData(), key.toUtf8().constData());
    return text.isEmpty() ? QString() : text;
}
