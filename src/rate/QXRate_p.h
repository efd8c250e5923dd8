#pragma once

#include <QXFoundation/QXRate.h>

#include <QMessageBox>
#include <QPointer>

#include <atomic>
#include <memory>

class QXRateDelegate;

namespace QXRateInternal {

// The integer value of a JSON value as the lookup reads it: numbers are
// truncated and clamped to 64 bits, strings are read like a decimal integer
// (leading white space, an optional sign, the digits that follow; clamped),
// true is 1, everything else 0.
QXFOUNDATION_EXPORT qint64 integerValue(const QVariant &value);

// The text of a JSON value: strings as they are, numbers and booleans
// written out; null, containers and absent values give a null QString.
QXFOUNDATION_EXPORT QString textValue(const QVariant &value);

// Compares two versions as text, runs of ASCII digits by their numeric
// value: negative when a < b, 0 when equal, positive when a > b.
QXFOUNDATION_EXPORT int compareVersions(const QString &a, const QString &b);

} // namespace QXRateInternal

/*!
  The state of a QXRate that the host does not see: the alert being shown,
  the purpose of a pending lookup, and the delegate reference. Tests reach
  it through get() and shorten the waits through the static settings.
*/
class QXFOUNDATION_EXPORT QXRatePrivate
{
public:
    explicit QXRatePrivate(QXRate *q);

    static QXRatePrivate *get(QXRate *rate) { return rate->d.get(); }

    // A lookup's outcome, on the main thread.
    void lookupCompleted(const QXError &error);
    void post(const QString &name, const QVariant &object = QVariant()) const;

    // Seconds a lookup waits without progress (60).
    static double lookupTimeout();
    static void setLookupTimeout(double seconds);
    // Seconds between finding the store application running and opening
    // the page in it again (5).
    static double appStoreReopenDelay();
    static void setAppStoreReopenDelay(double seconds);
    // Lookups started and not yet delivered, in every instance.
    static int runningLookups();

    QXRate *const q;

    // Configuration.
    quint64 appStoreID = 0;
    // Written by lookups on their background threads.
    std::shared_ptr<std::atomic<quint64>> appStoreGenreID = std::make_shared<std::atomic<quint64>>(0);
    QString appStoreCountry;
    QString applicationName;
    QString applicationVersion;
    QString applicationBundleID;
    quint64 usesUntilPrompt = 10;
    quint64 eventsUntilPrompt = 10;
    float daysUntilPrompt = 10.0f;
    float usesPerWeekForPrompt = 0.0f;
    float remindPeriod = 1.0f;
    QString messageTitle;
    QString message;
    QString cancelButtonLabel;
    QString remindButtonLabel;
    QString rateButtonLabel;
    bool useSKStoreReviewControllerIfAvailable = true;
    bool useUIAlertControllerIfAvailable = false;
    bool useAllAvailableLanguages = true;
    bool promptForNewVersionIfUserRated = false;
    bool onlyPromptIfLatestVersion = true;
    bool onlyPromptIfMainWindowIsAvailable = true;
    bool promptAtLaunch = true;
    bool verboseLogging = false;
    bool previewMode = false;
    QUrl ratingsURL;

    // The delegate, held without ownership; a QObject delegate is watched.
    QXRateDelegate *delegatePointer = nullptr;
    QPointer<QObject> delegateGuard;
    bool delegateIsWatched = false;
    QXRateDelegate *liveDelegate() const;
    void setDelegate(QXRateDelegate *delegate);

    // Run-time state.
    QPointer<QMessageBox> visibleAlert;
    // The buttons of the visible alert, in the order they were added.
    QList<QPointer<QAbstractButton>> alertButtons;
    bool checkingForPrompt = false;
    bool checkingForAppStoreID = false;
};
