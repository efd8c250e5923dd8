#pragma once

#include <QXFoundation/QXError.h>
#include <QXFoundation/QXGlobal.h>

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <memory>

class QMessageBox;
class QXRateDelegate;
class QXRatePrivate;

// The App Store genre of games: its applications get the "playing" message.
QXFOUNDATION_EXPORT extern const quint64 QXRateAppStoreGameGenreID; // 6014
// Domain of the lookup's own errors (codes in QXRateErrorCode).
QXFOUNDATION_EXPORT extern const QString QXRateErrorDomain; // "QXRateErrorDomain"

enum QXRateErrorCode : qint64 {
    QXRateErrorBundleIDMismatch = 1,    // the store's record has another bundle ID
    QXRateErrorApplicationNotFound = 2, // the store has no record for the App Store ID
    QXRateErrorNotLatestVersion = 3,    // the store has a newer version than the one installed
};

// Posted on QXNotificationCenter::defaultCenter(), on the main thread, after
// the matching delegate method. Each value is the constant's own name.
QXFOUNDATION_EXPORT extern const QString QXRateCouldNotConnectToAppStoreNotification; // object: the QXError
QXFOUNDATION_EXPORT extern const QString QXRateDidDetectAppUpdateNotification;
QXFOUNDATION_EXPORT extern const QString QXRateDidPromptForRatingNotification;
QXFOUNDATION_EXPORT extern const QString QXRateUserDidAttemptToRateAppNotification;
QXFOUNDATION_EXPORT extern const QString QXRateUserDidDeclineToRateAppNotification;
QXFOUNDATION_EXPORT extern const QString QXRateUserDidRequestReminderToRateAppNotification;
QXFOUNDATION_EXPORT extern const QString QXRateDidOpenAppStoreNotification;

/*!
  The rating prompt: counts how often the application is used, decides when
  to ask the user for an App Store review, checks the application against
  the store, asks in a window-modal message box on the main window, records
  the answer and opens the review page.

  A host application calls sharedInstance() early at launch, configures the
  properties it wants to change and otherwise only reports significant
  events with logEvent(). On the next turn of the event loop the launch
  processing counts the use, notices new versions, learns the App Store ID
  in the background and, when the user qualifies, looks the application up
  and shows the prompt.

  The persisted state lives in the application's default QSettings under
  the keys "QXRateFirstUsed", "QXRateUseCount", "QXRateEventCount",
  "QXRateLastReminded", "QXRateLastVersionUsed", "QXRateRatedVersionChecked",
  "QXRateDeclinedVersion" and "QXRateAppStoreID"; every write is synced at
  once, and every instance shares it.

  Use an instance on the main thread. Work that an instance queues for
  itself (the launch processing, a lookup's outcome, retries) is dropped
  when the instance is destroyed first.
*/
class QXFOUNDATION_EXPORT QXRate : public QObject
{
    Q_OBJECT

public:
    // The process-wide instance, created on the first call; never destroyed.
    static QXRate *sharedInstance();

    // Reads the defaults from the main bundle and the locale, and queues the
    // launch processing on the main thread.
    explicit QXRate(QObject *parent = nullptr);
    ~QXRate() override;

    // --- Configuration ---------------------------------------------------

    // The stored ID when non-zero, else the one persisted by a lookup.
    quint64 appStoreID() const;
    void setAppStoreID(quint64 appStoreID);
    quint64 appStoreGenreID() const;
    void setAppStoreGenreID(quint64 appStoreGenreID);
    QString appStoreCountry() const;
    void setAppStoreCountry(const QString &appStoreCountry);
    QString applicationName() const;
    void setApplicationName(const QString &applicationName);
    QString applicationVersion() const;
    void setApplicationVersion(const QString &applicationVersion);
    QString applicationBundleID() const;
    void setApplicationBundleID(const QString &applicationBundleID);

    quint64 usesUntilPrompt() const;
    void setUsesUntilPrompt(quint64 uses);
    quint64 eventsUntilPrompt() const;
    void setEventsUntilPrompt(quint64 events);
    float daysUntilPrompt() const;
    void setDaysUntilPrompt(float days);
    float usesPerWeekForPrompt() const;
    void setUsesPerWeekForPrompt(float usesPerWeek);
    float remindPeriod() const;
    void setRemindPeriod(float days);

    // The texts return what was set when it is not empty, else their default
    // (translated through the library's translations). They are virtual so
    // that a subclass can compute them; a cancel or remind label that comes
    // back empty removes its button.
    virtual QString messageTitle() const;
    void setMessageTitle(const QString &messageTitle);
    virtual QString message() const;
    void setMessage(const QString &message);
    virtual QString cancelButtonLabel() const;
    void setCancelButtonLabel(const QString &label);
    virtual QString remindButtonLabel() const;
    void setRemindButtonLabel(const QString &label);
    virtual QString rateButtonLabel() const;
    void setRateButtonLabel(const QString &label);

