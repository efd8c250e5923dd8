// QXRate: configuration, persisted state, launch processing and the
// eligibility rule.

#include <QXFoundation/QXRate.h>

#include <QXFoundation/QXAppStoreLookup.h>
#include <QXFoundation/QXApplication.h>
#include <QXFoundation/QXBundle.h>
#include <QXFoundation/QXDispatchQueue.h>
#include <QXFoundation/QXNotificationCenter.h>
#include <QXFoundation/QXRateDelegate.h>

#include "platform/QXFormat_p.h"
#include "rate/QXRate_p.h"

#include <QCoreApplication>
#include <QSettings>
#include <QThread>
#include <QTimeZone>

#include <cmath>

const quint64 QXRateAppStoreGameGenreID = 6014;
const QString QXRateErrorDomain = QStringLiteral("QXRateErrorDomain");

const QString QXRateCouldNotConnectToAppStoreNotification = QStringLiteral("QXRateCouldNotConnectToAppStoreNotification");
const QString QXRateDidDetectAppUpdateNotification = QStringLiteral("QXRateDidDetectAppUpdateNotification");
const QString QXRateDidPromptForRatingNotification = QStringLiteral("QXRateDidPromptForRatingNotification");
const QString QXRateUserDidAttemptToRateAppNotification = QStringLiteral("QXRateUserDidAttemptToRateAppNotification");
const QString QXRateUserDidDeclineToRateAppNotification = QStringLiteral("QXRateUserDidDeclineToRateAppNotification");
const QString QXRateUserDidRequestReminderToRateAppNotification =
    QStringLiteral("QXRateUserDidRequestReminderToRateAppNotification");
const QString QXRateDidOpenAppStoreNotification = QStringLiteral("QXRateDidOpenAppStoreNotification");

