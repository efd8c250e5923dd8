// QXRate's configuration, persisted state, launch processing and eligibility rule.

#include "RateTestSupport.h"

#include <QXFoundation/QXApplication.h>

#include <limits>

using RateTest::Recorder;

namespace {

constexpr double day = 86400.0;
const QStringList appUpdate{u"didDetectAppUpdate"_s, u"N:DidDetectAppUpdate"_s};

QDateTime ago(double seconds)
{
    return QDateTime::currentDateTimeUtc().addMSecs(qint64(-seconds * 1000.0));
}

bool near(const QDateTime &a, const QDateTime &b)
{
    return qAbs(a.msecsTo(b)) < 2000;
}

} // namespace

class tst_QXRate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { RateTest::isolateSettings(u"tst_qxrate"_s); }
    void init();
    void cleanup();
    void defaultsComeFromTheBundleAndTheLocale();
    void textsFallBackOnTheirDefaults();
    void ratingsURLUsesThePersistedID();
    void persistedStateUsesTheSettings();
    void delegateFallsBackOnTheApplicationDelegate();
    void launchesAndVersionChanges();
    void eligibilityRule();
    void eventsAndThePromptCheck();
    void sharedInstance();
};

void tst_QXRate::init()
{
    RateTest::installBundle();
    QSettings().clear();
    QLocale::setDefault(QLocale(u"en_US"_s));
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
        QCOMPARE(rate.appStoreID(), 0u);
        QCOMPARE(rate.appStoreGenreID(), 0u);
        QCOMPARE(rate.appStoreCountry(), u"US"_s);
        QCOMPARE(rate.applicationName(), u"Example"_s);
        QCOMPARE(rate.applicationVersion(), u"1.0"_s);
        QCOMPARE(rate.applicationBundleID(), u"com.example.app"_s);
        QCOMPARE(rate.usesUntilPrompt(), 10u);
        QCOMPARE(rate.eventsUntilPrompt(), 10u);
        QCOMPARE(rate.daysUntilPrompt(), 10.0f);
        QCOMPARE(rate.usesPerWeekForPrompt(), 0.0f);
        QCOMPARE(rate.remindPeriod(), 1.0f);
        QVERIFY(rate.useSKStoreReviewControllerIfAvailable() && !rate.useUIAlertControllerIfAvailable());
        QVERIFY(rate.useAllAvailableLanguages() && !rate.promptForNewVersionIfUserRated());
        QVERIFY(rate.onlyPromptIfLatestVersion() && rate.onlyPromptIfMainWindowIsAvailable() && rate.promptAtLaunch());
        QVERIFY(!rate.verboseLogging() && !rate.previewMode());
        QCOMPARE(rate.delegate(), nullptr);
    }

    // Empty or absent entries fall back on the bundle's version and name.
    QXBundle &bundle = QXBundle::mainBundle();
    for (bool absent : {false, true}) {
        for (const QString &key : {QXBundleShortVersionStringKey, QXBundleDisplayNameKey, QXBundleIdentifierKey})
            absent ? bundle.removeInfoValue(key) : bundle.setInfoValue(key, QString(u""_s));
        QXRate rate;
        QCOMPARE(rate.applicationVersion(), u"100"_s);
        QCOMPARE(rate.applicationName(), u"example"_s);
        QVERIFY(rate.applicationBundleID().isEmpty());
    }

    // The store front follows the locale's region.
    const std::pair<const char16_t *, const char16_t *> fronts[] = {
        {u"de_DE", u"DE"}, {u"en_150", u"eu"}, {u"es_419", u"us"}, {u"en_GI", u"GB"}, {u"C", u"us"}, {u"pt_BR", u"BR"}};
    for (const auto &[locale, front] : fronts) {
        QLocale::setDefault(QLocale(QString::fromUtf16(locale)));
        QCOMPARE(QXRate().appStoreCountry(), QString::fromUtf16(front));
    }
}

