// QXRate's configuration, persisted state, launch processing and
// eligibility rule.

#include "RateTestSupport.h"

#include <QXFoundation/QXApplication.h>
#include <QXFoundation/QXRate.h>

#include <QtTest>

#include <cmath>
#include <limits>

using RateTest::Recorder;

namespace {

QDateTime ago(double seconds)
{
    return QDateTime::currentDateTimeUtc().addMSecs(qint64(-seconds * 1000.0));
}

constexpr double day = 86400.0;

// Runs the launch processing that a new instance queued.
void launch()
{
    QCoreApplication::processEvents();
}

class SilentRate : public QXRate
{
public:
    QString cancelButtonLabel() const override { return QString(); }
};

} // namespace

class tst_QXRate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void defaultsComeFromTheBundleAndTheLocale();
    void textsFallBackOnTheirDefaults();
    void ratingsURLUsesThePersistedID();
    void persistedStateUsesTheSettings();
    void delegateFallsBackOnTheApplicationDelegate();
    void firstLaunchAndRelaunch();
    void versionChanges();
    void eligibilityRule();
    void eventsAndThePromptCheck();
    void sharedInstance();
};

void tst_QXRate::initTestCase()
{
    RateTest::isolateSettings("tst_qxrate");
}

void tst_QXRate::init()
{
    RateTest::installBundle();
    QSettings().clear();
    QLocale::setDefault(QLocale(QStringLiteral("en_US")));
    // Lookups fail at once, silently unless something waits for them.
    QXAppStoreLookup::setStoreURL(RateTest::refusingStoreURL());
}

void tst_QXRate::cleanup()
{
    QVERIFY(RateTest::waitForLookups());
    QLocale::setDefault(QLocale::c());
    QXApplication::setDelegate(nullptr);
}

void tst_QXRate::defaultsComeFromTheBundleAndTheLocale()
{
    {
        QXRate rate;
        QCOMPARE(rate.appStoreID(), quint64(0));
        QCOMPARE(rate.appStoreGenreID(), quint64(0));
        QCOMPARE(rate.appStoreCountry(), QStringLiteral("US"));
        QCOMPARE(rate.applicationName(), QStringLiteral("Example"));
        QCOMPARE(rate.applicationVersion(), QStringLiteral("1.0"));
        QCOMPARE(rate.applicationBundleID(), QStringLiteral("com.example.app"));
        QCOMPARE(rate.usesUntilPrompt(), quint64(10));
        QCOMPARE(rate.eventsUntilPrompt(), quint64(10));
        QCOMPARE(rate.daysUntilPrompt(), 10.0f);
        QCOMPARE(rate.usesPerWeekForPrompt(), 0.0f);
        QCOMPARE(rate.remindPeriod(), 1.0f);
        QVERIFY(rate.useSKStoreReviewControllerIfAvailable());
        QVERIFY(!rate.useUIAlertControllerIfAvailable());
        QVERIFY(rate.useAllAvailableLanguages());
        QVERIFY(!rate.promptForNewVersionIfUserRated());
        QVERIFY(rate.onlyPromptIfLatestVersion());
        QVERIFY(rate.onlyPromptIfMainWindowIsAvailable());
        QVERIFY(rate.promptAtLaunch());
        QVERIFY(!rate.verboseLogging());
        QVERIFY(!rate.previewMode());
        QCOMPARE(rate.delegate(), nullptr);
    }

    // Empty entries fall back on the bundle's version and name.
    QXBundle::mainBundle().setInfoValue(QXBundleShortVersionStringKey, QString(QLatin1String("")));
    QXBundle::mainBundle().setInfoValue(QXBundleDisplayNameKey, QString(QLatin1String("")));
    {
        QXRate rate;
        QCOMPARE(rate.applicationVersion(), QStringLiteral("100"));
        QCOMPARE(rate.applicationName(), QStringLiteral("example"));
    }
    // Absent ones too; an application without identifier has an empty bundle ID.
    QXBundle::mainBundle().removeInfoValue(QXBundleShortVersionStringKey);
    QXBundle::mainBundle().removeInfoValue(QXBundleDisplayNameKey);
    QXBundle::mainBundle().removeInfoValue(QXBundleIdentifierKey);
    {
        QXRate rate;
        QCOMPARE(rate.applicationVersion(), QStringLiteral("100"));
        QCOMPARE(rate.applicationName(), QStringLiteral("example"));
        QVERIFY(rate.applicationBundleID().isEmpty());
    }

    // The store front follows the locale's region.
    const std::pair<const char *, const char *> fronts[] = {
        {"de_DE", "DE"}, {"en_150", "eu"}, {"es_419", "us"}, {"en_GI", "GB"}, {"C", "us"}, {"pt_BR", "BR"},
    };
    for (const auto &[locale, front] : fronts) {
        QLocale::setDefault(QLocale(QLatin1String(locale)));
        QXRate rate;
        QCOMPARE(rate.appStoreCountry(), QLatin1String(front));
    }
}

