// The App Store lookup against a local HTTPS server, what QXRate learns and
// reports from it, the key scanner, and `qx rate lookup`.

#include "RateTestSupport.h"

#include <QXFoundation/QXAppStoreLookup.h>
#include <QXFoundation/QXRate.h>

#include <QtTest>

using RateTest::Recorder;
using RateTest::StoreServer;

class tst_QXRateLookup : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void requestURLs();
    void outcomes_data();
    void outcomes();
    void connectionFailures();
    void badBodiesNeitherCrashNorHang_data();
    void badBodiesNeitherCrashNorHang();
    void rateLearnsAndPersistsTheStoreID();
    void rateReportsFailuresOnlyWhenSomethingWaits();
    void keyScanner();
    void keyScannerStaysInsideItsInput();
    void toolLookup();

private:
    std::unique_ptr<StoreServer> m_server;
};

void tst_QXRateLookup::initTestCase()
{
    RateTest::isolateSettings("tst_qxratelookup");
    QVERIFY(StoreServer::prepareTls());
}

void tst_QXRateLookup::init()
{
    RateTest::installBundle();
    QSettings().clear();
    m_server = std::make_unique<StoreServer>();
    QVERIFY(m_server->start());
    QXAppStoreLookup::setStoreURL(m_server->url());
    QXRatePrivate::setLookupTimeout(60.0);
}

void tst_QXRateLookup::cleanup()
{
    QVERIFY(RateTest::waitForLookups());
    m_server.reset();
    QXAppStoreLookup::setStoreURL(QUrl());
}

void tst_QXRateLookup::requestURLs()
{
    QXAppStoreLookup::setStoreURL(QUrl());
    QCOMPARE(QXAppStoreLookup::storeURL(), QUrl(QStringLiteral("https://itunes.apple.com")));

    QXAppStoreLookup lookup;
    lookup.setCountry(QStringLiteral("DE"));
    lookup.setBundleID(QStringLiteral("com.example.app"));
    QCOMPARE(lookup.url().toString(), QStringLiteral("https://itunes.apple.com/DE/lookup?bundleId=com.example.app"));
    lookup.setAppStoreID(123);
    QCOMPARE(lookup.url().toString(), QStringLiteral("https://itunes.apple.com/DE/lookup?id=123"));

    // Only scheme, host and port of the setting count.
    QXAppStoreLookup::setStoreURL(QUrl(QStringLiteral("http://127.0.0.1:8080/ignored/?q=1")));
    lookup.setAppStoreID(0);
    lookup.setCountry(QStringLiteral("eu"));
    QCOMPARE(lookup.url().toString(), QStringLiteral("http://127.0.0.1:8080/eu/lookup?bundleId=com.example.app"));
    QCOMPARE(lookup.timeout(), 60.0);

    // The store front of the user's locale.
    QCOMPARE(QXAppStoreLookup::countryForLocale(QLocale(QStringLiteral("de_DE"))), QStringLiteral("DE"));
    QCOMPARE(QXAppStoreLookup::countryForLocale(QLocale(QStringLiteral("en_150"))), QStringLiteral("eu"));
    QCOMPARE(QXAppStoreLookup::countryForLocale(QLocale(QStringLiteral("es_419"))), QStringLiteral("us"));
    QCOMPARE(QXAppStoreLookup::countryForLocale(QLocale(QStringLiteral("en_GI"))), QStringLiteral("GB"));
    QCOMPARE(QXAppStoreLookup::countryForLocale(QLocale::c()), QStringLiteral("us"));
}

