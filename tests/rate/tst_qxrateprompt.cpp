// The alert, the answers, the review page and the wait for the store
// application; what the delegate and the notifications hear, in order.

#include "RateTestSupport.h"

#include <QXFoundation/QXApplication.h>

#include "platform/QXWorkspace_p.h"

#include <QtWidgets>

using RateTest::Recorder;
using RateTest::StoreServer;

namespace {

// Takes the URLs the library opens, instead of the desktop.
class UrlCatcher : public QObject
{
    Q_OBJECT
public:
    QList<QUrl> urls;
    Recorder *recorder = nullptr;
public Q_SLOTS:
    void open(const QUrl &url)
    {
        urls.append(url);
        recorder->note(u"open"_s);
    }
};

class TwoButtonRate : public QXRate
{
public:
    bool withoutCancel = true;
    QString cancelButtonLabel() const override { return withoutCancel ? QString() : QXRate::cancelButtonLabel(); }
    QString remindButtonLabel() const override { return withoutCancel ? QXRate::remindButtonLabel() : QString(); }
};

// A system where the store application exists and starts after a few looks.
struct FakeWorkspace : QXWorkspaceBackend
{
    struct State
    {
        bool canRun = true;
        int looksUntilRunning = 3;
        int looks = 0;
    };
    std::shared_ptr<State> state = std::make_shared<State>();