void tst_QXRate::textsFallBackOnTheirDefaults()
{
    QXRate rate;
    QCOMPARE(rate.messageTitle(), QStringLiteral("Rate Example"));
    QCOMPARE(rate.message(), QStringLiteral("If you enjoy using Example, would you mind taking a moment to rate it? "
                                            "It won\u2019t take more than a minute. Thanks for your support!"));
    QCOMPARE(rate.cancelButtonLabel(), QStringLiteral("No, Thanks"));
    QCOMPARE(rate.remindButtonLabel(), QStringLiteral("Remind Me Later"));
    QCOMPARE(rate.rateButtonLabel(), QStringLiteral("Rate It Now"));

    // Games are played; the default is computed anew on each read.
    rate.setAppStoreGenreID(QXRateAppStoreGameGenreID);
    QVERIFY(rate.message().startsWith(QStringLiteral("If you enjoy playing Example,")));
    rate.setApplicationName(QStringLiteral("Chess"));
    QCOMPARE(rate.messageTitle(), QStringLiteral("Rate Chess"));
    QVERIFY(rate.message().startsWith(QStringLiteral("If you enjoy playing Chess,")));

    // What was set wins until it is emptied.
    rate.setMessageTitle(QStringLiteral("Like it?"));
    rate.setCancelButtonLabel(QStringLiteral("Never"));
    QCOMPARE(rate.messageTitle(), QStringLiteral("Like it?"));
    QCOMPARE(rate.cancelButtonLabel(), QStringLiteral("Never"));
    rate.setMessageTitle(QString(QLatin1String("")));
    rate.setCancelButtonLabel(QString(QLatin1String("")));
    rate.setRemindButtonLabel(QString());
    QCOMPARE(rate.messageTitle(), QStringLiteral("Rate Chess"));
    QCOMPARE(rate.cancelButtonLabel(), QStringLiteral("No, Thanks"));
    QVERIFY(rate.showCancelButton());
    QVERIFY(rate.showRemindButton());

    // Translated for the default locale.
    QLocale::setDefault(QLocale(QStringLiteral("de_DE")));
    rate.setAppStoreGenreID(0);
    QCOMPARE(rate.messageTitle(), QStringLiteral("Chess bewerten"));
    QVERIFY(rate.message().startsWith(QStringLiteral("Wenn dir Chess gefällt")));
    QCOMPARE(rate.rateButtonLabel(), QStringLiteral("Jetzt bewerten"));
    QCOMPARE(rate.cancelButtonLabel(), QStringLiteral("Nein, danke"));

    // Only a getter that answers empty removes a button.
    SilentRate silent;
    QVERIFY(!silent.showCancelButton());
    QVERIFY(silent.showRemindButton());
}