void tst_QXRateLookup::outcomes_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<quint64>("appStoreID");
    QTest::addColumn<QString>("installedVersion");
    QTest::addColumn<bool>("preview");
    QTest::addColumn<QString>("domain");
    QTest::addColumn<qint64>("code"); // -1: any code
    QTest::addColumn<QString>("description");
    QTest::addColumn<bool>("matched");

    const QString rateDomain = QStringLiteral("QXRateErrorDomain");
    const QString httpDomain = QStringLiteral("HTTPResponseErrorDomain");
    const QByteArray empty = RateTest::jsonBytes("{'resultCount':0,'results':[]}");

    QTest::newRow("match ignoring case") << 200 << RateTest::record(QStringLiteral("COM.EXAMPLE.APP"), 987654, QStringLiteral("1.0"))
                                         << quint64(0) << QStringLiteral("1.0") << false << QString() << qint64(0) << QString() << true;
    QTest::newRow("other bundle ID") << 200 << RateTest::record(QStringLiteral("com.example.other"), 5, QStringLiteral("1.0"))
                                     << quint64(0) << QStringLiteral("1.0") << false << rateDomain << qint64(1)
                                     << QStringLiteral("Application bundle ID does not match expected value of com.example.other") << false;
    QTest::newRow("unknown ID") << 200 << empty << quint64(123) << QStringLiteral("1.0") << false << rateDomain << qint64(2)
                                << QStringLiteral("The application could not be found on the App Store.") << false;
    QTest::newRow("unknown ID, preview") << 200 << empty << quint64(123) << QStringLiteral("1.0") << true << QString() << qint64(0)
                                         << QString() << false;
    QTest::newRow("unknown bundle ID") << 200 << empty << quint64(0) << QStringLiteral("1.0") << false << QString() << qint64(0)
                                       << QString() << false;
    QTest::newRow("1.9 installed, 1.10 in store") << 200 << RateTest::record(QStringLiteral("com.example.app"), 7, QStringLiteral("1.10"))
                                                  << quint64(0) << QStringLiteral("1.9") << false << rateDomain << qint64(3)
                                                  << QStringLiteral("Installed app is not the latest version available") << true;
    QTest::newRow("newer store version, preview") << 200 << RateTest::record(QStringLiteral("com.example.app"), 7, QStringLiteral("1.10"))
                                                  << quint64(0) << QStringLiteral("1.9") << true << QString() << qint64(0) << QString() << true;
    QTest::newRow("2.0 installed, 1.10 in store") << 200 << RateTest::record(QStringLiteral("com.example.app"), 7, QStringLiteral("1.10"))
                                                  << quint64(0) << QStringLiteral("2.0") << false << QString() << qint64(0) << QString() << true;
    QTest::newRow("404") << 404 << QByteArray("{}") << quint64(0) << QStringLiteral("1.0") << false << httpDomain << qint64(404)
                         << QStringLiteral("The server returned a 404 error") << false;
    QTest::newRow("500") << 500 << QByteArray() << quint64(0) << QStringLiteral("1.0") << false << httpDomain << qint64(500)
                         << QStringLiteral("The server returned a 500 error") << false;
    QTest::newRow("204 without a body") << 204 << QByteArray() << quint64(0) << QStringLiteral("1.0") << false << QString()
                                        << qint64(0) << QString() << false;
    QTest::newRow("malformed JSON") << 200 << (RateTest::jsonBytes("{'results': [{'bundleId': 'com.example.app'")) << quint64(0)
                                    << QStringLiteral("1.0") << false << QStringLiteral("QXJSONErrorDomain")
                                    << qint64(-1) << QString() << false;
}

void tst_QXRateLookup::outcomes()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(quint64, appStoreID);
    QFETCH(QString, installedVersion);
    QFETCH(bool, preview);
    QFETCH(QString, domain);
    QFETCH(qint64, code);
    QFETCH(QString, description);
    QFETCH(bool, matched);

    m_server->answer(body, status);
    QXAppStoreLookup lookup;
    lookup.setCountry(QStringLiteral("us"));
    lookup.setAppStoreID(appStoreID);
    lookup.setBundleID(QStringLiteral("com.example.app"));
    lookup.setApplicationVersion(installedVersion);
    lookup.setPreviewMode(preview);
    const QXError error = lookup.run();

    QCOMPARE(m_server->targets.size(), 1);
    QCOMPARE(m_server->targets.first(), appStoreID ? QByteArray("/us/lookup?id=123") : QByteArray("/us/lookup?bundleId=com.example.app"));
    QCOMPARE(lookup.httpStatus(), status);
    QCOMPARE(error.domain(), domain);
    if (code >= 0)
        QCOMPARE(error.code(), code);
    else // the parser's own code
        QVERIFY(error.code() > 0);
    if (!description.isEmpty())
        QCOMPARE(error.localizedDescription(), description);
    if (error)
        QCOMPARE(error.userInfo().size(), 1);
    QCOMPARE(lookup.matched(), matched);
    if (matched) {
        QCOMPARE(lookup.record().primaryGenreID, quint64(6016));
        QVERIFY(lookup.record().trackID != 0);
    }
}