void tst_QXRate::textsFallBackOnTheirDefaults()
{
    QXRate rate;
    QCOMPARE(rate.messageTitle(), u"Rate Example"_s);
    QCOMPARE(rate.message(), u"If you enjoy using Example, would you mind taking a moment to rate it? "
                             u"It won\u2019t take more than a minute. Thanks for your support!"_s);
    QCOMPARE(rate.cancelButtonLabel(), u"No, Thanks"_s);
    QCOMPARE(rate.remindButtonLabel(), u"Remind Me Later"_s);
    QCOMPARE(rate.rateButtonLabel(), u"Rate It Now"_s);

    // Games are played; defaults are computed anew on each read.
    rate.setAppStoreGenreID(QXRateAppStoreGameGenreID);
    rate.setApplicationName(u"Chess"_s);
    QCOMPARE(rate.messageTitle(), u"Rate Chess"_s);
    QVERIFY(rate.message().startsWith(u"If you enjoy playing Chess,"_s));

    // What was set wins until it is emptied.
    rate.setMessageTitle(u"Like it?"_s);
    rate.setCancelButtonLabel(u"Never"_s);
    QCOMPARE(rate.messageTitle(), u"Like it?"_s);
    QCOMPARE(rate.cancelButtonLabel(), u"Never"_s);
    rate.setMessageTitle(QString(u""_s));
    rate.setCancelButtonLabel(QString(u""_s));
    rate.setRemindButtonLabel(QString());
    QCOMPARE(rate.messageTitle(), u"Rate Chess"_s);
    QCOMPARE(rate.cancelButtonLabel(), u"No, Thanks"_s);
    QVERIFY(rate.showCancelButton() && rate.showRemindButton());

    // Translated for the default locale.
    QLocale::setDefault(QLocale(u"de_DE"_s));
    rate.setAppStoreGenreID(0);
    QCOMPARE(rate.messageTitle(), u"Chess bewerten"_s);
    QVERIFY(rate.message().startsWith(u"Wenn dir Chess gefällt"_s));
    QCOMPARE(rate.rateButtonLabel(), u"Jetzt bewerten"_s);
}

void tst_QXRate::ratingsURLUsesThePersistedID()
{
    QXRate rate;
    QCOMPARE(rate.ratingsURL(), QUrl(u"macappstore://127.0.0.1/app/id0?action=write-review"_s));
    QSettings().setValue(u"QXRateAppStoreID"_s, 12345);
    QCOMPARE(rate.appStoreID(), 12345u);
    QCOMPARE(rate.ratingsURL().path(), u"/app/id12345"_s);
    QCOMPARE(rate.ratingsURL().query(), u"action=write-review"_s);

    // The instance's own ID wins and is not persisted.
    rate.setAppStoreID(678);
    QXAppStoreLookup::setStoreURL(QUrl());
    QCOMPARE(rate.ratingsURL(), QUrl(u"macappstore://itunes.apple.com/app/id678?action=write-review"_s));
    QCOMPARE(QSettings().value(u"QXRateAppStoreID"_s).toInt(), 12345);

    rate.setRatingsURL(QUrl(u"https://example.com/review"_s));
    QCOMPARE(rate.ratingsURL(), QUrl(u"https://example.com/review"_s));
    rate.setRatingsURL(QUrl());
    QCOMPARE(rate.ratingsURL().path(), u"/app/id678"_s);
}

