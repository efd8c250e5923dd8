#include <QXFoundation/QXAppStoreLookup.h>

#include <QXFoundation/QXRate.h>

#include "platform/QXFormat_p.h"
#include "rate/QXRate_p.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QMutexLocker>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <climits>
#include <cmath>
#include <memory>

namespace {

const QString httpResponseErrorDomain = QStringLiteral("HTTPResponseErrorDomain");

struct StoreURLSetting
{
    QMutex mutex;
    QUrl url;
};

StoreURLSetting &storeURLSetting()
{
    static StoreURLSetting setting;
    return setting;
}

QUrl defaultStoreURL()
{
    return QUrl(QStringLiteral("https://itunes.apple.com"));
}

bool isAsciiLetter(QChar c)
{
    return (c >= QLatin1Char('a') && c <= QLatin1Char('z')) || (c >= QLatin1Char('A') && c <= QLatin1Char('Z'));
}

bool isAsciiDigit(QChar c)
{
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

} // namespace

// --- Helpers shared with QXRate -----------------------------------------------

qint64 QXRateInternal::integerValue(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool() ? 1 : 0;
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::Char:
    case QMetaType::SChar:
        return value.toLongLong();
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        return qint64(value.toULongLong());
    case QMetaType::Double:
    case QMetaType::Float: {
        const double number = value.toDouble();
        if (std::isnan(number))
            return 0;
        if (number >= 9223372036854775807.0)
            return LLONG_MAX;
        if (number <= -9223372036854775808.0)
            return LLONG_MIN;
        return qint64(number);
    }
    case QMetaType::QString: {
        const QString text = value.toString();
        qsizetype i = 0;
        while (i < text.size() && text.at(i).isSpace())
            ++i;
        bool negative = false;
        if (i < text.size() && (text.at(i) == QLatin1Char('-') || text.at(i) == QLatin1Char('+')))
            negative = text.at(i++) == QLatin1Char('-');
        quint64 magnitude = 0;
        const quint64 limit = negative ? quint64(LLONG_MAX) + 1 : quint64(LLONG_MAX);
        for (; i < text.size() && isAsciiDigit(text.at(i)); ++i) {
            const quint64 digit = quint64(text.at(i).unicode() - '0');
            if (magnitude > (limit - digit) / 10) {
                magnitude = limit; // saturates, like an overflowing decimal read
                break;
            }
            magnitude = magnitude * 10 + digit;
        }
        if (negative)
            return magnitude == quint64(LLONG_MAX) + 1 ? LLONG_MIN : -qint64(magnitude);
        return qint64(magnitude);
    }
    default:
        return 0;
    }
}

QString QXRateInternal::textValue(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
        return value.toString();
    default:
        return QString();
    }
}

int QXRateInternal::compareVersions(const QString &a, const QString &b)
{
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < a.size() && j < b.size()) {
        if (isAsciiDigit(a.at(i)) && isAsciiDigit(b.at(j))) {
            // Compare the two runs of digits by value: without leading zeros,
            // the longer run is the greater number, equal lengths compare as text.
            while (i + 1 < a.size() && a.at(i) == QLatin1Char('0') && isAsciiDigit(a.at(i + 1)))
                ++i;
            while (j + 1 < b.size() && b.at(j) == QLatin1Char('0') && isAsciiDigit(b.at(j + 1)))
                ++j;
            qsizetype endA = i;
            while (endA < a.size() && isAsciiDigit(a.at(endA)))
                ++endA;
            qsizetype endB = j;
            while (endB < b.size() && isAsciiDigit(b.at(endB)))
                ++endB;
            if (endA - i != endB - j)
                return endA - i < endB - j ? -1 : 1;
            const int digits = QStringView(a).mid(i, endA - i).compare(QStringView(b).mid(j, endB - j));
            if (digits != 0)
                return digits < 0 ? -1 : 1;
            i = endA;
            j = endB;
            continue;
        }
        if (a.at(i) != b.at(j))
            return a.at(i) < b.at(j) ? -1 : 1;
        ++i;
        ++j;
    }
    const qsizetype restA = a.size() - i;
    const qsizetype restB = b.size() - j;
    return restA == restB ? 0 : (restA < restB ? -1 : 1);
}