void tst_QXRateLookup::connectionFailures()
{
    QXAppStoreLookup lookup;
    lookup.setBundleID(QStringLiteral("com.example.app"));

    QXAppStoreLookup::setStoreURL(RateTest::refusingStoreURL());
    QXError error = lookup.run();
    QCOMPARE(error.domain(), QXNetworkErrorDomain);
    QCOMPARE(error.code(), qint64(QNetworkReply::ConnectionRefusedError));
    QVERIFY(!error.localizedDescription().isEmpty());
    QCOMPARE(lookup.httpStatus(), 0);

    // A server that takes longer than the time-out.
    QXAppStoreLookup::setStoreURL(m_server->url());
    m_server->handler = [](const QByteArray &) {
        return StoreServer::Response{200, RateTest::record(QStringLiteral("com.example.app"), 1, QStringLiteral("1.0")), 5000};
    };
    lookup.setTimeout(0.3);
    QElapsedTimer clock;
    clock.start();
    error = lookup.run();
    QCOMPARE(error.domain(), QXNetworkErrorDomain);
    QCOMPARE(error.code(), qint64(QNetworkReply::TimeoutError));
    QCOMPARE(error.localizedDescription(), QStringLiteral("The request timed out."));
    QVERIFY2(clock.elapsed() < 4000, "the time-out did not end the request");
    QVERIFY(!lookup.matched());

    // A server that hangs up without answering.
    m_server->handler = [](const QByteArray &) { return StoreServer::Response{200, QByteArray(), 0, true}; };
    lookup.setTimeout(60);
    error = lookup.run();
    QCOMPARE(error.domain(), QXNetworkErrorDomain);
    QVERIFY(error.code() > 0 && error.code() < 200);
}

void tst_QXRateLookup::badBodiesNeitherCrashNorHang_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("domain"); // empty: no error
    QTest::addColumn<bool>("found");
    QTest::addColumn<quint64>("trackID");

    QByteArray invalidUtf8 = RateTest::jsonBytes("{'results':[{'bundleId':'com.example.app','version':'");
    invalidUtf8 += "\xff\xfe\xc3";
    invalidUtf8 += RateTest::jsonBytes("'}]}");
    QByteArray huge = RateTest::jsonBytes("{'resultCount':100000,'results':[");
    for (int i = 0; i < 100000; ++i)
        huge += RateTest::jsonBytes("{'bundleId':'com.example.filler','trackId':1,'version':'1.0'},");
    huge += RateTest::jsonBytes("{'bundleId':'com.example.app','trackId':31337,'version':'1.0'}]}");

    const QString json = QStringLiteral("QXJSONErrorDomain");
    QTest::newRow("empty") << QByteArray() << json << false << quint64(0);
    QTest::newRow("truncated") << RateTest::record(QStringLiteral("com.example.app"), 1, QStringLiteral("1.0")).left(40) << json << false << quint64(0);
    QTest::newRow("invalid UTF-8") << invalidUtf8 << json << false << quint64(0);
    QTest::newRow("top-level array") << (RateTest::jsonBytes("[{'bundleId':'com.example.app'}]")) << QString() << false << quint64(0);
    // Only arrays and objects are JSON documents.
    QTest::newRow("top-level scalar") << QByteArray("42") << json << false << quint64(0);
    QTest::newRow("results not an array") << (RateTest::jsonBytes("{'results':{'bundleId':'com.example.app'}}")) << QString() << false << quint64(0);
    QTest::newRow("record not an object") << (RateTest::jsonBytes("{'results':[17]}")) << QString() << false << quint64(0);
    QTest::newRow("null bundle ID") << (RateTest::jsonBytes("{'results':[{'bundleId':null,'trackId':5}]}")) << QString() << false << quint64(0);
    QTest::newRow("trackId as a string") << (RateTest::jsonBytes("{'results':[{'bundleId':'com.example.app','trackId':' 4242x','primaryGenreId':[1]}]}"))
                                         << QString() << true << quint64(4242);
    QTest::newRow("huge") << huge << QString() << true << quint64(31337);
    QTest::newRow("deeply nested") << QByteArray(100000, '[') << json << false << quint64(0);
}