void tst_QXRate::ratingsURLUsesThePersistedID()
{
    QXRate rate;
    QCOMPARE(rate.ratingsURL(), QUrl(QStringLiteral("macappstore://127.0.0.1/app/id0?action=write-review")));

    QSettings().setValue(QStringLiteral("QXRateAppStoreID"), 12345);
    QCOMPARE(rate.appStoreID(), quint64(12345));
    const QUrl url = rate.ratingsURL();
    QCOMPARE(url.scheme(), QStringLiteral("macappstore"));
    QCOMPARE(url.path(), QStringLiteral("/app/id12345"));
    QCOMPARE(url.query(), QStringLiteral("action=write-review"));

    // The instance's own ID wins and is not persisted.
    rate.setAppStoreID(678);
    QCOMPARE(rate.ratingsURL().path(), QStringLiteral("/app/id678"));
    QCOMPARE(QSettings().value(QStringLiteral("QXRateAppStoreID")).toInt(), 12345);

    // The host of the store setting names the store.
    QXAppStoreLookup::setStoreURL(QUrl());
    QCOMPARE(rate.ratingsURL().toString(), QStringLiteral("macappstore://itunes.apple.com/app/id678?action=write-review"));

    const QUrl explicitURL(QStringLiteral("https://example.com/review"));
    rate.setRatingsURL(explicitURL);
    QCOMPARE(rate.ratingsURL(), explicitURL);
    rate.setRatingsURL(QUrl());
    QCOMPARE(rate.ratingsURL().path(), QStringLiteral("/app/id678"));
}

void tst_QXRate::persistedStateUsesTheSettings()
{
    QXRate rate;
    QVERIFY(!rate.firstUsed().isValid());
    QVERIFY(!rate.lastReminded().isValid());
    QCOMPARE(rate.usesCount(), quint64(0));
    QCOMPARE(rate.eventCount(), quint64(0));

    const QDateTime when = QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9, 42), QTimeZone::utc());
    rate.setFirstUsed(when);
    rate.setLastReminded(when.addDays(1));
    rate.setUsesCount(std::numeric_limits<quint64>::max());
    rate.setEventCount(7);

    // Written through at once, under the documented keys.
    QSettings fresh(QSettings().fileName(), QSettings::IniFormat);
    QCOMPARE(fresh.value(QStringLiteral("QXRateFirstUsed")).toDateTime(), when);
    QCOMPARE(fresh.value(QStringLiteral("QXRateLastReminded")).toDateTime(), when.addDays(1));
    QCOMPARE(fresh.value(QStringLiteral("QXRateEventCount")).toInt(), 7);
    QCOMPARE(rate.firstUsed(), when);
    QCOMPARE(rate.usesCount(), std::numeric_limits<quint64>::max());
    QCOMPARE(rate.eventCount(), quint64(7));

    rate.setFirstUsed(QDateTime());
    rate.setLastReminded(QDateTime());
    QVERIFY(!QSettings().contains(QStringLiteral("QXRateFirstUsed")));
    QVERIFY(!QSettings().contains(QStringLiteral("QXRateLastReminded")));

    // A value of the wrong kind reads as absent.
    QSettings().setValue(QStringLiteral("QXRateFirstUsed"), QStringLiteral("yesterday"));
    QSettings().setValue(QStringLiteral("QXRateUseCount"), QStringLiteral("many"));
    QVERIFY(!rate.firstUsed().isValid());
    QCOMPARE(rate.usesCount(), quint64(0));

    // Declined 1.0, now running 1.1.
    rate.setDeclinedThisVersion(true);
    QCOMPARE(QSettings().value(QStringLiteral("QXRateDeclinedVersion")).toString(), QStringLiteral("1.0"));
    QVERIFY(rate.declinedThisVersion());
    rate.setApplicationVersion(QStringLiteral("1.1"));
    QVERIFY(!rate.declinedThisVersion());
    QVERIFY(rate.declinedAnyVersion());
    rate.setDeclinedThisVersion(false);
    QVERIFY(!rate.declinedAnyVersion());

    // Rated: compared exactly, removed by NO.
    rate.setRatedThisVersion(true);
    QCOMPARE(QSettings().value(QStringLiteral("QXRateRatedVersionChecked")).toString(), QStringLiteral("1.1"));
    QVERIFY(rate.ratedThisVersion());
    QVERIFY(rate.ratedVersion(QStringLiteral("1.1")));
    QVERIFY(!rate.ratedVersion(QStringLiteral("1.10")));
    QVERIFY(!rate.ratedVersion(QString()));
    rate.setApplicationVersion(QStringLiteral("1.2"));
    QVERIFY(!rate.ratedThisVersion());
    QVERIFY(rate.ratedAnyVersion());
    rate.setRatedThisVersion(false);
    QVERIFY(!QSettings().contains(QStringLiteral("QXRateRatedVersionChecked")));
    QVERIFY(!rate.ratedAnyVersion());

    // An empty record is no record.
    QSettings().setValue(QStringLiteral("QXRateDeclinedVersion"), QString(QLatin1String("")));
    QVERIFY(!rate.declinedAnyVersion());
}