// --- The key scanner -----------------------------------------------------------

namespace {

// Reads at most four characters as a hexadecimal number: leading white space
// skipped, an optional 0x, then the hex digits that follow; 0 without any.
char16_t scanHex(QStringView digits)
{
    qsizetype i = 0;
    while (i < digits.size() && digits.at(i).isSpace())
        ++i;
    if (i + 1 < digits.size() && digits.at(i) == QLatin1Char('0')
        && (digits.at(i + 1) == QLatin1Char('x') || digits.at(i + 1) == QLatin1Char('X'))) {
        i += 2;
    }
    uint result = 0;
    for (; i < digits.size(); ++i) {
        const char16_t c = digits.at(i).unicode();
        uint digit;
        if (c >= u'0' && c <= u'9')
            digit = c - u'0';
        else if (c >= u'a' && c <= u'f')
            digit = c - u'a' + 10;
        else if (c >= u'A' && c <= u'F')
            digit = c - u'A' + 10;
        else
            break;
        result = result * 16 + digit;
    }
    return char16_t(result);
}

/*
  Decodes every backslash-u escape, always the first one left in the string,
  including escapes that earlier replacements form. Since everything before
  that first escape is free of escapes, the text decoded so far never needs
  another look except at its very end: one pass, linear in the length.
*/
QString decodeUnicodeEscapes(const QString &text)
{
    if (!text.contains(QLatin1String("\\u")))
        return text;
    QString out;
    out.reserve(text.size());
    qsizetype i = 0;
    for (;;) {
        if (out.size() >= 2 && out.endsWith(QLatin1String("\\u"))) {
            out.chop(2);
            const QStringView digits = QStringView(text).mid(i, qMin<qsizetype>(4, text.size() - i));
            i += digits.size();
            out.append(QChar(scanHex(digits)));
            continue;
        }
        if (i >= text.size())
            break;
        out.append(text.at(i++));
    }
    return out;
}

} // namespace

QVariant QXRate::valueForKey(const QString &key, const QVariant &json)
{
    if (json.typeId() != QMetaType::QString) {
        if (json.typeId() == QMetaType::QVariantMap)
            return json.toMap().value(key);
        if (json.typeId() == QMetaType::QVariantHash)
            return json.toHash().value(key);
        if (json.typeId() == QMetaType::QJsonObject)
            return json.toJsonObject().value(key).toVariant();
        return QVariant();
    }

    const QString text = json.toString();
    const QString quotedKey = QLatin1Char('"') + key + QLatin1Char('"');
    const qsizetype keyStart = text.indexOf(quotedKey);
    if (keyStart < 0)
        return QVariant();
    const qsizetype colon = text.indexOf(QLatin1Char(':'), keyStart + quotedKey.size());
    if (colon < 0)
        return QVariant();
    const qsizetype start = colon + 1;
    qsizetype comma = text.indexOf(QLatin1Char(','), start);
    if (comma < 0)
        return QVariant();

    const QString firstPart = QStringView(text).mid(start, comma - start).trimmed().toString();
    QString value = firstPart;
    if (value.startsWith(QLatin1Char('"'))) {
        // A string with commas in it: move on from comma to comma until the
        // text up to the comma, trimmed, ends in a double quote.
        const auto endsInQuote = [&](qsizetype end) {
            qsizetype k = end - 1;
            while (k >= start && text.at(k).isSpace())
                --k;
            return k >= start && text.at(k) == QLatin1Char('"');
        };
        qsizetype end = comma;
        while (!endsInQuote(end)) {
            const qsizetype next = text.indexOf(QLatin1Char(','), end + 1);
            if (next < 0)
                break;
            end = next;
        }
        if (end != comma)
            value = QStringView(text).mid(start, end - start).trimmed().toString();
    }

    qsizetype first = 0;
    qsizetype last = value.size();
    while (first < last && value.at(first) == QLatin1Char('"'))
        ++first;
    while (last > first && value.at(last - 1) == QLatin1Char('"'))
        --last;
    value = value.mid(first, last - first);

    // One pass per escape, in this order; the backslash pass comes first, so
    // an escaped backslash before one of the letters is decoded twice.
    static const std::pair<QString, QString> escapes[] = {
        {QStringLiteral("\\\\"), QStringLiteral("\\")},
        {QStringLiteral("\\/"), QStringLiteral("/")},
        {QStringLiteral("\\\""), QStringLiteral("\"")},
        {QStringLiteral("\\n"), QStringLiteral("\n")},
        {QStringLiteral("\\r"), QStringLiteral("\r")},
        {QStringLiteral("\\t"), QStringLiteral("\t")},
        {QStringLiteral("\\f"), QStringLiteral("\f")},
        {QStringLiteral("\\b"), QStringLiteral("\b")},
    };
    for (const auto &[escaped, plain] : escapes)
        value.replace(escaped, plain);

    return decodeUnicodeEscapes(value);
}