    // Kept for hosts that share settings with other platforms; nothing here depends on them.
    bool useSKStoreReviewControllerIfAvailable() const;
    void setUseSKStoreReviewControllerIfAvailable(bool use);
    bool useUIAlertControllerIfAvailable() const;
    void setUseUIAlertControllerIfAvailable(bool use);
    bool useAllAvailableLanguages() const;
    void setUseAllAvailableLanguages(bool use);

    bool promptForNewVersionIfUserRated() const;
    void setPromptForNewVersionIfUserRated(bool prompt);
    bool onlyPromptIfLatestVersion() const;
    void setOnlyPromptIfLatestVersion(bool only);
    bool onlyPromptIfMainWindowIsAvailable() const;
    void setOnlyPromptIfMainWindowIsAvailable(bool only);
    bool promptAtLaunch() const;
    void setPromptAtLaunch(bool prompt);
    bool verboseLogging() const;
    void setVerboseLogging(bool verbose);
    bool previewMode() const;
    void setPreviewMode(bool preview);

    // The URL that was set, else macappstore://HOST/app/idID?action=write-review
    // built from appStoreID() on every call.
    QUrl ratingsURL() const;
    void setRatingsURL(const QUrl &url);

    // The delegate that was set while it lives; otherwise the application
    // delegate (QXApplication::delegate()) when it implements QXRateDelegate.
    QXRateDelegate *delegate() const;
    void setDelegate(QXRateDelegate *delegate);

    // --- Persisted state -------------------------------------------------

    QDateTime firstUsed() const;
    void setFirstUsed(const QDateTime &date); // an invalid date removes it
    QDateTime lastReminded() const;
    void setLastReminded(const QDateTime &date);
    quint64 usesCount() const;
    void setUsesCount(quint64 count);
    quint64 eventCount() const;
    void setEventCount(quint64 count);
    bool declinedThisVersion() const;
    void setDeclinedThisVersion(bool declined);
    bool declinedAnyVersion() const;
    bool ratedThisVersion() const;
    void setRatedThisVersion(bool rated);
    bool ratedAnyVersion() const;
    // Whether `version` is the version recorded as rated.
    bool ratedVersion(const QString &version) const;

    // --- Usage and eligibility -------------------------------------------

    // The launch processing, queued by the constructor.
    void applicationLaunched();
    // The eligibility rule; reads the state and changes nothing.
    bool shouldPromptForRating() const;
    // Uses per week since firstUsed().
    float usesPerWeek() const;
    void incrementUseCount();
    void incrementEventCount();
    // Counts a significant event and, unless `deferPrompt`, checks for a prompt.
    void logEvent(bool deferPrompt);
    void promptIfAllCriteriaMet();
    void promptIfNetworkAvailable();
    void connectionSucceeded();
    void connectionError(const QXError &error);

    // --- App Store lookup ------------------------------------------------

    // Starts a lookup on a background thread; its outcome comes back on the main thread.
    void checkForConnectivityInBackground();
    // The lookup itself, blocking the calling thread.
    void checkForConnectivity();
    /*!
      The value of the first occurrence of `key` in `json`. A string is
      scanned as JSON text without being parsed (the value runs to the next
      comma and comes back as text, with its quotes and escapes removed); a
      map gives its entry; anything else gives an invalid QVariant.
    */
    static QVariant valueForKey(const QString &key, const QVariant &json);
    // Stores an ID learned from the store (a number or a decimal string) and persists it.
    void setAppStoreIDOnMainThread(const QVariant &appStoreID);

    // --- The prompt and the answers --------------------------------------

    // Shows the alert now, skipping the rule and the lookup; `force` changes nothing.
    void promptForRating(bool force = true);
    bool showCancelButton() const;
    bool showRemindButton() const;
    // Handles the answer (button index in the order the buttons were added)
    // on a later turn of the event loop.
    void didDismissAlert(QMessageBox *alert, qint64 withButtonAtIndex);
    // The same with a modal response whose first button is 1000.
    void alertDidEnd(QMessageBox *alert, qint64 returnCode, void *contextInfo);
    void rate();
    void declineThisVersion();
    void remindLater();
    void openRatingsPageInAppStore();
    void openAppPageWhenAppStoreLaunched();

private:
    friend class QXRatePrivate;
    const std::unique_ptr<QXRatePrivate> d;
};