void tst_QXRateLookup::badBodiesNeitherCrashNorHang()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, domain);
    QFETCH(bool, found);
    QFETCH(quint64, trackID);

    m_server->answer(body);
    QXAppStoreLookup lookup;
    lookup.setBundleID(QStringLiteral("com.example.app"));
    lookup.setApplicationVersion(QStringLiteral("1.0"));
    const QXError error = lookup.run();
    if (error)
        QVERIFY(!error.localizedDescription().isEmpty());
    QCOMPARE(error.domain(), domain);
    QCOMPARE(lookup.foundRecord(), found);
    QCOMPARE(lookup.record().trackID, trackID);
    if (found)
        QCOMPARE(lookup.record().primaryGenreID, quint64(0));
}

void tst_QXRateLookup::rateLearnsAndPersistsTheStoreID()
{
    m_server->answer(RateTest::record(QStringLiteral("com.example.app"), 987654, QStringLiteral("1.0"), QXRateAppStoreGameGenreID));
    QLocale::setDefault(QLocale(QStringLiteral("de_DE")));
    Recorder recorder;
    recorder.shouldPrompt = false;
    {
        QXRate rate;
        rate.setDelegate(&recorder);
        QCOMPARE(rate.appStoreCountry(), QStringLiteral("DE"));
        QVERIFY(rate.message().contains(QStringLiteral("gefällt")));
        // The launch lookup learns the ID and the genre by itself.
        QVERIFY(RateTest::waitForLookups());
        QCOMPARE(m_server->targets, QList<QByteArray>{"/DE/lookup?bundleId=com.example.app"});
        QCOMPARE(rate.appStoreID(), quint64(987654));
        QCOMPARE(QSettings().value(QStringLiteral("QXRateAppStoreID")).toLongLong(), 987654);
        QCOMPARE(rate.appStoreGenreID(), QXRateAppStoreGameGenreID);
        QVERIFY(rate.message().contains(QStringLiteral("Spaß")));
        QCOMPARE(rate.ratingsURL().toString(), QStringLiteral("macappstore://127.0.0.1/app/id987654?action=write-review"));
        // Nobody waited for it.
        QCOMPARE(recorder.log, (QStringList{QStringLiteral("didDetectAppUpdate"), QStringLiteral("N:DidDetectAppUpdate")}));

        // A lookup for the prompt asks by ID now, and succeeds on the main thread.
        recorder.log.clear();
        rate.promptIfNetworkAvailable();
        QVERIFY(RateTest::waitForLookups());
        QCOMPARE(m_server->targets.last(), QByteArray("/DE/lookup?id=987654"));
        QCOMPARE(recorder.log, QStringList{QStringLiteral("shouldPrompt")});
        QVERIFY(!recorder.offMainThread);
        QVERIFY(!QXRatePrivate::get(&rate)->visibleAlert);
    }
    QLocale::setDefault(QLocale::c());

    // A later instance finds the persisted ID but asks the store by bundle ID
    // again (only its own field goes into the request), and keeps a genre it knows.
    QXRate later;
    QCOMPARE(later.appStoreID(), quint64(987654));
    later.setAppStoreGenreID(6016);
    later.setAppStoreCountry(QStringLiteral("us"));
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(m_server->targets.last(), QByteArray("/us/lookup?bundleId=com.example.app"));
    QCOMPARE(later.appStoreGenreID(), quint64(6016));
}

