// The alert, the answers, the review page and the wait for the store
// application; what the delegate and the notifications hear, in order.

#include "RateTestSupport.h"

#include <QXFoundation/QXApplication.h>
#include <QXFoundation/QXRate.h>

#include "platform/QXWorkspace_p.h"

#include <QtTest>
#include <QtWidgets>

using RateTest::Recorder;
using RateTest::StoreServer;

namespace {

// Catches the URLs the library opens, instead of the desktop.
class UrlCatcher : public QObject
{
    Q_OBJECT
public:
    QList<QUrl> urls;
    QStringList *log = nullptr;

public Q_SLOTS:
    void open(const QUrl &url)
    {
        urls.append(url);
        if (log)
            log->append(QStringLiteral("open"));
    }
};

// Label getters that answer empty remove their buttons.
class TwoButtonRate : public QXRate
{
public:
    bool withoutCancel = true;
    QString cancelButtonLabel() const override { return withoutCancel ? QString() : QXRate::cancelButtonLabel(); }
    QString remindButtonLabel() const override { return withoutCancel ? QXRate::remindButtonLabel() : QString(); }
};

// A system where the store application exists and starts after a few looks.
class FakeWorkspace : public QXWorkspaceBackend
{
public:
    struct State
    {
        bool canRun = true;
        int looksUntilRunning = 3;
        int looks = 0;
    };
    explicit FakeWorkspace(std::shared_ptr<State> state)
        : m_state(std::move(state))
    {
    }
    QStringList runningApplications() const override
    {
        ++m_state->looks;
        if (m_state->looks > m_state->looksUntilRunning)
            return {QStringLiteral("com.apple.appstore")};
        return {};
    }
    bool canRunApplication(const QString &bundleIdentifier) const override
    {
        return m_state->canRun && bundleIdentifier == QLatin1String("com.apple.appstore");
    }

private:
    std::shared_ptr<State> m_state;
};

QStringList buttonTexts(QXRate &rate)
{
    QStringList texts;
    for (const QPointer<QAbstractButton> &button : QXRatePrivate::get(&rate)->alertButtons)
        texts.append(button ? button->text() : QString());
    return texts;
}

QAbstractButton *button(QXRate &rate, int index)
{
    return QXRatePrivate::get(&rate)->alertButtons.value(index);
}

QMessageBox *alertOf(QXRate &rate)
{
    return QXRatePrivate::get(&rate)->visibleAlert;
}

} // namespace

class tst_QXRatePrompt : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void alertShowsThreeButtonsOnTheMainWindow();
    void answers_data();
    void answers();
    void twoButtonLayouts();
    void indexesOutsideTheButtons();
    void waitsForAMainWindow();
    void successfulLookupShowsTheAlert();
    void ratingWithoutAnIDLooksItUpFirst();
    void delegateKeepsTheStoreClosed();
    void declineAndRemindAcrossVersions();
    void waitForTheStoreApplication();

private:
    std::unique_ptr<QWidget> m_window;
    std::unique_ptr<UrlCatcher> m_catcher;
    std::unique_ptr<Recorder> m_recorder;
};

void tst_QXRatePrompt::initTestCase()
{
    RateTest::isolateSettings("tst_qxrateprompt");
    QXRatePrivate::setAppStoreReopenDelay(0.05);
}

void tst_QXRatePrompt::init()
{
    RateTest::installBundle();
    QSettings().clear();
    QXAppStoreLookup::setStoreURL(RateTest::refusingStoreURL());
    m_window = std::make_unique<QWidget>();
    m_window->resize(400, 300);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    QXApplication::setMainWindow(m_window.get());
    m_catcher = std::make_unique<UrlCatcher>();
    QDesktopServices::setUrlHandler(QStringLiteral("macappstore"), m_catcher.get(), "open");
    QDesktopServices::setUrlHandler(QStringLiteral("https"), m_catcher.get(), "open");
    m_recorder = std::make_unique<Recorder>();
    m_catcher->log = &m_recorder->log;
}