void tst_QXRate::delegateFallsBackOnTheApplicationDelegate()
{
    QXRate rate;
    QCOMPARE(rate.delegate(), nullptr);

    auto applicationDelegate = std::make_unique<Recorder>();
    QXApplication::setDelegate(applicationDelegate.get());
    QCOMPARE(rate.delegate(), applicationDelegate.get());

    {
        Recorder own;
        rate.setDelegate(&own);
        QCOMPARE(rate.delegate(), &own);
    }
    // The destroyed delegate is forgotten; the application's serves again.
    QCOMPARE(rate.delegate(), applicationDelegate.get());

    // Once taken, it stays while it lives, whatever the application says later.
    QObject plain;
    QXApplication::setDelegate(&plain);
    QCOMPARE(rate.delegate(), applicationDelegate.get());
    applicationDelegate.reset();
    // An application delegate that does not follow rating prompts is none.
    QCOMPARE(rate.delegate(), nullptr);
}

void tst_QXRate::firstLaunchAndRelaunch()
{
    Recorder recorder;
    {
        QXRate rate;
        rate.setDelegate(&recorder);
        // Nothing happens before the event loop turns.
        QVERIFY(!rate.firstUsed().isValid());
        QCOMPARE(rate.usesCount(), quint64(0));
        launch();
        QVERIFY(qAbs(rate.firstUsed().secsTo(QDateTime::currentDateTimeUtc())) <= 2);
        QCOMPARE(rate.usesCount(), quint64(1));
        QCOMPARE(rate.eventCount(), quint64(0));
        QCOMPARE(QSettings().value(QStringLiteral("QXRateLastVersionUsed")).toString(), QStringLiteral("1.0"));
        QCOMPARE(recorder.log, (QStringList{QStringLiteral("didDetectAppUpdate"), QStringLiteral("N:DidDetectAppUpdate")}));
        QVERIFY(RateTest::waitForLookups());
    }

    recorder.log.clear();
    const QDateTime firstUsed = QXRate().firstUsed();
    {
        QXRate rate;
        rate.setDelegate(&recorder);
        launch();
        QCOMPARE(rate.usesCount(), quint64(2));
        QCOMPARE(rate.firstUsed(), firstUsed);
        QVERIFY(recorder.log.isEmpty());
    }

    // An instance destroyed before its turn launches nothing.
    {
        QXRate rate;
    }
    launch();
    QCOMPARE(QXRate().usesCount(), quint64(2));
}