void tst_QXRate::persistedStateUsesTheSettings()
{
    QXRate rate;
    QVERIFY(!rate.firstUsed().isValid() && !rate.lastReminded().isValid());
    QCOMPARE(rate.usesCount() + rate.eventCount(), 0u);

    const QDateTime when(QDate(2024, 3, 5), QTime(14, 7, 9, 42), QTimeZone::utc());
    rate.setFirstUsed(when);
    rate.setLastReminded(when.addDays(1));
    rate.setUsesCount(std::numeric_limits<quint64>::max());
    rate.setEventCount(7);
    // Written through to the file at once, under the documented keys.
    QSettings file(QSettings().fileName(), QSettings::IniFormat);
    QCOMPARE(file.value(u"QXRateFirstUsed"_s).toDateTime(), when);
    QCOMPARE(file.value(u"QXRateLastReminded"_s).toDateTime(), when.addDays(1));
    QCOMPARE(file.value(u"QXRateEventCount"_s).toInt(), 7);
    QCOMPARE(rate.usesCount(), std::numeric_limits<quint64>::max());

    rate.setFirstUsed(QDateTime());
    rate.setLastReminded(QDateTime());
    QVERIFY(!QSettings().contains(u"QXRateFirstUsed"_s) && !QSettings().contains(u"QXRateLastReminded"_s));
    // Values of the wrong kind read as absent.
    QSettings().setValue(u"QXRateFirstUsed"_s, u"yesterday"_s);
    QSettings().setValue(u"QXRateUseCount"_s, u"many"_s);
    QVERIFY(!rate.firstUsed().isValid());
    QCOMPARE(rate.usesCount(), 0u);

    // Declined 1.0, now running 1.1.
    rate.setDeclinedThisVersion(true);
    QCOMPARE(QSettings().value(u"QXRateDeclinedVersion"_s).toString(), u"1.0"_s);
    rate.setApplicationVersion(u"1.1"_s);
    QVERIFY(!rate.declinedThisVersion() && rate.declinedAnyVersion());
    rate.setDeclinedThisVersion(false);
    QVERIFY(!rate.declinedAnyVersion());

    // Rated: compared exactly; NO removes the record.
    rate.setRatedThisVersion(true);
    QCOMPARE(QSettings().value(u"QXRateRatedVersionChecked"_s).toString(), u"1.1"_s);
    QVERIFY(rate.ratedVersion(u"1.1"_s) && !rate.ratedVersion(u"1.10"_s) && !rate.ratedVersion(QString()));
    rate.setApplicationVersion(u"1.2"_s);
    QVERIFY(!rate.ratedThisVersion() && rate.ratedAnyVersion());
    rate.setRatedThisVersion(false);
    QVERIFY(!QSettings().contains(u"QXRateRatedVersionChecked"_s) && !rate.ratedAnyVersion());
    // An empty record is no record.
    QSettings().setValue(u"QXRateDeclinedVersion"_s, QString(u""_s));
    QVERIFY(!rate.declinedAnyVersion());
}

void tst_QXRate::delegateFallsBackOnTheApplicationDelegate()
{
    QXRate rate;
    auto applicationDelegate = std::make_unique<Recorder>();
    QXApplication::setDelegate(applicationDelegate.get());
    QCOMPARE(rate.delegate(), applicationDelegate.get());
    {
        Recorder own;
        rate.setDelegate(&own);
        QCOMPARE(rate.delegate(), &own);
    }
    // A destroyed delegate is forgotten, and the application's serves again.
    QCOMPARE(rate.delegate(), applicationDelegate.get());
    // Once taken, it stays while it lives.
    QObject plain;
    QXApplication::setDelegate(&plain);
    QCOMPARE(rate.delegate(), applicationDelegate.get());
    // An application delegate that is no QXRateDelegate is none.
    applicationDelegate.reset();
    QCOMPARE(rate.delegate(), nullptr);
}