void tst_QXRatePrompt::cleanup()
{
    QVERIFY(RateTest::waitForLookups());
    QDesktopServices::unsetUrlHandler(QStringLiteral("macappstore"));
    QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
    QXApplication::setMainWindow(nullptr);
    m_window.reset();
    m_recorder.reset();
    m_catcher.reset();
    QXWorkspace::sharedWorkspace().setBackend(nullptr);
    // Let deferred deletions run.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void tst_QXRatePrompt::alertShowsThreeButtonsOnTheMainWindow()
{
    QXRate rate;
    rate.setDelegate(m_recorder.get());
    QCoreApplication::processEvents(); // the launch
    m_recorder->log.clear();

    rate.promptForRating();
    QMessageBox *alert = alertOf(rate);
    QVERIFY(alert);
    QVERIFY(alert->isVisible());
    QCOMPARE(alert->parentWidget(), m_window.get());
    QCOMPARE(alert->windowModality(), Qt::WindowModal);
    QCOMPARE(alert->text(), QStringLiteral("Rate Example"));
    QCOMPARE(alert->informativeText(), rate.message());
    QCOMPARE(buttonTexts(rate), (QStringList{QStringLiteral("Rate It Now"), QStringLiteral("No, Thanks"), QStringLiteral("Remind Me Later")}));
    QCOMPARE(alert->buttons().size(), 3);
    QCOMPARE(alert->defaultButton(), button(rate, 0));
    // Reported at once, before any answer: delegate first.
    QCOMPARE(m_recorder->log, (QStringList{QStringLiteral("didPrompt"), QStringLiteral("N:DidPromptForRating")}));

    // A second prompt while one is up does nothing.
    rate.promptForRating(false);
    QCOMPARE(alertOf(rate), alert);
    QCOMPARE(m_recorder->log.size(), 2);
    QCOMPARE(m_window->findChildren<QMessageBox *>().size(), 1);

    // The texts are shown as plain text.
    QPointer<QMessageBox> first(alert);
    QTest::mouseClick(button(rate, 2), Qt::LeftButton);
    QTRY_VERIFY(!alertOf(rate));
    QTRY_VERIFY(!first);
    rate.setApplicationName(QStringLiteral("<b>Bold</b>"));
    rate.promptForRating();
    QVERIFY(alertOf(rate) && alertOf(rate) != nullptr);
    QCOMPARE(alertOf(rate)->textFormat(), Qt::PlainText);
    QCOMPARE(alertOf(rate)->text(), QStringLiteral("Rate <b>Bold</b>"));
    QTest::mouseClick(button(rate, 2), Qt::LeftButton);
    QTRY_VERIFY(!alertOf(rate));
}

void tst_QXRatePrompt::answers_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QStringList>("reports");
    QTest::addColumn<QString>("key");

    QTest::newRow("rate") << 0
                          << QStringList{QStringLiteral("attemptToRate"), QStringLiteral("N:UserDidAttemptToRateApp"),
                                         QStringLiteral("shouldOpen"), QStringLiteral("open"), QStringLiteral("didOpen"),
                                         QStringLiteral("N:DidOpenAppStore")}
                          << QStringLiteral("QXRateRatedVersionChecked");
    QTest::newRow("decline") << 1 << QStringList{QStringLiteral("decline"), QStringLiteral("N:UserDidDeclineToRateApp")}
                             << QStringLiteral("QXRateDeclinedVersion");
    QTest::newRow("remind") << 2 << QStringList{QStringLiteral("remind"), QStringLiteral("N:UserDidRequestReminderToRateApp")}
                            << QStringLiteral("QXRateLastReminded");
}