void tst_QXRateLookup::rateReportsFailuresOnlyWhenSomethingWaits()
{
    QXAppStoreLookup::setStoreURL(RateTest::refusingStoreURL());
    Recorder recorder;
    QXRate rate;
    rate.setDelegate(&recorder);
    QVERIFY(RateTest::waitForLookups());
    // The launch lookup failed, and only the first launch was reported.
    QCOMPARE(recorder.log, (QStringList{QStringLiteral("didDetectAppUpdate"), QStringLiteral("N:DidDetectAppUpdate")}));

    recorder.log.clear();
    rate.promptIfNetworkAvailable();
    rate.promptIfNetworkAvailable(); // one pending lookup serves
    QVERIFY(QXRatePrivate::get(&rate)->checkingForPrompt);
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(recorder.log, (QStringList{QStringLiteral("couldNotConnect"), QStringLiteral("N:CouldNotConnectToAppStore")}));
    QCOMPARE(recorder.errors.size(), 2);
    QCOMPARE(recorder.errors.at(0), recorder.errors.at(1));
    QCOMPARE(recorder.errors.at(0).code(), qint64(QNetworkReply::ConnectionRefusedError));
    QVERIFY(!QXRatePrivate::get(&rate)->checkingForPrompt);
    QVERIFY(!recorder.offMainThread);

    // The ratings page waiting for an ID hears of the failure too.
    recorder.log.clear();
    rate.openRatingsPageInAppStore();
    QVERIFY(QXRatePrivate::get(&rate)->checkingForAppStoreID);
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(recorder.log, (QStringList{QStringLiteral("couldNotConnect"), QStringLiteral("N:CouldNotConnectToAppStore")}));
    QVERIFY(!QXRatePrivate::get(&rate)->checkingForAppStoreID);

    // A refusal by a sandbox (POSIX 1) stops nothing once an ID is known.
    QXRatePrivate *d = QXRatePrivate::get(&rate);
    const QXError refused = QXError::fromErrno(EPERM);
    recorder.log.clear();
    d->checkingForPrompt = true;
    d->lookupCompleted(refused);
    QCOMPARE(recorder.log, (QStringList{QStringLiteral("couldNotConnect"), QStringLiteral("N:CouldNotConnectToAppStore")}));
    recorder.log.clear();
    recorder.shouldPrompt = false;
    rate.setAppStoreIDOnMainThread(QStringLiteral("555"));
    QCOMPARE(QSettings().value(QStringLiteral("QXRateAppStoreID")).toLongLong(), 555);
    rate.setAppStoreID(0); // the persisted ID is enough
    d->checkingForPrompt = true;
    d->lookupCompleted(refused);
    QCOMPARE(recorder.log, QStringList{QStringLiteral("shouldPrompt")});

    // No error and no ID: the application is not in the store; nothing happens.
    QSettings().remove(QStringLiteral("QXRateAppStoreID"));
    recorder.log.clear();
    d->checkingForPrompt = true;
    d->lookupCompleted(QXError());
    QVERIFY(recorder.log.isEmpty());
    QVERIFY(d->checkingForPrompt);
    // ... unless in preview mode.
    rate.setPreviewMode(true);
    d->lookupCompleted(QXError());
    QCOMPARE(recorder.log, QStringList{QStringLiteral("shouldPrompt")});
}