void tst_QXRate::versionChanges()
{
    Recorder recorder;
    const auto launchVersion = [&](const char *version, const std::function<void(QXRate &)> &configure = {}) {
        QXBundle::mainBundle().setInfoValue(QXBundleShortVersionStringKey, QString::fromLatin1(version));
        auto rate = std::make_unique<QXRate>();
        rate->setDelegate(&recorder);
        rate->setPromptAtLaunch(false);
        if (configure)
            configure(*rate);
        recorder.log.clear();
        launch();
        return rate;
    };

    // The user rated 1.0; 1.1 starts a new period.
    launchVersion("1.0")->setRatedThisVersion(true);
    {
        auto rate = launchVersion("1.0");
        rate->setEventCount(20);
        rate->setLastReminded(ago(3600));
        rate->setFirstUsed(ago(30 * day));
    }
    auto rate = launchVersion("1.1");
    QCOMPARE(recorder.log, (QStringList{QStringLiteral("didDetectAppUpdate"), QStringLiteral("N:DidDetectAppUpdate")}));
    QCOMPARE(rate->usesCount(), quint64(1));
    QCOMPARE(rate->eventCount(), quint64(0));
    QVERIFY(!rate->lastReminded().isValid());
    QVERIFY(rate->firstUsed().secsTo(QDateTime::currentDateTimeUtc()) <= 2);
    QVERIFY(rate->ratedAnyVersion());
    QVERIFY(!rate->ratedThisVersion());
    // Even with every count met, a user who rated is not asked again ...
    rate->setFirstUsed(ago(30 * day));
    rate->setUsesCount(50);
    QVERIFY(!rate->shouldPromptForRating());
    // ... unless the host wants that.
    rate->setPromptForNewVersionIfUserRated(true);
    QVERIFY(rate->shouldPromptForRating());

    // Never rated, first used 30 days ago: the period shifts to 9 days, the counts stay.
    QSettings().clear();
    launchVersion("2.0");
    rate = launchVersion("2.0", [](QXRate &r) {
        r.setFirstUsed(ago(30 * day));
        r.setEventCount(4);
        r.setLastReminded(ago(3 * day));
        r.setDeclinedThisVersion(true);
    });
    const QDateTime remindedAt = rate->lastReminded();
    rate = launchVersion("2.1");
    QCOMPARE(recorder.log, (QStringList{QStringLiteral("didDetectAppUpdate"), QStringLiteral("N:DidDetectAppUpdate")}));
    QVERIFY(qAbs(rate->firstUsed().msecsTo(ago(9 * day))) < 2000);
    QCOMPARE(rate->eventCount(), quint64(4));
    QCOMPARE(rate->usesCount(), quint64(3));
    QCOMPARE(rate->lastReminded(), remindedAt);
    QVERIFY(rate->declinedAnyVersion());

    // First used 5 days ago: nothing to shift.
    const QDateTime recent = ago(5 * day);
    rate->setFirstUsed(recent);
    rate = launchVersion("2.2");
    QCOMPARE(rate->firstUsed(), recent);

    // No days needed: the period starts one day in the future, and the rule waits for it.
    rate = launchVersion("2.3", [](QXRate &r) { r.setDaysUntilPrompt(0.0f); });
    QVERIFY(qAbs(rate->firstUsed().msecsTo(ago(-day))) < 2000);
    rate->setDeclinedThisVersion(false);
    QSettings().remove(QStringLiteral("QXRateDeclinedVersion"));
    rate->setUsesCount(100);
    QVERIFY(!rate->shouldPromptForRating());
    rate->setFirstUsed(ago(1));
    QVERIFY(rate->shouldPromptForRating());
}