void tst_QXRatePrompt::answers()
{
    QFETCH(int, index);
    QFETCH(QStringList, reports);
    QFETCH(QString, key);

    QXRate rate;
    rate.setDelegate(m_recorder.get());
    rate.setAppStoreID(777);
    QCoreApplication::processEvents();
    rate.promptForRating();
    QVERIFY(alertOf(rate));
    QPointer<QMessageBox> alert = alertOf(rate);
    m_recorder->log.clear();

    QTest::mouseClick(button(rate, index), Qt::LeftButton);
    // The alert is closed first; the answer comes on a later turn.
    QVERIFY(!alert->isVisible());
    QVERIFY(m_recorder->log.isEmpty());
    QVERIFY(alertOf(rate));
    QTRY_VERIFY(!alertOf(rate));
    QCOMPARE(m_recorder->log, reports);
    QTRY_VERIFY(!alert);

    const QStringList keys{QStringLiteral("QXRateRatedVersionChecked"), QStringLiteral("QXRateDeclinedVersion"),
                           QStringLiteral("QXRateLastReminded")};
    for (const QString &each : keys)
        QCOMPARE(QSettings().contains(each), each == key);
    if (index == 0) {
        QVERIFY(rate.ratedThisVersion());
        QCOMPARE(m_catcher->urls.size(), 1);
        const QUrl url = m_catcher->urls.first();
        QCOMPARE(url.scheme(), QStringLiteral("macappstore"));
        QCOMPARE(url.path(), QStringLiteral("/app/id777"));
        QCOMPARE(url.query(), QStringLiteral("action=write-review"));
    } else {
        QVERIFY(m_catcher->urls.isEmpty());
    }
    if (index == 1)
        QCOMPARE(QSettings().value(key).toString(), QStringLiteral("1.0"));
    if (index == 2)
        QVERIFY(qAbs(rate.lastReminded().secsTo(QDateTime::currentDateTimeUtc())) <= 2);

    // After the answer a new prompt shows a new alert.
    rate.promptForRating();
    QVERIFY(alertOf(rate));
    QVERIFY(alertOf(rate) != alert);
    QTest::mouseClick(button(rate, 2), Qt::LeftButton);
    QTRY_VERIFY(!alertOf(rate));
}

void tst_QXRatePrompt::twoButtonLayouts()
{
    TwoButtonRate rate;
    rate.setDelegate(m_recorder.get());
    QCoreApplication::processEvents();
    QVERIFY(!rate.showCancelButton());
    rate.promptForRating();
    QCOMPARE(buttonTexts(rate), (QStringList{QStringLiteral("Rate It Now"), QStringLiteral("Remind Me Later")}));
    QCOMPARE(alertOf(rate)->buttons().size(), 2);
    m_recorder->log.clear();
    QTest::mouseClick(button(rate, 1), Qt::LeftButton);
    QTRY_VERIFY(!alertOf(rate));
    // Index 1 means remind later without a decline button.
    QCOMPARE(m_recorder->log.first(), QStringLiteral("remind"));
    QVERIFY(rate.lastReminded().isValid());
    QVERIFY(!rate.declinedAnyVersion());

    rate.withoutCancel = false;
    rate.promptForRating();
    QCOMPARE(buttonTexts(rate), (QStringList{QStringLiteral("Rate It Now"), QStringLiteral("No, Thanks")}));
    m_recorder->log.clear();
    QTest::mouseClick(button(rate, 1), Qt::LeftButton);
    QTRY_VERIFY(!alertOf(rate));
    QCOMPARE(m_recorder->log.first(), QStringLiteral("decline"));
    QVERIFY(rate.declinedThisVersion());
}

void tst_QXRatePrompt::indexesOutsideTheButtons()
{
    QXRate rate;
    rate.setDelegate(m_recorder.get());
    QCoreApplication::processEvents();
    m_recorder->log.clear();
    for (const qint64 index : {qint64(3), qint64(-1), qint64(1000), std::numeric_limits<qint64>::min()}) {
        rate.promptForRating();
        QMessageBox *alert = alertOf(rate);
        QVERIFY(alert);
        rate.didDismissAlert(alert, index);
        QVERIFY(alertOf(rate));
        QTRY_VERIFY(!alertOf(rate));
        alert->hide();
    }
    QCOMPARE(m_recorder->log.filter(QStringLiteral("didPrompt")).size(), 4);
    QCOMPARE(m_recorder->log.size(), 8);
    QVERIFY(!QSettings().contains(QStringLiteral("QXRateRatedVersionChecked")));
    QVERIFY(!QSettings().contains(QStringLiteral("QXRateDeclinedVersion")));
    QVERIFY(!QSettings().contains(QStringLiteral("QXRateLastReminded")));

    // A modal response counts from 1000.
    rate.promptForRating();
    QMessageBox *alert = alertOf(rate);
    rate.alertDidEnd(alert, 1002, nullptr);
    QTRY_VERIFY(!alertOf(rate));
    QVERIFY(rate.lastReminded().isValid());
    alert->hide();
}