    QStringList runningApplications() const override
    {
        return ++state->looks > state->looksUntilRunning ? QStringList{u"com.apple.appstore"_s} : QStringList();
    }
    bool canRunApplication(const QString &id) const override { return state->canRun && id == u"com.apple.appstore"_s; }
};

const QStringList rated{u"attemptToRate"_s, u"N:UserDidAttemptToRateApp"_s, u"shouldOpen"_s,
                        u"open"_s, u"didOpen"_s, u"N:DidOpenAppStore"_s};

QMessageBox *alertOf(QXRate &rate)
{
    return QXRatePrivate::get(&rate)->visibleAlert;
}

QStringList buttonTexts(QXRate &rate)
{
    QStringList texts;
    for (const auto &button : QXRatePrivate::get(&rate)->alertButtons)
        texts.append(button->text());
    return texts;
}

// Clicks the button added at `index` and waits for the answer.
bool answer(QXRate &rate, int index)
{
    QTest::mouseClick(QXRatePrivate::get(&rate)->alertButtons.value(index), Qt::LeftButton);
    return QTest::qWaitFor([&] { return !alertOf(rate); });
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
    void twoButtonLayoutsAndOtherIndexes();
    void waitsForAMainWindow();
    void successfulLookupShowsTheAlert();
    void ratingWithoutAnIDLooksItUpFirst();
    void delegateKeepsTheStoreClosed();
    void waitForTheStoreApplication();

private:
    std::unique_ptr<QWidget> m_window;
    std::unique_ptr<Recorder> m_recorder;
    std::unique_ptr<UrlCatcher> m_catcher;
};

void tst_QXRatePrompt::initTestCase()
{
    RateTest::isolateSettings(u"tst_qxrateprompt"_s);
    QXRatePrivate::setAppStoreReopenDelay(0.05);
}

void tst_QXRatePrompt::init()
{
    RateTest::installBundle();
    QSettings().clear();
    QXAppStoreLookup::setStoreURL(RateTest::refusingStoreURL());
    m_window = std::make_unique<QWidget>();
    m_window->show();
    QXApplication::setMainWindow(m_window.get());
    m_recorder = std::make_unique<Recorder>();
    m_catcher = std::make_unique<UrlCatcher>();
    m_catcher->recorder = m_recorder.get();
    QDesktopServices::setUrlHandler(u"macappstore"_s, m_catcher.get(), "open");
    QDesktopServices::setUrlHandler(u"https"_s, m_catcher.get(), "open");
}

void tst_QXRatePrompt::cleanup()
{
    QVERIFY(RateTest::waitForLookups());
    QDesktopServices::unsetUrlHandler(u"macappstore"_s);
    QDesktopServices::unsetUrlHandler(u"https"_s);
    m_window.reset();
    m_catcher.reset();
    m_recorder.reset();
    QXWorkspace::sharedWorkspace().setBackend(nullptr);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void tst_QXRatePrompt::alertShowsThreeButtonsOnTheMainWindow()
{
    QXRate rate;
    rate.setDelegate(m_recorder.get());
    QVERIFY(RateTest::waitForLookups()); // past the launch
    m_recorder->log.clear();

    rate.promptForRating();
    QMessageBox *alert = alertOf(rate);
    QVERIFY(alert && alert->isVisible());
    QCOMPARE(alert->parentWidget(), m_window.get());
    QCOMPARE(alert->windowModality(), Qt::WindowModal);
    QCOMPARE(alert->text(), u"Rate Example"_s);
    QCOMPARE(alert->informativeText(), rate.message());
    QCOMPARE(buttonTexts(rate), (QStringList{u"Rate It Now"_s, u"No, Thanks"_s, u"Remind Me Later"_s}));
    QCOMPARE(alert->buttons().size(), 3);
    QCOMPARE(alert->defaultButton(), QXRatePrivate::get(&rate)->alertButtons.first());
    // Reported at once, before any answer: the delegate first.
    QCOMPARE(m_recorder->log, (QStringList{u"didPrompt"_s, u"N:DidPromptForRating"_s}));

    // Neither Escape nor the close button answers for the user.
    QTest::keyClick(alert, Qt::Key_Escape);
    alert->close();
    QCoreApplication::processEvents();
    QVERIFY(alert->isVisible());
    // A second prompt while one is up does nothing.
    rate.promptForRating(false);
    QCOMPARE(alertOf(rate), alert);
    QCOMPARE(m_recorder->log.size(), 2);
    QPointer<QMessageBox> first(alert);
    QVERIFY(answer(rate, 2));
    QTRY_VERIFY(!first);

    // The texts are plain text, never markup.
    rate.setApplicationName(u"<b>Bold</b>"_s);
    rate.promptForRating();
    QCOMPARE(alertOf(rate)->textFormat(), Qt::PlainText);
    QCOMPARE(alertOf(rate)->text(), u"Rate <b>Bold</b>"_s);
    auto *informative = alertOf(rate)->findChild<QLabel *>(u"qt_msgbox_informativelabel"_s);
    QVERIFY(informative && informative->textFormat() == Qt::PlainText);
    QVERIFY(answer(rate, 2));

    // An instance that goes away takes its alert along.
    QPointer<QMessageBox> orphan;
    {
        QXRate shortLived;
        shortLived.promptForRating();
        orphan = alertOf(shortLived);
        QVERIFY(orphan);
    }
    QVERIFY(!orphan);
}

void tst_QXRatePrompt::answers_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QStringList>("reports");
    QTest::addColumn<QString>("key");
    QTest::newRow("rate") << 0 << rated << u"QXRateRatedVersionChecked"_s;
    QTest::newRow("decline") << 1 << QStringList{u"decline"_s, u"N:UserDidDeclineToRateApp"_s} << u"QXRateDeclinedVersion"_s;
    QTest::newRow("remind") << 2 << QStringList{u"remind"_s, u"N:UserDidRequestReminderToRateApp"_s} << u"QXRateLastReminded"_s;
}

void tst_QXRatePrompt::answers()
{
    QFETCH(int, index);
    QFETCH(QStringList, reports);
    QFETCH(QString, key);

    QXRate rate;
    rate.setDelegate(m_recorder.get());
    rate.setAppStoreID(777);
    QVERIFY(RateTest::waitForLookups());
    rate.promptForRating();
    QPointer<QMessageBox> alert = alertOf(rate);
    m_recorder->log.clear();

    // The alert closes first; the answer comes on a later turn.
    QTest::mouseClick(QXRatePrivate::get(&rate)->alertButtons.value(index), Qt::LeftButton);
    QVERIFY(!alert->isVisible() && alertOf(rate) && m_recorder->log.isEmpty());
    QTRY_VERIFY(!alertOf(rate));
    QCOMPARE(m_recorder->log, reports);
    QTRY_VERIFY(!alert);

    for (const QString &each : {u"QXRateRatedVersionChecked"_s, u"QXRateDeclinedVersion"_s, u"QXRateLastReminded"_s})
        QCOMPARE(QSettings().contains(each), each == key);
    if (index < 2)
        QCOMPARE(QSettings().value(key).toString(), u"1.0"_s);
    else
        QVERIFY(qAbs(rate.lastReminded().secsTo(QDateTime::currentDateTimeUtc())) <= 2);
    QCOMPARE(m_catcher->urls, index == 0 ? QList<QUrl>{QUrl(u"macappstore://127.0.0.1/app/id777?action=write-review"_s)} : QList<QUrl>());

    // After the answer, a new prompt shows a new alert.
    rate.promptForRating();
    QVERIFY(alertOf(rate) && alertOf(rate) != alert);
    QVERIFY(answer(rate, 2));
}

void tst_QXRatePrompt::twoButtonLayoutsAndOtherIndexes()
{
    TwoButtonRate rate;
    rate.setDelegate(m_recorder.get());
    QVERIFY(RateTest::waitForLookups());
    // Without a decline button, index 1 reminds.
    rate.promptForRating();
    QCOMPARE(buttonTexts(rate), (QStringList{u"Rate It Now"_s, u"Remind Me Later"_s}));
    QCOMPARE(alertOf(rate)->buttons().size(), 2);
    QVERIFY(answer(rate, 1));
    QVERIFY(rate.lastReminded().isValid() && !rate.declinedAnyVersion());
    // Without a remind button, index 1 declines.
    rate.withoutCancel = false;
    rate.promptForRating();
    QCOMPARE(buttonTexts(rate), (QStringList{u"Rate It Now"_s, u"No, Thanks"_s}));
    QVERIFY(answer(rate, 1));
    QVERIFY(rate.declinedThisVersion());

    // Indexes beyond the buttons record nothing, but the alert goes.
    QSettings().clear();
    rate.withoutCancel = true;
    m_recorder->log.clear();
    for (const qint64 index : {qint64(2), qint64(-1), std::numeric_limits<qint64>::min()}) {
        rate.promptForRating();
        QPointer<QMessageBox> alert = alertOf(rate);
        rate.didDismissAlert(alert, index);
        QTRY_VERIFY(!alertOf(rate));
        alert->hide();
    }
    QCOMPARE(m_recorder->log.size(), 6); // only the prompts
    QVERIFY(QSettings().allKeys().isEmpty());
    // A modal response counts from 1000.
    rate.promptForRating();
    QPointer<QMessageBox> alert = alertOf(rate);
    rate.alertDidEnd(alert, 1001, nullptr);
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
    QVERIFY(RateTest::waitForLookups());
    QVERIFY(!QXApplication::mainWindow());

    rate.promptForRating();
    rate.promptForRating(); // a second wait, which must not bring a second alert
    QTest::qWait(700);
    QVERIFY(!alertOf(rate) && m_recorder->entries(u"didPrompt"_s).isEmpty());
    // A main window appears: a retry shows the alert on it, once.
    m_window->show();
    QXApplication::setMainWindow(m_window.get());
    QTRY_VERIFY_WITH_TIMEOUT(alertOf(rate), 2000);
    QCOMPARE(alertOf(rate)->parentWidget(), m_window.get());
    QTest::qWait(700);
    QCOMPARE(m_recorder->entries(u"didPrompt"_s).size(), 1);
    QVERIFY(answer(rate, 2));

    // Without the wait, the alert goes up without a window.
    QXApplication::setMainWindow(nullptr);
    m_window->hide();
    rate.setOnlyPromptIfMainWindowIsAvailable(false);
    rate.promptForRating();
    QVERIFY(alertOf(rate) && !alertOf(rate)->parentWidget());
    QVERIFY(answer(rate, 1));
    QVERIFY(rate.declinedThisVersion());
}

void tst_QXRatePrompt::successfulLookupShowsTheAlert()
{
    StoreServer server;
    QVERIFY(server.start());
    server.answer(RateTest::record(u"com.example.app"_s, 4321, u"1.0"_s));
    QXAppStoreLookup::setStoreURL(server.url());
    QXRate rate;
    rate.setDelegate(m_recorder.get());
    rate.setPromptAtLaunch(false);
    QVERIFY(RateTest::waitForLookups());
    rate.setFirstUsed(QDateTime::currentDateTimeUtc().addDays(-11));
    rate.setUsesCount(10);

    // The delegate vetoes: nothing is shown or recorded, and the next check asks again.
    m_recorder->log.clear();
    m_recorder->shouldPrompt = false;
    rate.logEvent(false);
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(m_recorder->log, QStringList{u"shouldPrompt"_s});
    QVERIFY(!alertOf(rate) && rate.shouldPromptForRating());

    m_recorder->shouldPrompt = true;
    m_recorder->log.clear();
    rate.logEvent(false);
    QTRY_VERIFY(alertOf(rate));
    QCOMPARE(m_recorder->log, (QStringList{u"shouldPrompt"_s, u"didPrompt"_s, u"N:DidPromptForRating"_s}));
    QCOMPARE(server.targets.last(), "/us/lookup?id=4321");
    QVERIFY(answer(rate, 2));

    // A newer version in the store stops the prompt, and is reported.
    rate.setLastReminded(QDateTime());
    server.answer(RateTest::record(u"com.example.app"_s, 4321, u"1.1"_s));
    m_recorder->log.clear();
    rate.promptIfAllCriteriaMet();
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(m_recorder->log, (QStringList{u"couldNotConnect"_s, u"N:CouldNotConnectToAppStore"_s}));
    QCOMPARE(m_recorder->errors.last().code(), qint64(QXRateErrorNotLatestVersion));
    QVERIFY(!alertOf(rate) && !m_recorder->offMainThread);
}

void tst_QXRatePrompt::ratingWithoutAnIDLooksItUpFirst()
{
    StoreServer server;
    QVERIFY(server.start());
    server.answer(RateTest::record(u"com.example.app"_s, 2468, u"1.0"_s));
    QXRate rate;
    rate.setDelegate(m_recorder.get());
    QVERIFY(RateTest::waitForLookups()); // the launch lookup, refused
    QXAppStoreLookup::setStoreURL(server.url());
    m_recorder->log.clear();

    rate.rate();
    QVERIFY(QXRatePrivate::get(&rate)->checkingForAppStoreID && m_catcher->urls.isEmpty());
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(m_catcher->urls, QList<QUrl>{QUrl(u"macappstore://127.0.0.1/app/id2468?action=write-review"_s)});
    QCOMPARE(m_recorder->log, rated);
    QVERIFY(!QXRatePrivate::get(&rate)->checkingForAppStoreID && rate.ratedThisVersion());

    // Not in the store: nothing opens, nothing is reported.
    QSettings().remove(u"QXRateAppStoreID"_s);
    rate.setAppStoreID(0);
    server.answer(RateTest::jsonBytes("{'resultCount':0,'results':[]}"));
    m_recorder->log.clear();
    rate.openRatingsPageInAppStore();
    QVERIFY(RateTest::waitForLookups());
    QVERIFY(m_recorder->log.isEmpty());
    // In preview mode the lookup succeeds without an ID: still nothing opens, and nothing repeats.
    rate.setPreviewMode(true);
    const qsizetype requests = server.targets.size();
    rate.openRatingsPageInAppStore();
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(server.targets.size(), requests + 1);
    QCOMPARE(m_catcher->urls.size(), 1);
    QVERIFY(!QXRatePrivate::get(&rate)->checkingForAppStoreID);

    // An explicit ratings URL opens without any ID.
    rate.setRatingsURL(QUrl(u"https://example.com/review"_s));
    rate.openRatingsPageInAppStore();
    QCOMPARE(m_catcher->urls.last(), QUrl(u"https://example.com/review"_s));

    // A pending prompt lookup serves the ratings page too, and the page wins.
    QXAppStoreLookup::setStoreURL(RateTest::refusingStoreURL());
    QXRate other;
    other.setDelegate(m_recorder.get());
    QVERIFY(RateTest::waitForLookups());
    QXAppStoreLookup::setStoreURL(server.url());
    server.answer(RateTest::record(u"com.example.app"_s, 1357, u"1.0"_s));
    other.promptIfNetworkAvailable();
    other.openRatingsPageInAppStore();
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(server.targets.size(), requests + 2);
    QCOMPARE(m_catcher->urls.last().path(), u"/app/id1357"_s);
    QVERIFY(m_recorder->entries(u"shouldPrompt"_s).isEmpty() && !alertOf(other));
}

void tst_QXRatePrompt::delegateKeepsTheStoreClosed()
{
    QXRate rate;
    rate.setDelegate(m_recorder.get());
    rate.setAppStoreID(99);
    QVERIFY(RateTest::waitForLookups());
    m_recorder->shouldOpen = false;
    m_recorder->log.clear();
    rate.rate();
    QCOMPARE(m_recorder->log, rated.mid(0, 3));
    QVERIFY(rate.ratedThisVersion() && m_catcher->urls.isEmpty());
    // Without any delegate, the page opens.
    rate.setDelegate(nullptr);
    rate.rate();
    QCOMPARE(m_catcher->urls.size(), 1);
}

void tst_QXRatePrompt::waitForTheStoreApplication()
{
    QXRate rate;
    rate.setAppStoreID(31);
    QVERIFY(RateTest::waitForLookups());

    // On this system no store application exists: one opening, no waiting.
    rate.openRatingsPageInAppStore();
    QTest::qWait(200);
    QCOMPARE(m_catcher->urls.size(), 1);

    // Where it exists, the page opens again once the store runs.
    auto backend = std::make_unique<FakeWorkspace>();
    const std::shared_ptr<FakeWorkspace::State> state = backend->state;
    QXWorkspace::sharedWorkspace().setBackend(std::move(backend));
    m_catcher->urls.clear();
    rate.openRatingsPageInAppStore();
    QCOMPARE(m_catcher->urls.size(), 1);
    QTRY_COMPARE(m_catcher->urls.size(), 2);
    QCOMPARE(m_catcher->urls.at(1), m_catcher->urls.at(0));
    QCOMPARE(state->looks, state->looksUntilRunning + 1);
    QTest::qWait(100);
    QCOMPARE(m_catcher->urls.size(), 2);

    // The end of the instance ends its wait.
    *state = FakeWorkspace::State{true, 1000000, 0};
    {
        QXRate shortLived;
        shortLived.openAppPageWhenAppStoreLaunched();
        QTRY_VERIFY(state->looks > 3);
    }
    QCoreApplication::processEvents();
    const int looks = state->looks;
    QTest::qWait(50);
    QCOMPARE(state->looks, looks);

    // A store that cannot run is not waited for.
    *state = FakeWorkspace::State{false, 0, 0};
    rate.openAppPageWhenAppStoreLaunched();
    QTest::qWait(50);
    QCOMPARE(state->looks, 0);
}

QTEST_MAIN(tst_QXRatePrompt)
#include "tst_qxrateprompt.moc"