void tst_QXRateLookup::keyScanner()
{
    const auto scan = [](const char *key, const QString &json) { return QXRate::valueForKey(QString::fromUtf8(key), json); };

    // A string value with a comma is joined back; the last member has no comma after it.
    const QString text = RateTest::json("{'a': 'x, y', 'b': 1}");
    QCOMPARE(scan("a", text), QVariant(QStringLiteral("x, y")));
    QVERIFY(!scan("b", text).isValid());
    QVERIFY(!scan("missing", text).isValid());
    QVERIFY(!scan("A", text).isValid());

    // Escapes, the backslash pass first, and Unicode escapes.
    QCOMPARE(scan("s", RateTest::json("{'s': 'one\\ntwo', 'z': 0}")), QVariant(QStringLiteral("one\ntwo")));
    QCOMPARE(scan("s", RateTest::json("{'s': 'caf\\u00e9', 'z': 0}")), QVariant(QStringLiteral("café")));
    QCOMPARE(scan("s", RateTest::json("{'s': 'a\\/b\\tc\\'d\\\\e', 'z': 0}")), QVariant(QStringLiteral("a/b\tc\"d\\e")));
    QCOMPARE(scan("s", RateTest::json("{'s': 'x\\\\n', 'z': 0}")), QVariant(QStringLiteral("x\n")));
    QCOMPARE(scan("s", RateTest::json("{'s': '\\ud83d\\ude00', 'z': 0}")), QVariant(QStringLiteral("😀")));
    // An escape that decodes to a backslash forms a new escape with what follows.
    QCOMPARE(scan("s", RateTest::json("{'s': '\\u005cu0041', 'z': 0}")), QVariant(QStringLiteral("A")));
    QCOMPARE(scan("s", RateTest::json("{'s': '\\u 0x4g', 'z': 0}")), QVariant(QStringLiteral("\x04g")));
    QCOMPARE(scan("s", RateTest::json("{'s': '\\uzzzz!', 'z': 0}")), QVariant(QString(QChar(0)) + QLatin1Char('!')));

    // Extra quotes at either end go; numbers come back trimmed, as text.
    QCOMPARE(scan("q", RateTest::json("{'q': '''quoted'', 'z': 0}")), QVariant(QStringLiteral("quoted")));
    QCOMPARE(scan("n", QStringLiteral("{\"n\":\n\t 42 \r\n, \"z\": 0}")), QVariant(QStringLiteral("42")));
    QCOMPARE(scan("t", RateTest::json("{'t': true, 'u': null, 'z': 0}")), QVariant(QStringLiteral("true")));
    QCOMPARE(scan("u", RateTest::json("{'t': true, 'u': null, 'z': 0}")), QVariant(QStringLiteral("null")));

    // Text up to the first comma that already ends in a quote is taken as complete.
    QCOMPARE(scan("e", RateTest::json("{'e': 'a\\',b', 'z': 0}")), QVariant(QStringLiteral("a\\")));
    // A string whose closing quote never comes runs to the last comma.
    QCOMPARE(scan("o", RateTest::json("{'o': 'open, still, open}")), QVariant(QStringLiteral("open, still")));

    // The first occurrence anywhere, also nested or inside a string value.
    QCOMPARE(scan("id", RateTest::json("{'outer': {'id': 7, 'x': 1}, 'id': 8, 'z': 0}")), QVariant(QStringLiteral("7")));
    // ... so a value that reads like the key gives the next member's value.
    QCOMPARE(scan("k", RateTest::json("{'a': 'k', 'b': 3, 'k': 9, 'z': 0}")), QVariant(QStringLiteral("3")));

    // Maps give their entry; anything else gives nothing.
    const QVariantMap map{{QStringLiteral("bundleId"), QStringLiteral("com.example.app")}};
    QCOMPARE(QXRate::valueForKey(QStringLiteral("bundleId"), map), QVariant(QStringLiteral("com.example.app")));
    QVERIFY(!QXRate::valueForKey(QStringLiteral("other"), map).isValid());
    QVERIFY(!QXRate::valueForKey(QStringLiteral("bundleId"), QVariant()).isValid());
    QVERIFY(!QXRate::valueForKey(QStringLiteral("bundleId"), QVariantList{map}).isValid());
    QVERIFY(!QXRate::valueForKey(QStringLiteral("bundleId"), 12).isValid());
}

void tst_QXRateLookup::keyScannerStaysInsideItsInput()
{
    const auto scan = [](const QString &json) { return QXRate::valueForKey(QStringLiteral("k"), json); };
    // Escapes cut short at the end of the text.
    QCOMPARE(scan(RateTest::json("'k': 'ab\\u12',")), QVariant(QStringLiteral("ab\x12")));
    QCOMPARE(scan(RateTest::json("'k': 'ab\\u',")), QVariant(QStringLiteral("ab") + QChar(0)));
    QCOMPARE(scan(RateTest::json("'k': \\u\\u\\u,")), QVariant(QString(QChar(0))));
    QCOMPARE(scan(RateTest::json("'k': \\,")), QVariant(QStringLiteral("\\")));
    // Key at the very end, without a colon or without a value.
    QVERIFY(!scan(RateTest::json("{'k'")).isValid());
    QVERIFY(!scan(RateTest::json("{'k':")).isValid());
    QCOMPARE(scan(RateTest::json("{'k':,")), QVariant(QString(QLatin1String(""))));
    QVERIFY(!scan(QString()).isValid());
    QCOMPARE(QXRate::valueForKey(QString(), RateTest::json("{'': 5, 'x': 1}")), QVariant(QStringLiteral("5")));

    // Long inputs: a string value with many commas, and many escapes.
    QString commas = RateTest::json("{'k': 'a");
    commas += QString(400000, QLatin1Char(','));
    commas += RateTest::json("b', 'z': 0}");
    QCOMPARE(scan(commas).toString().size(), 400002);
    QString escapes = RateTest::json("{'k': '");
    for (int i = 0; i < 100000; ++i)
        escapes += RateTest::json("\\u0041\\\\");
    escapes += RateTest::json("', 'z': 0}");
    const QString decoded = scan(escapes).toString();
    QCOMPARE(decoded.size(), 200000);
    QVERIFY(decoded.startsWith(QStringLiteral("A\\A\\")));
}