void tst_QXRatePrompt::waitsForAMainWindow()
{
    QXApplication::setMainWindow(nullptr);
    m_window->hide();
    QXRate rate;
    rate.setDelegate(m_recorder.get());
    QCoreApplication::processEvents();
    QVERIFY(!QXApplication::mainWindow());

    rate.promptForRating();
    rate.promptForRating(); // a second wait, which must not show a second alert
    QVERIFY(!alertOf(rate));
    QTest::qWait(700);
    QVERIFY(!alertOf(rate));
    QVERIFY(m_recorder->entries(QStringLiteral("didPrompt")).isEmpty());

    // A main window appears: the next retry shows the alert on it, once.
    m_window->show();
    QXApplication::setMainWindow(m_window.get());
    QTRY_VERIFY_WITH_TIMEOUT(alertOf(rate), 2000);
    QCOMPARE(alertOf(rate)->parentWidget(), m_window.get());
    QTest::qWait(700);
    QCOMPARE(m_recorder->entries(QStringLiteral("didPrompt")).size(), 1);
    QTest::mouseClick(button(rate, 2), Qt::LeftButton);
    QTRY_VERIFY(!alertOf(rate));

    // Without the wait, the alert goes up without a window.
    QXApplication::setMainWindow(nullptr);
    m_window->hide();
    rate.setOnlyPromptIfMainWindowIsAvailable(false);
    rate.promptForRating();
    QVERIFY(alertOf(rate));
    QCOMPARE(alertOf(rate)->parentWidget(), nullptr);
    QTest::mouseClick(button(rate, 1), Qt::LeftButton);
    QTRY_VERIFY(!alertOf(rate));
    QVERIFY(rate.declinedThisVersion());
}

void tst_QXRatePrompt::successfulLookupShowsTheAlert()
{
    StoreServer server;
    QVERIFY(server.start());
    server.answer(RateTest::record(QStringLiteral("com.example.app"), 4321, QStringLiteral("1.0")));
    QXAppStoreLookup::setStoreURL(server.url());

    QXRate rate;
    rate.setDelegate(m_recorder.get());
    rate.setPromptAtLaunch(false);
    QCoreApplication::processEvents();
    QVERIFY(RateTest::waitForLookups());
    rate.setFirstUsed(QDateTime::currentDateTimeUtc().addDays(-11));
    rate.setUsesCount(10);
    m_recorder->log.clear();

    // The delegate vetoes: nothing is shown or recorded, and the next check asks again.
    m_recorder->shouldPrompt = false;
    rate.logEvent(false);
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(m_recorder->log, QStringList{QStringLiteral("shouldPrompt")});
    QVERIFY(!alertOf(rate));
    QVERIFY(rate.shouldPromptForRating());

    m_recorder->shouldPrompt = true;
    m_recorder->log.clear();
    rate.logEvent(false);
    QTRY_VERIFY(alertOf(rate));
    QCOMPARE(m_recorder->log, (QStringList{QStringLiteral("shouldPrompt"), QStringLiteral("didPrompt"), QStringLiteral("N:DidPromptForRating")}));
    QVERIFY(!m_recorder->offMainThread);
    QCOMPARE(server.targets.last(), QByteArray("/us/lookup?id=4321"));

    // A newer version in the store stops the prompt and is reported.
    QTest::mouseClick(button(rate, 2), Qt::LeftButton);
    QTRY_VERIFY(!alertOf(rate));
    rate.setLastReminded(QDateTime());
    server.answer(RateTest::record(QStringLiteral("com.example.app"), 4321, QStringLiteral("1.1")));
    m_recorder->log.clear();
    rate.promptIfAllCriteriaMet();
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(m_recorder->log, (QStringList{QStringLiteral("couldNotConnect"), QStringLiteral("N:CouldNotConnectToAppStore")}));
    QCOMPARE(m_recorder->errors.last().code(), qint64(QXRateErrorNotLatestVersion));
    QVERIFY(!alertOf(rate));
}