void tst_QXRate::launchesAndVersionChanges()
{
    Recorder recorder;
    const auto launch = [&](const QString &version, const std::function<void(QXRate &)> &before = {}) {
        QXBundle::mainBundle().setInfoValue(QXBundleShortVersionStringKey, version);
        auto rate = std::make_unique<QXRate>();
        rate->setDelegate(&recorder);
        rate->setPromptAtLaunch(false);
        if (before)
            before(*rate);
        recorder.log.clear();
        QCoreApplication::processEvents(); // the launch processing
        return rate;
    };

    // First launch: a new period, one use, reported; a relaunch only counts.
    auto rate = launch(u"1.0"_s, [](QXRate &r) { QVERIFY(!r.firstUsed().isValid()); });
    QVERIFY(near(rate->firstUsed(), ago(0)));
    QCOMPARE(rate->usesCount(), 1u);
    QCOMPARE(QSettings().value(u"QXRateLastVersionUsed"_s).toString(), u"1.0"_s);
    QCOMPARE(recorder.log, appUpdate);
    const QDateTime firstUsed = rate->firstUsed();
    rate = launch(u"1.0"_s);
    QCOMPARE(rate->usesCount(), 2u);
    QCOMPARE(rate->firstUsed(), firstUsed);
    QVERIFY(recorder.log.isEmpty());
    // An instance destroyed before its turn launches nothing.
    rate.reset(new QXRate);
    rate.reset();
    QCoreApplication::processEvents();
    QCOMPARE(QXRate().usesCount(), 2u);

    // The user rated 1.0: 1.1 starts a new period, keeping the answer.
    rate = launch(u"1.0"_s, [](QXRate &r) {
        r.setRatedThisVersion(true);
        r.setFirstUsed(ago(30 * day));
        r.setEventCount(20);
        r.setLastReminded(ago(3600));
    });
    rate = launch(u"1.1"_s);
    QCOMPARE(recorder.log, appUpdate);
    QCOMPARE(rate->usesCount(), 1u);
    QCOMPARE(rate->eventCount(), 0u);
    QVERIFY(!rate->lastReminded().isValid() && near(rate->firstUsed(), ago(0)));
    QVERIFY(rate->ratedAnyVersion() && !rate->ratedThisVersion());
    // However much it is used, a user who rated is not asked again, unless the host wants it.
    rate->setFirstUsed(ago(30 * day));
    rate->setUsesCount(50);
    QVERIFY(!rate->shouldPromptForRating());
    rate->setPromptForNewVersionIfUserRated(true);
    QVERIFY(rate->shouldPromptForRating());

    // Never rated, first used 30 days ago: the period shifts to 9 days; counts and answers stay.
    rate->setRatedThisVersion(false);
    rate->setUsesCount(2);
    rate->setEventCount(4);
    rate->setLastReminded(ago(3 * day));
    rate->setDeclinedThisVersion(true);
    const QDateTime reminded = rate->lastReminded();
    rate = launch(u"2.0"_s);
    QCOMPARE(recorder.log, appUpdate);
    QVERIFY(near(rate->firstUsed(), ago(9 * day)));
    QCOMPARE(rate->usesCount(), 3u);
    QCOMPARE(rate->eventCount(), 4u);
    QCOMPARE(rate->lastReminded(), reminded);
    QVERIFY(rate->declinedAnyVersion());

    // First used 5 days ago: nothing to shift.
    rate->setFirstUsed(ago(5 * day));
    const QDateTime recent = rate->firstUsed();
    QCOMPARE(launch(u"2.1"_s)->firstUsed(), recent);

    // No days needed: the period starts a day ahead, and the rule waits for it.
    rate = launch(u"2.2"_s, [](QXRate &r) { r.setDaysUntilPrompt(0.0f); });
    QVERIFY(near(rate->firstUsed(), ago(-day)));
    rate->setDeclinedThisVersion(false);
    rate->setUsesCount(100);
    QVERIFY(!rate->shouldPromptForRating());
    rate->setFirstUsed(ago(1));
    QVERIFY(rate->shouldPromptForRating());
}