void tst_QXRateLookup::toolLookup()
{
    const QString tool = qEnvironmentVariable("QX_TOOL");
    if (tool.isEmpty())
        QSKIP("QX_TOOL is not set");
    // The tool is another process: it cannot trust this run's certificate, so plain HTTP.
    StoreServer server(false);
    QVERIFY(server.start());
    server.handler = [](const QByteArray &target) {
        if (target.contains("id=404"))
            return StoreServer::Response{200, RateTest::jsonBytes("{'resultCount':0,'results':[]}")};
        return StoreServer::Response{200, RateTest::record(QStringLiteral("com.example.app"), 42, QStringLiteral("1.10"), 6014)};
    };
    const auto run = [&](const QStringList &arguments, QString *out, QString *err) {
        QProcess process;
        process.start(tool, QStringList{QStringLiteral("rate"), QStringLiteral("lookup"), QStringLiteral("--host"),
                                        server.url().toString()} + arguments);
        // The server lives on this thread: keep its events flowing while the tool runs.
        if (!QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, 30000))
            return -1;
        *out = QString::fromUtf8(process.readAllStandardOutput());
        *err = QString::fromUtf8(process.readAllStandardError());
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    };
    QString out;
    QString err;
    QCOMPARE(run({QStringLiteral("--bundle-id"), QStringLiteral("com.example.APP"), QStringLiteral("--country"), QStringLiteral("DE")},
                 &out, &err), 0);
    QCOMPARE(out, QStringLiteral("bundle ID: com.example.app\ntrack ID: 42\nversion: 1.10\ngenre: 6014\n"));
    QCOMPARE(server.targets.last(), QByteArray("/DE/lookup?bundleId=com.example.APP"));

    QCOMPARE(run({QStringLiteral("--id"), QStringLiteral("42"), QStringLiteral("--app-version"), QStringLiteral("1.9")}, &out, &err), 1);
    QVERIFY2(err.contains(QStringLiteral("QXRateErrorDomain 3: Installed app is not the latest version available")), qPrintable(err));
    QCOMPARE(run({QStringLiteral("--id"), QStringLiteral("42"), QStringLiteral("--app-version"), QStringLiteral("1.10")}, &out, &err), 0);

    QCOMPARE(run({QStringLiteral("--bundle-id"), QStringLiteral("com.example.other")}, &out, &err), 1);
    QVERIFY2(err.contains(QStringLiteral("QXRateErrorDomain 1: Application bundle ID does not match expected value of com.example.app")),
             qPrintable(err));
    QCOMPARE(run({QStringLiteral("--id"), QStringLiteral("404")}, &out, &err), 1);
    QVERIFY2(err.contains(QStringLiteral("QXRateErrorDomain 2")), qPrintable(err));

    // Wrong command lines.
    QCOMPARE(run({}, &out, &err), 2);
    QCOMPARE(run({QStringLiteral("--id"), QStringLiteral("1"), QStringLiteral("--bundle-id"), QStringLiteral("x")}, &out, &err), 2);
    QCOMPARE(run({QStringLiteral("--id"), QStringLiteral("abc")}, &out, &err), 2);
}

QTEST_MAIN(tst_QXRateLookup)
#include "tst_qxratelookup.moc"