void tst_QXRatePrompt::ratingWithoutAnIDLooksItUpFirst()
{
    StoreServer server;
    QVERIFY(server.start());
    server.answer(RateTest::record(QStringLiteral("com.example.app"), 2468, QStringLiteral("1.0")));
    QXRate rate;
    rate.setDelegate(m_recorder.get());
    QCoreApplication::processEvents();
    QVERIFY(RateTest::waitForLookups()); // the launch lookup against a refusing port
    QXAppStoreLookup::setStoreURL(server.url());
    m_recorder->log.clear();

    rate.rate();
    QVERIFY(QXRatePrivate::get(&rate)->checkingForAppStoreID);
    QVERIFY(m_catcher->urls.isEmpty());
    QTRY_COMPARE(m_catcher->urls.size(), 1);
    QCOMPARE(m_catcher->urls.first().path(), QStringLiteral("/app/id2468"));
    QCOMPARE(m_recorder->log, (QStringList{QStringLiteral("attemptToRate"), QStringLiteral("N:UserDidAttemptToRateApp"),
                                           QStringLiteral("shouldOpen"), QStringLiteral("open"), QStringLiteral("didOpen"),
                                           QStringLiteral("N:DidOpenAppStore")}));
    QVERIFY(!QXRatePrivate::get(&rate)->checkingForAppStoreID);
    QVERIFY(rate.ratedThisVersion());

    // Not in the store: nothing opens, nothing is reported.
    QSettings().remove(QStringLiteral("QXRateAppStoreID"));
    rate.setAppStoreID(0);
    server.answer(RateTest::jsonBytes("{'resultCount':0,'results':[]}"));
    m_recorder->log.clear();
    rate.openRatingsPageInAppStore();
    QVERIFY(RateTest::waitForLookups());
    QVERIFY(m_recorder->log.isEmpty());
    QCOMPARE(m_catcher->urls.size(), 1);

    // Preview mode lets a lookup succeed without an ID: the page waits for
    // one, so nothing opens, and the lookup is not repeated.
    rate.setPreviewMode(true);
    int requests = server.targets.size();
    rate.openRatingsPageInAppStore();
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(server.targets.size(), requests + 1);
    QCOMPARE(m_catcher->urls.size(), 1);
    QVERIFY(!QXRatePrivate::get(&rate)->checkingForAppStoreID);
    rate.setPreviewMode(false);

    // A pending prompt lookup serves the ratings page too, and the page wins.
    QXAppStoreLookup::setStoreURL(RateTest::refusingStoreURL());
    QXRate other;
    other.setDelegate(m_recorder.get());
    QVERIFY(RateTest::waitForLookups());
    QXAppStoreLookup::setStoreURL(server.url());
    server.answer(RateTest::record(QStringLiteral("com.example.app"), 1357, QStringLiteral("1.0")));
    m_recorder->log.clear();
    requests = server.targets.size();
    other.promptIfNetworkAvailable();
    other.openRatingsPageInAppStore();
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(server.targets.size(), requests + 1);
    QCOMPARE(m_catcher->urls.size(), 2);
    QCOMPARE(m_catcher->urls.last().path(), QStringLiteral("/app/id1357"));
    QVERIFY(m_recorder->entries(QStringLiteral("shouldPrompt")).isEmpty());
    QVERIFY(!alertOf(other));

    // An explicit ratings URL opens without any ID.
    rate.setPreviewMode(false);
    rate.setRatingsURL(QUrl(QStringLiteral("https://example.com/review")));
    rate.openRatingsPageInAppStore();
    QCOMPARE(m_catcher->urls.last(), QUrl(QStringLiteral("https://example.com/review")));
    QCOMPARE(QXRatePrivate::runningLookups(), 0);
}