void tst_QXRate::eligibilityRule()
{
    QXRate rate;
    const auto eligible = [&](double days, quint64 uses, quint64 events) {
        rate.setFirstUsed(ago(days));
        rate.setUsesCount(uses);
        rate.setEventCount(events);
        return rate.shouldPromptForRating();
    };

    QVERIFY(!eligible(day, 1, 0));
    rate.setPreviewMode(true);
    QVERIFY(eligible(day, 1, 0));
    rate.setPreviewMode(false);

    // Ten days and a second: events stand in for uses.
    QVERIFY(eligible(10 * day + 1, 3, 10));
    QVERIFY(!eligible(10 * day + 1, 3, 9));
    QVERIFY(eligible(10 * day + 1, 10, 0));
    QVERIFY(!eligible(10 * day - 60, 100, 100));
    rate.setUsesUntilPrompt(0); // no uses needed
    QVERIFY(eligible(10 * day + 1, 0, 0));
    rate.setUsesUntilPrompt(10);

    // Uses per week: 3 uses in two weeks are 1.5.
    QVERIFY(eligible(14 * day, 3, 10));
    QVERIFY(qAbs(rate.usesPerWeek() - 1.5f) < 0.001f);
    rate.setUsesPerWeekForPrompt(2.0f);
    QVERIFY(!rate.shouldPromptForRating());
    rate.setUsesPerWeekForPrompt(std::numeric_limits<float>::quiet_NaN());
    QVERIFY(rate.shouldPromptForRating());
    rate.setUsesPerWeekForPrompt(0.0f);

    // Reminded 23 hours ago waits, 25 hours ago asks.
    rate.setLastReminded(ago(23 * 3600));
    QVERIFY(!eligible(20 * day, 12, 0));
    rate.setLastReminded(ago(25 * 3600));
    QVERIFY(eligible(20 * day, 12, 0));
    rate.setRemindPeriod(2.0f);
    QVERIFY(!rate.shouldPromptForRating());
    rate.setLastReminded(QDateTime());

    // Rated this version, or declined any version: never (preview aside).
    rate.setRatedThisVersion(true);
    QVERIFY(!eligible(400 * day, 1000, 1000));
    rate.setRatedThisVersion(false);
    QSettings().setValue(u"QXRateDeclinedVersion"_s, u"0.9"_s);
    QVERIFY(!eligible(400 * day, 1000, 1000));
    rate.setPreviewMode(true);
    QVERIFY(rate.shouldPromptForRating());
    rate.setPreviewMode(false);
    QSettings().remove(u"QXRateDeclinedVersion"_s);

    // Before any launch, time counts from 1 January 2001.
    QSettings().remove(u"QXRateFirstUsed"_s);
    QVERIFY(rate.shouldPromptForRating());
    QVERIFY(rate.usesPerWeek() > 0.0f && rate.usesPerWeek() < 2.0f);
}

void tst_QXRate::eventsAndThePromptCheck()
{
    Recorder recorder;
    QXRate rate;
    rate.setDelegate(&recorder);
    QVERIFY(RateTest::waitForLookups());
    const QXRatePrivate *d = QXRatePrivate::get(&rate);

    rate.setFirstUsed(ago(30 * day));
    rate.setEventCount(8);
    rate.logEvent(true);
    rate.logEvent(true);
    QCOMPARE(rate.eventCount(), 10u);
    QVERIFY(QXRatePrivate::runningLookups() == 0 && !d->checkingForPrompt);

    // Eligible: the check starts one lookup; further checks start no other.
    rate.logEvent(false);
    rate.logEvent(false);
    rate.promptIfAllCriteriaMet();
    QVERIFY(d->checkingForPrompt);
    QCOMPARE(QXRatePrivate::runningLookups(), 1);
    QCOMPARE(rate.eventCount(), 12u);
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(recorder.entries(u"couldNotConnect"_s).size(), 1);
    QVERIFY(!d->checkingForPrompt);

    // Ineligible: nothing starts.
    rate.setDeclinedThisVersion(true);
    rate.logEvent(false);
    QVERIFY(QXRatePrivate::runningLookups() == 0 && !d->checkingForPrompt);
}

void tst_QXRate::sharedInstance()
{
    QXRate *shared = QXRate::sharedInstance();
    QCOMPARE(QXRate::sharedInstance(), shared);
    shared->setPromptAtLaunch(false);
    QCOMPARE(shared->usesCount(), 0u);
    QCoreApplication::processEvents();
    QCOMPARE(shared->usesCount(), 1u);
}

QTEST_MAIN(tst_QXRate)
#include "tst_qxrate.moc"