// --- The lookup ------------------------------------------------------------------

QUrl QXAppStoreLookup::storeURL()
{
    StoreURLSetting &setting = storeURLSetting();
    QMutexLocker locker(&setting.mutex);
    return setting.url.isEmpty() ? defaultStoreURL() : setting.url;
}

void QXAppStoreLookup::setStoreURL(const QUrl &url)
{
    StoreURLSetting &setting = storeURLSetting();
    QMutexLocker locker(&setting.mutex);
    setting.url = url;
}

QString QXAppStoreLookup::countryForLocale(const QLocale &locale)
{
    const QString code = locale.territory() == QLocale::AnyTerritory ? QString() : QLocale::territoryToCode(locale.territory());
    if (code == QLatin1String("150"))
        return QStringLiteral("eu");
    if (code.isEmpty())
        return QStringLiteral("us");
    if (code.size() != 2 || !isAsciiLetter(code.at(0)) || !isAsciiLetter(code.at(1)))
        return QStringLiteral("us");
    if (code == QLatin1String("GI"))
        return QStringLiteral("GB");
    return code;
}

QUrl QXAppStoreLookup::url() const
{
    const QString base = storeURL().toString(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment
                                             | QUrl::RemoveUserInfo | QUrl::StripTrailingSlash);
    // The bundle ID goes in as it is, without percent-encoding.
    const QString query = m_appStoreID ? QStringLiteral("?id=") + QString::number(m_appStoreID)
                                       : QStringLiteral("?bundleId=") + m_bundleID;
    return QUrl(base + QLatin1Char('/') + m_country + QStringLiteral("/lookup") + query, QUrl::TolerantMode);
}