void tst_QXRatePrompt::delegateKeepsTheStoreClosed()
{
    QXRate rate;
    rate.setDelegate(m_recorder.get());
    rate.setAppStoreID(99);
    QCoreApplication::processEvents();
    m_recorder->shouldOpen = false;
    m_recorder->log.clear();
    rate.rate();
    QCOMPARE(m_recorder->log, (QStringList{QStringLiteral("attemptToRate"), QStringLiteral("N:UserDidAttemptToRateApp"),
                                           QStringLiteral("shouldOpen")}));
    QVERIFY(rate.ratedThisVersion());
    QVERIFY(m_catcher->urls.isEmpty());

    // Without a delegate of its own, the application delegate is asked.
    rate.setDelegate(nullptr);
    QXApplication::setDelegate(m_recorder.get());
    m_recorder->log.clear();
    rate.rate();
    QCOMPARE(m_recorder->log.last(), QStringLiteral("shouldOpen"));
    QXApplication::setDelegate(nullptr);
    rate.setDelegate(nullptr);
    // With none at all, the page opens.
    m_recorder->log.clear();
    rate.rate();
    QCOMPARE(m_catcher->urls.size(), 1);
}

void tst_QXRatePrompt::declineAndRemindAcrossVersions()
{
    QXRate rate;
    rate.setPromptAtLaunch(false);
    QCoreApplication::processEvents();
    rate.setFirstUsed(QDateTime::currentDateTimeUtc().addDays(-30));
    rate.setUsesCount(20);
    QVERIFY(rate.shouldPromptForRating());

    rate.remindLater();
    QVERIFY(!rate.shouldPromptForRating());
    rate.setLastReminded(QDateTime::currentDateTimeUtc().addSecs(-25 * 3600));
    QVERIFY(rate.shouldPromptForRating());

    rate.declineThisVersion();
    QVERIFY(!rate.shouldPromptForRating());
    // A new version keeps the decline.
    QXBundle::mainBundle().setInfoValue(QXBundleShortVersionStringKey, QStringLiteral("2.0"));
    QXRate next;
    next.setPromptAtLaunch(false);
    QCoreApplication::processEvents();
    next.setUsesCount(100);
    next.setFirstUsed(QDateTime::currentDateTimeUtc().addDays(-100));
    QVERIFY(!next.declinedThisVersion());
    QVERIFY(!next.shouldPromptForRating());
}

void tst_QXRatePrompt::waitForTheStoreApplication()
{
    QXRate rate;
    rate.setAppStoreID(31);
    QCoreApplication::processEvents();

    // On this system no store application exists: one opening, no waiting.
    rate.openRatingsPageInAppStore();
    QCOMPARE(m_catcher->urls.size(), 1);
    QTest::qWait(200);
    QCOMPARE(m_catcher->urls.size(), 1);

    // Where it exists, the page opens again once the store is running.
    auto state = std::make_shared<FakeWorkspace::State>();
    QXWorkspace::sharedWorkspace().setBackend(std::make_unique<FakeWorkspace>(state));
    m_catcher->urls.clear();
    rate.openRatingsPageInAppStore();
    QCOMPARE(m_catcher->urls.size(), 1);
    QTRY_COMPARE(m_catcher->urls.size(), 2);
    QCOMPARE(m_catcher->urls.at(1), m_catcher->urls.at(0));
    QCOMPARE(state->looks, state->looksUntilRunning + 1);
    QTest::qWait(100);
    QCOMPARE(m_catcher->urls.size(), 2);

    // A wait that is cut short by the instance's end stops looking.
    state->looks = 0;
    state->looksUntilRunning = 1000000;
    {
        QXRate shortLived;
        shortLived.setAppStoreID(32);
        shortLived.openAppPageWhenAppStoreLaunched();
        QTRY_VERIFY(state->looks > 3);
    }
    QCoreApplication::processEvents();
    const int looks = state->looks;
    QTest::qWait(50);
    QCOMPARE(state->looks, looks);

    // A backend that says the store cannot run is never asked who runs.
    state->canRun = false;
    state->looks = 0;
    rate.openAppPageWhenAppStoreLaunched();
    QTest::qWait(50);
    QCOMPARE(state->looks, 0);
}

QTEST_MAIN(tst_QXRatePrompt)
#include "tst_qxrateprompt.moc"