void tst_QXRate::eligibilityRule()
{
    QXRate rate;
    launch();
    const auto state = [&](double days, quint64 uses, quint64 events) {
        rate.setFirstUsed(ago(days));
        rate.setUsesCount(uses);
        rate.setEventCount(events);
    };

    state(1, 1, 0);
    QVERIFY(!rate.shouldPromptForRating());
    rate.setPreviewMode(true);
    QVERIFY(rate.shouldPromptForRating());
    rate.setPreviewMode(false);

    // Ten days and a second: events stand in for uses.
    state(10 * day + 1, 3, 10);
    QVERIFY(rate.shouldPromptForRating());
    state(10 * day + 1, 3, 9);
    QVERIFY(!rate.shouldPromptForRating());
    state(10 * day + 1, 10, 0);
    QVERIFY(rate.shouldPromptForRating());
    state(10 * day - 60, 100, 100);
    QVERIFY(!rate.shouldPromptForRating());
    rate.setUsesUntilPrompt(0); // 0 uses are always enough
    state(10 * day + 1, 0, 0);
    QVERIFY(rate.shouldPromptForRating());
    rate.setUsesUntilPrompt(10);

    // Uses per week: 3 uses in two weeks are 1.5 a week.
    state(14 * day, 3, 10);
    QVERIFY(qAbs(rate.usesPerWeek() - 1.5f) < 0.001f);
    rate.setUsesPerWeekForPrompt(2.0f);
    QVERIFY(!rate.shouldPromptForRating());
    rate.setUsesPerWeekForPrompt(1.4f);
    QVERIFY(rate.shouldPromptForRating());
    rate.setUsesPerWeekForPrompt(std::numeric_limits<float>::quiet_NaN());
    QVERIFY(rate.shouldPromptForRating());
    rate.setUsesPerWeekForPrompt(0.0f);

    // Reminded 23 hours ago waits, 25 hours ago asks.
    state(20 * day, 12, 0);
    rate.setLastReminded(ago(23 * 3600));
    QVERIFY(!rate.shouldPromptForRating());
    rate.setLastReminded(ago(25 * 3600));
    QVERIFY(rate.shouldPromptForRating());
    rate.setRemindPeriod(2.0f);
    QVERIFY(!rate.shouldPromptForRating());
    rate.setLastReminded(QDateTime());

    // Rated this version, or declined any version: never.
    rate.setRatedThisVersion(true);
    QVERIFY(!rate.shouldPromptForRating());
    rate.setRatedThisVersion(false);
    QSettings().setValue(QStringLiteral("QXRateDeclinedVersion"), QStringLiteral("0.9"));
    state(400 * day, 1000, 1000);
    QVERIFY(!rate.shouldPromptForRating());
    rate.setPreviewMode(true);
    QVERIFY(rate.shouldPromptForRating());
    rate.setPreviewMode(false);
    QSettings().remove(QStringLiteral("QXRateDeclinedVersion"));

    // Before any launch, time counts from 1 January 2001.
    QSettings().remove(QStringLiteral("QXRateFirstUsed"));
    rate.setUsesCount(10);
    QVERIFY(rate.shouldPromptForRating());
    QVERIFY(rate.usesPerWeek() > 0.0f && rate.usesPerWeek() < 0.1f);
}

void tst_QXRate::eventsAndThePromptCheck()
{
    Recorder recorder;
    QXRate rate;
    rate.setDelegate(&recorder);
    launch();
    QVERIFY(RateTest::waitForLookups());
    QXRatePrivate *d = QXRatePrivate::get(&rate);

    rate.setFirstUsed(ago(30 * day));
    rate.setEventCount(8);
    rate.logEvent(true);
    rate.logEvent(true);
    QCOMPARE(rate.eventCount(), quint64(10));
    QCOMPARE(QXRatePrivate::runningLookups(), 0);
    QVERIFY(!d->checkingForPrompt);

    // Eligible: the check starts one lookup, and a second event starts no other.
    rate.logEvent(false);
    QVERIFY(d->checkingForPrompt);
    QCOMPARE(QXRatePrivate::runningLookups(), 1);
    rate.logEvent(false);
    rate.promptIfAllCriteriaMet();
    QCOMPARE(QXRatePrivate::runningLookups(), 1);
    QCOMPARE(rate.eventCount(), quint64(12));
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(recorder.entries(QStringLiteral("couldNotConnect")).size(), 1);
    QVERIFY(!d->checkingForPrompt);

    // Ineligible: nothing starts.
    rate.setDeclinedThisVersion(true);
    rate.logEvent(false);
    QCOMPARE(QXRatePrivate::runningLookups(), 0);
    QVERIFY(!d->checkingForPrompt);
}

void tst_QXRate::sharedInstance()
{
    QXRate *shared = QXRate::sharedInstance();
    QVERIFY(shared);
    QCOMPARE(QXRate::sharedInstance(), shared);
    shared->setPromptAtLaunch(false);
    QCOMPARE(shared->usesCount(), quint64(0));
    launch();
    QCOMPARE(shared->usesCount(), quint64(1));
    QCOMPARE(shared->thread(), QCoreApplication::instance()->thread());
}

QTEST_MAIN(tst_QXRate)
#include "tst_qxrate.moc"