QXError QXAppStoreLookup::run()
{
    m_httpStatus = 0;
    m_foundRecord = false;
    m_matched = false;
    m_record = QXAppStoreRecord();

    QNetworkAccessManager manager;
    QNetworkRequest request(url());
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    const std::unique_ptr<QNetworkReply> reply(manager.get(request));

    // The time-out counts from the last sign of progress, not from the start.
    const double seconds = m_timeout > 0 ? m_timeout : 60.0;
    const int idleMsec = int(qMin(seconds * 1000.0, double(INT_MAX)));
    bool timedOut = false;
    QTimer idle;
    idle.setSingleShot(true);
    QObject::connect(&idle, &QTimer::timeout, reply.get(), [&] {
        timedOut = true;
        reply->abort();
    });
    const auto progress = [&idle, idleMsec] { idle.start(idleMsec); };
    QObject::connect(reply.get(), &QNetworkReply::metaDataChanged, &idle, progress);
    QObject::connect(reply.get(), &QNetworkReply::downloadProgress, &idle, progress);
    QObject::connect(reply.get(), &QNetworkReply::encrypted, &idle, progress);
    // A quitting application does not wait for the store.
    if (QCoreApplication *app = QCoreApplication::instance())
        QObject::connect(app, &QCoreApplication::aboutToQuit, reply.get(), &QNetworkReply::abort);

    QEventLoop loop;
    QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
    idle.start(idleMsec);
    if (!reply->isFinished())
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    idle.stop();

    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    m_httpStatus = status.isValid() ? status.toInt() : 0;
    const QNetworkReply::NetworkError code = reply->error();
    // Qt reports HTTP error statuses as reply errors (200 and up); they are
    // answers, not failed connections. Below 200 the connection itself failed.
    const bool answered = !timedOut && (code == QNetworkReply::NoError || (status.isValid() && code >= 200));

    QXError connectionError;
    if (timedOut)
        connectionError = QXError::withDescription(QXNetworkErrorDomain, QNetworkReply::TimeoutError,
                                                   QStringLiteral("The request timed out."));
    else if (!answered)
        connectionError = QXError::withDescription(QXNetworkErrorDomain, code, reply->errorString());

    if (answered && m_httpStatus == 200)
        return evaluate(reply->readAll());
    if (m_httpStatus >= 400)
        return QXError::withDescription(httpResponseErrorDomain, m_httpStatus,
                                        QXFormat::format(QStringLiteral("The server returned a %@ error"),
                                                         {QString::number(m_httpStatus)}));
    return connectionError;
}

QXError QXAppStoreLookup::evaluate(const QByteArray &body)
{
    using namespace QXRateInternal;

    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return QXError::withDescription(QXJSONErrorDomain, parseError.error,
                                        QStringLiteral("%1 at offset %2").arg(parseError.errorString()).arg(parseError.offset));

    // The record is the last result; a top level that is no object has no results.
    QVariant record;
    if (document.isObject()) {
        const QJsonValue results = document.object().value(QLatin1String("results"));
        if (results.isArray() && !results.toArray().isEmpty())
            record = results.toArray().last().toVariant();
    }

    const QString storeBundleID = textValue(QXRate::valueForKey(QStringLiteral("bundleId"), record));
    if (storeBundleID.isNull()) {
        // Asked by ID, the store should have known the application.
        if (m_appStoreID != 0 && !m_previewMode)
            return QXError::withDescription(QXRateErrorDomain, QXRateErrorApplicationNotFound,
                                            QStringLiteral("The application could not be found on the App Store."));
        return QXError();
    }

    m_foundRecord = true;
    m_record.bundleID = storeBundleID;
    m_record.trackID = quint64(integerValue(QXRate::valueForKey(QStringLiteral("trackId"), record)));
    m_record.primaryGenreID = quint64(integerValue(QXRate::valueForKey(QStringLiteral("primaryGenreId"), record)));
    m_record.version = textValue(QXRate::valueForKey(QStringLiteral("version"), record));

    if (m_checksBundleID && storeBundleID.toLower() != m_bundleID.toLower())
        return QXError::withDescription(
            QXRateErrorDomain, QXRateErrorBundleIDMismatch,
            QXFormat::format(QStringLiteral("Application bundle ID does not match expected value of %@"), {storeBundleID}));
    m_matched = true;

    if (!m_onlyIfLatestVersion || m_previewMode)
        return QXError();
    // An absent store version counts as the installed one.
    if (!m_record.version.isNull() && compareVersions(m_record.version, m_applicationVersion) > 0)
        return QXError::withDescription(QXRateErrorDomain, QXRateErrorNotLatestVersion,
                                        QStringLiteral("Installed app is not the latest version available"));
    return QXError();
}