namespace {

const QString appStoreIDKey = QStringLiteral("QXRateAppStoreID");
const QString ratedVersionKey = QStringLiteral("QXRateRatedVersionChecked");
const QString declinedVersionKey = QStringLiteral("QXRateDeclinedVersion");
const QString lastRemindedKey = QStringLiteral("QXRateLastReminded");
const QString lastVersionUsedKey = QStringLiteral("QXRateLastVersionUsed");
const QString firstUsedKey = QStringLiteral("QXRateFirstUsed");
const QString useCountKey = QStringLiteral("QXRateUseCount");
const QString eventCountKey = QStringLiteral("QXRateEventCount");

constexpr double secondsPerDay = 86400.0;
constexpr double secondsPerWeek = 604800.0;

QVariant storedValue(const QString &key)
{
    return QSettings().value(key);
}

// Writes (an invalid value removes) and syncs at once, so that the state
// survives a crash right after the answer.
void store(const QString &key, const QVariant &value)
{
    QSettings settings;
    if (value.isValid())
        settings.setValue(key, value);
    else
        settings.remove(key);
    settings.sync();
}

// Integers are kept as signed 64-bit values, as the settings store them;
// the unsigned counts wrap around through them unchanged.
quint64 storedCount(const QString &key)
{
    return quint64(storedValue(key).toLongLong());
}

QDateTime storedDate(const QString &key)
{
    const QVariant value = storedValue(key);
    if (value.typeId() != QMetaType::QDateTime)
        return QDateTime();
    return value.toDateTime();
}

QString storedString(const QString &key)
{
    const QVariant value = storedValue(key);
    return value.isValid() ? value.toString() : QString();
}

// Elapsed seconds since `date`; an absent date counts from the reference
// date of 1 January 2001, so a state that was never started looks old.
double secondsSince(const QDateTime &date)
{
    static const QDateTime referenceDate(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
    const QDateTime from = date.isValid() ? date : referenceDate;
    return double(from.msecsTo(QDateTime::currentDateTimeUtc())) / 1000.0;
}

QDateTime nowPlusSeconds(double seconds)
{
    // Far beyond any real period, but inside what a QDateTime holds.
    constexpr double limit = 1.0e14;
    const double clamped = std::isfinite(seconds) ? std::clamp(seconds, -limit, limit) : 0.0;
    return QDateTime::currentDateTimeUtc().addMSecs(qint64(std::llround(clamped * 1000.0)));
}

QString localized(const char *key)
{
    return QXBundle::frameworkBundle().localizedStringForKey(QString::fromUtf8(key), QString(), QString());
}

} // namespace

QXRatePrivate::QXRatePrivate(QXRate *q)
    : q(q)
{
}

QXRateDelegate *QXRatePrivate::liveDelegate() const
{
    if (delegateIsWatched && delegateGuard.isNull())
        return nullptr;
    return delegatePointer;
}

void QXRatePrivate::setDelegate(QXRateDelegate *delegate)
{
    // A QObject delegate is watched, so that its destruction clears it.
    QObject *object = delegate ? dynamic_cast<QObject *>(delegate) : nullptr;
    delegatePointer = delegate;
    delegateGuard = object;
    delegateIsWatched = object != nullptr;
}

void QXRatePrivate::post(const QString &name, const QVariant &object) const
{
    QXNotificationCenter::defaultCenter().post(name, object);
}

QXRate *QXRate::sharedInstance()
{
    // Lives until the process ends, like the application it serves.
    static QXRate *const instance = new QXRate;
    return instance;
}

QXRate::QXRate(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<QXRatePrivate>(this))
{
    if (QCoreApplication *app = QCoreApplication::instance(); app && thread() != app->thread() && !parent)
        moveToThread(app->thread());

    d->appStoreCountry = QXAppStoreLookup::countryForLocale(QLocale());

    const QXBundle &bundle = QXBundle::mainBundle();
    d->applicationVersion = bundle.objectForInfoDictionaryKey(QXBundleShortVersionStringKey).toString();
    if (d->applicationVersion.isEmpty())
        d->applicationVersion = bundle.objectForInfoDictionaryKey(QXBundleVersionKey).toString();
    d->applicationName = bundle.objectForInfoDictionaryKey(QXBundleDisplayNameKey).toString();
    if (d->applicationName.isEmpty())
        d->applicationName = bundle.objectForInfoDictionaryKey(QXBundleNameKey).toString();
    d->applicationBundleID = bundle.bundleIdentifier();

    QPointer<QXRate> self(this);
    QXDispatch::mainAsync([self] {
        if (self)
            self->applicationLaunched();
    });
}

QXRate::~QXRate()
{
    QXNotificationCenter::defaultCenter().removeObservers(this);
    // Nobody would hear the answer any more.
    delete d->visibleAlert;
}

// --- Configuration -----------------------------------------------------------

quint64 QXRate::appStoreID() const
{
    if (d->appStoreID)
        return d->appStoreID;
    return storedCount(appStoreIDKey);
}

void QXRate::setAppStoreID(quint64 appStoreID)
{
    d->appStoreID = appStoreID;
}

quint64 QXRate::appStoreGenreID() const
{
    return d->appStoreGenreID->load();
}

void QXRate::setAppStoreGenreID(quint64 appStoreGenreID)
{
    d->appStoreGenreID->store(appStoreGenreID);
}

QString QXRate::appStoreCountry() const { return d->appStoreCountry; }
void QXRate::setAppStoreCountry(const QString &appStoreCountry) { d->appStoreCountry = appStoreCountry; }
QString QXRate::applicationName() const { return d->applicationName; }
void QXRate::setApplicationName(const QString &applicationName) { d->applicationName = applicationName; }
QString QXRate::applicationVersion() const { return d->applicationVersion; }
void QXRate::setApplicationVersion(const QString &applicationVersion) { d->applicationVersion = applicationVersion; }
QString QXRate::applicationBundleID() const { return d->applicationBundleID; }
void QXRate::setApplicationBundleID(const QString &applicationBundleID) { d->applicationBundleID = applicationBundleID; }

quint64 QXRate::usesUntilPrompt() const { return d->usesUntilPrompt; }
void QXRate::setUsesUntilPrompt(quint64 uses) { d->usesUntilPrompt = uses; }
quint64 QXRate::eventsUntilPrompt() const { return d->eventsUntilPrompt; }
void QXRate::setEventsUntilPrompt(quint64 events) { d->eventsUntilPrompt = events; }
float QXRate::daysUntilPrompt() const { return d->daysUntilPrompt; }
void QXRate::setDaysUntilPrompt(float days) { d->daysUntilPrompt = days; }
float QXRate::usesPerWeekForPrompt() const { return d->usesPerWeekForPrompt; }
void QXRate::setUsesPerWeekForPrompt(float usesPerWeek) { d->usesPerWeekForPrompt = usesPerWeek; }
float QXRate::remindPeriod() const { return d->remindPeriod; }
void QXRate::setRemindPeriod(float days) { d->remindPeriod = days; }

QString QXRate::messageTitle() const
{
    if (!d->messageTitle.isEmpty())
        return d->messageTitle;
    return QXFormat::format(localized("Rate %@"), {applicationName()});
}

void QXRate::setMessageTitle(const QString &messageTitle) { d->messageTitle = messageTitle; }

QString QXRate::message() const
{
    if (!d->message.isEmpty())
        return d->message;
    const char *text = appStoreGenreID() == QXRateAppStoreGameGenreID
        ? "If you enjoy playing %@, would you mind taking a moment to rate it? It won’t take more than a minute. Thanks for your support!"
        : "If you enjoy using %@, would you mind taking a moment to rate it? It won’t take more than a minute. Thanks for your support!";
    return QXFormat::format(localized(text), {applicationName()});
}

void QXRate::setMessage(const QString &message) { d->message = message; }

QString QXRate::cancelButtonLabel() const
{
    return d->cancelButtonLabel.isEmpty() ? localized("No, Thanks") : d->cancelButtonLabel;
}

void QXRate::setCancelButtonLabel(const QString &label) { d->cancelButtonLabel = label; }

QString QXRate::remindButtonLabel() const
{
    return d->remindButtonLabel.isEmpty() ? localized("Remind Me Later") : d->remindButtonLabel;
}

void QXRate::setRemindButtonLabel(const QString &label) { d->remindButtonLabel = label; }

QString QXRate::rateButtonLabel() const
{
    return d->rateButtonLabel.isEmpty() ? localized("Rate It Now") : d->rateButtonLabel;
}

void QXRate::setRateButtonLabel(const QString &label) { d->rateButtonLabel = label; }

bool QXRate::useSKStoreReviewControllerIfAvailable() const { return d->useSKStoreReviewControllerIfAvailable; }
void QXRate::setUseSKStoreReviewControllerIfAvailable(bool use) { d->useSKStoreReviewControllerIfAvailable = use; }
bool QXRate::useUIAlertControllerIfAvailable() const { return d->useUIAlertControllerIfAvailable; }
void QXRate::setUseUIAlertControllerIfAvailable(bool use) { d->useUIAlertControllerIfAvailable = use; }
bool QXRate::useAllAvailableLanguages() const { return d->useAllAvailableLanguages; }
void QXRate::setUseAllAvailableLanguages(bool use) { d->useAllAvailableLanguages = use; }
bool QXRate::promptForNewVersionIfUserRated() const { return d->promptForNewVersionIfUserRated; }
void QXRate::setPromptForNewVersionIfUserRated(bool prompt) { d->promptForNewVersionIfUserRated = prompt; }
bool QXRate::onlyPromptIfLatestVersion() const { return d->onlyPromptIfLatestVersion; }
void QXRate::setOnlyPromptIfLatestVersion(bool only) { d->onlyPromptIfLatestVersion = only; }
bool QXRate::onlyPromptIfMainWindowIsAvailable() const { return d->onlyPromptIfMainWindowIsAvailable; }
void QXRate::setOnlyPromptIfMainWindowIsAvailable(bool only) { d->onlyPromptIfMainWindowIsAvailable = only; }
bool QXRate::promptAtLaunch() const { return d->promptAtLaunch; }
void QXRate::setPromptAtLaunch(bool prompt) { d->promptAtLaunch = prompt; }
bool QXRate::verboseLogging() const { return d->verboseLogging; }
void QXRate::setVerboseLogging(bool verbose) { d->verboseLogging = verbose; }
bool QXRate::previewMode() const { return d->previewMode; }
void QXRate::setPreviewMode(bool preview) { d->previewMode = preview; }

QUrl QXRate::ratingsURL() const
{
    if (!d->ratingsURL.isEmpty())
        return d->ratingsURL;
    QUrl url;
    url.setScheme(QStringLiteral("macappstore"));
    url.setHost(QXAppStoreLookup::storeURL().host());
    url.setPath(QStringLiteral("/app/id") + QString::number(appStoreID()));
    url.setQuery(QStringLiteral("action=write-review"));
    return url;
}

void QXRate::setRatingsURL(const QUrl &url) { d->ratingsURL = url; }

QXRateDelegate *QXRate::delegate() const
{
    if (QXRateDelegate *delegate = d->liveDelegate())
        return delegate;
    // Falls back on the application delegate, and keeps it as its own.
    d->setDelegate(dynamic_cast<QXRateDelegate *>(QXApplication::delegate()));
    return d->liveDelegate();
}

void QXRate::setDelegate(QXRateDelegate *delegate)
{
    d->setDelegate(delegate);
}

void QXRate::setAppStoreIDOnMainThread(const QVariant &appStoreID)
{
    d->appStoreID = quint64(QXRateInternal::integerValue(appStoreID));
    store(appStoreIDKey, qint64(d->appStoreID));
}

// --- Persisted state ---------------------------------------------------------

QDateTime QXRate::firstUsed() const { return storedDate(firstUsedKey); }
void QXRate::setFirstUsed(const QDateTime &date) { store(firstUsedKey, date.isValid() ? QVariant(date) : QVariant()); }
QDateTime QXRate::lastReminded() const { return storedDate(lastRemindedKey); }
void QXRate::setLastReminded(const QDateTime &date) { store(lastRemindedKey, date.isValid() ? QVariant(date) : QVariant()); }
quint64 QXRate::usesCount() const { return storedCount(useCountKey); }
void QXRate::setUsesCount(quint64 count) { store(useCountKey, qint64(count)); }
quint64 QXRate::eventCount() const { return storedCount(eventCountKey); }
void QXRate::setEventCount(quint64 count) { store(eventCountKey, qint64(count)); }

bool QXRate::declinedThisVersion() const
{
    const QString declined = storedString(declinedVersionKey);
    return !declined.isNull() && !d->applicationVersion.isNull() && declined == d->applicationVersion;
}

void QXRate::setDeclinedThisVersion(bool declined)
{
    // A null version stores nothing, the way a missing version would.
    store(declinedVersionKey, declined && !d->applicationVersion.isNull() ? QVariant(d->applicationVersion) : QVariant());
}

bool QXRate::declinedAnyVersion() const
{
    return !storedString(declinedVersionKey).isEmpty();
}

bool QXRate::ratedThisVersion() const
{
    return ratedVersion(d->applicationVersion);
}

void QXRate::setRatedThisVersion(bool rated)
{
    store(ratedVersionKey, rated && !d->applicationVersion.isNull() ? QVariant(d->applicationVersion) : QVariant());
}

bool QXRate::ratedAnyVersion() const
{
    return !storedString(ratedVersionKey).isEmpty();
}

bool QXRate::ratedVersion(const QString &version) const
{
    const QString rated = storedString(ratedVersionKey);
    return !rated.isNull() && !version.isNull() && rated == version;
}

// --- Usage and eligibility ---------------------------------------------------

void QXRate::applicationLaunched()
{
    const QVariant lastVersionUsed = storedValue(lastVersionUsedKey);
    const QDateTime firstUsed = this->firstUsed();
    const bool versionChanged = !firstUsed.isValid() || !lastVersionUsed.isValid() || d->applicationVersion.isNull()
        || lastVersionUsed.toString() != d->applicationVersion;

    if (versionChanged) {
        store(lastVersionUsedKey, d->applicationVersion.isNull() ? QVariant() : QVariant(d->applicationVersion));
        if (!firstUsed.isValid() || ratedAnyVersion()) {
            // A new usage period; what the user answered stays.
            QSettings settings;
            settings.setValue(firstUsedKey, QDateTime::currentDateTimeUtc());
            settings.setValue(useCountKey, qint64(0));
            settings.setValue(eventCountKey, qint64(0));
            settings.remove(lastRemindedKey);
            settings.sync();
        } else {
            // A user of an earlier version who never rated: keep the counts,
            // but let the day test pass one day from now at the latest.
            const float daysMinusOne = d->daysUntilPrompt - 1.0f;
            const double days = double(daysMinusOne);
            if (secondsSince(firstUsed) > days * secondsPerDay)
                setFirstUsed(nowPlusSeconds(days * -secondsPerDay));
        }
        QPointer<QXRate> self(this);
        if (QXRateDelegate *delegate = this->delegate())
            delegate->rateDidDetectAppUpdate(this);
        if (!self)
            return;
        d->post(QXRateDidDetectAppUpdateNotification);
    }

    incrementUseCount();
    checkForConnectivityInBackground();
    if (d->promptAtLaunch)
        promptIfAllCriteriaMet();
}

bool QXRate::shouldPromptForRating() const
{
    if (d->previewMode)
        return true;
    if (ratedThisVersion())
        return false;
    if (ratedAnyVersion() && !d->promptForNewVersionIfUserRated)
        return false;
    if (declinedAnyVersion())
        return false;
    if (double(d->daysUntilPrompt) * secondsPerDay > secondsSince(firstUsed()))
        return false;
    if (usesCount() < d->usesUntilPrompt && eventCount() < d->eventsUntilPrompt)
        return false;
    // A NaN on either side passes.
    if (d->usesPerWeekForPrompt > usesPerWeek())
        return false;
    const QDateTime lastReminded = this->lastReminded();
    if (!lastReminded.isValid())
        return true;
    if (double(d->remindPeriod) * secondsPerDay > secondsSince(lastReminded))
        return false;
    return true;
}

float QXRate::usesPerWeek() const
{
    // No guard: no time elapsed gives an infinity (or NaN for no uses),
    // which the rule lets pass.
    const double uses = double(float(usesCount()));
    return float(uses / (secondsSince(firstUsed()) / secondsPerWeek));
}

void QXRate::incrementUseCount()
{
    setUsesCount(usesCount() + 1);
}

void QXRate::incrementEventCount()
{
    setEventCount(eventCount() + 1);
}

void QXRate::logEvent(bool deferPrompt)
{
    incrementEventCount();
    if (!deferPrompt)
        promptIfAllCriteriaMet();
}

void QXRate::promptIfAllCriteriaMet()
{
    if (shouldPromptForRating())
        promptIfNetworkAvailable();
}

void QXRate::promptIfNetworkAvailable()
{
    // One pending lookup serves both purposes.
    if (d->checkingForPrompt || d->checkingForAppStoreID)
        return;
    d->checkingForPrompt = true;
    checkForConnectivityInBackground();
}

void QXRate::connectionSucceeded()
{
    if (d->checkingForAppStoreID) {
        d->checkingForPrompt = false;
        d->checkingForAppStoreID = false;
        // Only preview mode lets a lookup succeed without an ID; asking
        // again would look the application up forever.
        if (d->ratingsURL.isEmpty() && appStoreID() == 0)
            return;
        openRatingsPageInAppStore();
    } else if (d->checkingForPrompt) {
        d->checkingForPrompt = false;
        QPointer<QXRate> self(this);
        if (QXRateDelegate *delegate = this->delegate(); delegate && !delegate->rateShouldPromptForRating(this))
            return;
        if (self)
            promptForRating(false);
    }
}

void QXRate::connectionError(const QXError &error)
{
    // The launch lookup's failure concerns nobody.
    if (!d->checkingForPrompt && !d->checkingForAppStoreID)
        return;
    d->checkingForPrompt = false;
    d->checkingForAppStoreID = false;
    QPointer<QXRate> self(this);
    if (QXRateDelegate *delegate = this->delegate())
        delegate->rate(this, error);
    if (self)
        d->post(QXRateCouldNotConnectToAppStoreNotification, QVariant::fromValue(error));
}
