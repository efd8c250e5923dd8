// The App Store lookup against a local HTTPS server, what QXRate learns and
// reports from it, the key scanner, and `qx rate lookup`.

#include "RateTestSupport.h"

using RateTest::jsonBytes;
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
    void toolLookup();

private:
    std::unique_ptr<StoreServer> m_server;
};

void tst_QXRateLookup::initTestCase()
{
    RateTest::isolateSettings(u"tst_qxratelookup"_s);
    QVERIFY(StoreServer::serverConfiguration());
}

void tst_QXRateLookup::init()
{
    RateTest::installBundle();
    QSettings().clear();
    m_server = std::make_unique<StoreServer>();
    QVERIFY(m_server->start());
    QXAppStoreLookup::setStoreURL(m_server->url());
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
    QXAppStoreLookup lookup;
    QCOMPARE(lookup.timeout(), 60.0);
    lookup.setCountry(u"DE"_s);
    lookup.setBundleID(u"com.example.app"_s);
    QCOMPARE(lookup.url().toString(), u"https://itunes.apple.com/DE/lookup?bundleId=com.example.app"_s);
    lookup.setAppStoreID(123);
    QCOMPARE(lookup.url().toString(), u"https://itunes.apple.com/DE/lookup?id=123"_s);
    // Only scheme, host and port of the setting count.
    QXAppStoreLookup::setStoreURL(QUrl(u"http://127.0.0.1:8080/ignored/?q=1"_s));
    lookup.setAppStoreID(0);
    QCOMPARE(lookup.url().toString(), u"http://127.0.0.1:8080/DE/lookup?bundleId=com.example.app"_s);
}

void tst_QXRateLookup::outcomes_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<quint64>("appStoreID");
    QTest::addColumn<QString>("installed");
    QTest::addColumn<bool>("preview");
    QTest::addColumn<QString>("bundleID");
    QTest::addColumn<QString>("domain");
    QTest::addColumn<qint64>("code"); // -1: the parser's code
    QTest::addColumn<QString>("description");
    QTest::addColumn<bool>("matched");

    const QString app = u"com.example.app"_s;
    const QString rate = u"QXRateErrorDomain"_s;
    const QString http = u"HTTPResponseErrorDomain"_s;
    const QByteArray none = jsonBytes("{'resultCount':0,'results':[]}");
    const QByteArray v110 = RateTest::record(app, 7, u"1.10"_s);
    QTest::newRow("match ignoring case") << 200 << RateTest::record(u"COM.EXAMPLE.APP"_s, 9, u"1.0"_s) << 0ull << u"1.0"_s
                                         << false << app << QString() << 0ll << QString() << true;
    QTest::newRow("other bundle ID") << 200 << RateTest::record(u"com.example.other"_s, 5, u"1.0"_s) << 0ull << u"1.0"_s << false
                                     << app << rate << 1ll
                                     << u"Application bundle ID does not match expected value of com.example.other"_s << false;
    QTest::newRow("empty bundle ID") << 200 << v110 << 0ull << u"1.10"_s << false << QString(u""_s) << rate << 1ll << QString() << false;
    QTest::newRow("unknown ID") << 200 << none << 123ull << u"1.0"_s << false << app << rate << 2ll
                                << u"The application could not be found on the App Store."_s << false;
    QTest::newRow("unknown ID, preview") << 200 << none << 123ull << u"1.0"_s << true << app << QString() << 0ll << QString() << false;
    QTest::newRow("unknown bundle ID") << 200 << none << 0ull << u"1.0"_s << false << app << QString() << 0ll << QString() << false;
    QTest::newRow("1.9 installed, 1.10 in store") << 200 << v110 << 0ull << u"1.9"_s << false << app << rate << 3ll
                                                  << u"Installed app is not the latest version available"_s << true;
    QTest::newRow("newer in store, preview") << 200 << v110 << 0ull << u"1.9"_s << true << app << QString() << 0ll << QString() << true;
    QTest::newRow("2.0 installed") << 200 << v110 << 0ull << u"2.0"_s << false << app << QString() << 0ll << QString() << true;
    QTest::newRow("404") << 404 << QByteArray("{}") << 0ull << u"1.0"_s << false << app << http << 404ll
                         << u"The server returned a 404 error"_s << false;
    QTest::newRow("500") << 500 << QByteArray() << 0ull << u"1.0"_s << false << app << http << 500ll
                         << u"The server returned a 500 error"_s << false;
    QTest::newRow("204") << 204 << QByteArray() << 0ull << u"1.0"_s << false << app << QString() << 0ll << QString() << false;
    QTest::newRow("malformed JSON") << 200 << jsonBytes("{'results': [{'bundleId': 'com.example.app'") << 0ull << u"1.0"_s
                                    << false << app << QXJSONErrorDomain << -1ll << QString() << false;
}

void tst_QXRateLookup::outcomes()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(quint64, appStoreID);
    QFETCH(QString, installed);
    QFETCH(bool, preview);
    QFETCH(QString, bundleID);
    QFETCH(QString, domain);
    QFETCH(qint64, code);
    QFETCH(QString, description);
    QFETCH(bool, matched);

    m_server->answer(body, status);
    QXAppStoreLookup lookup;
    lookup.setAppStoreID(appStoreID);
    lookup.setBundleID(bundleID);
    lookup.setApplicationVersion(installed);
    lookup.setPreviewMode(preview);
    const QXError error = lookup.run();

    QCOMPARE(m_server->targets, QList<QByteArray>{appStoreID ? QByteArray("/us/lookup?id=123") : QByteArray("/us/lookup?bundleId=" + bundleID.toUtf8())});
    QCOMPARE(lookup.httpStatus(), status);
    QCOMPARE(error.domain(), domain);
    QVERIFY(code < 0 ? error.code() > 0 : error.code() == code);
    if (!description.isEmpty())
        QCOMPARE(error.localizedDescription(), description);
    QCOMPARE(error.userInfo().size(), error ? 1 : 0);
    QCOMPARE(lookup.matched(), matched);
    if (matched)
        QVERIFY(lookup.record().trackID != 0 && lookup.record().primaryGenreID == 6016);
}

void tst_QXRateLookup::connectionFailures()
{
    QXAppStoreLookup lookup;
    QXAppStoreLookup::setStoreURL(RateTest::refusingStoreURL());
    QXError error = lookup.run();
    QCOMPARE(error.domain(), QXNetworkErrorDomain);
    QCOMPARE(error.code(), qint64(QNetworkReply::ConnectionRefusedError));
    QVERIFY(!error.localizedDescription().isEmpty());

    // Slower than the time-out.
    QXAppStoreLookup::setStoreURL(m_server->url());
    m_server->handler = [](const QByteArray &) { return StoreServer::Response{200, "{}", 5000}; };
    lookup.setTimeout(0.3);
    QElapsedTimer clock;
    clock.start();
    error = lookup.run();
    QCOMPARE(error.code(), qint64(QNetworkReply::TimeoutError));
    QCOMPARE(error.localizedDescription(), u"The request timed out."_s);
    QVERIFY2(clock.elapsed() < 4000, "the time-out did not end the request");

    // Hung up without an answer.
    m_server->handler = [](const QByteArray &) { return StoreServer::Response{200, {}, 0, true}; };
    error = lookup.run();
    QCOMPARE(error.domain(), QXNetworkErrorDomain);
    QVERIFY(error.code() > 0 && error.code() < 200);
}

void tst_QXRateLookup::badBodiesNeitherCrashNorHang_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("parseError");
    QTest::addColumn<quint64>("trackID"); // 0: no record

    QByteArray huge = "{\"results\":[";
    for (int i = 0; i < 100000; ++i)
        huge += jsonBytes("{'bundleId':'com.example.filler','trackId':1,'version':'9.0'},");
    huge += jsonBytes("{'bundleId':'com.example.app','trackId':31337,'version':'1.0'}]}");

    QTest::newRow("empty") << QByteArray() << true << 0ull;
    QTest::newRow("truncated") << RateTest::record(u"com.example.app"_s, 1, u"1.0"_s).left(40) << true << 0ull;
    QTest::newRow("invalid UTF-8") << QByteArray(jsonBytes("{'results':[{'bundleId':'com.example.app','version':'")
                                                 + "\xff\xfe\xc3" + jsonBytes("'}]}")) << true << 0ull;
    QTest::newRow("deeply nested") << QByteArray(100000, '[') << true << 0ull;
    // Only arrays and objects are JSON documents.
    QTest::newRow("top-level scalar") << QByteArray("42") << true << 0ull;
    QTest::newRow("top-level array") << jsonBytes("[{'bundleId':'com.example.app'}]") << false << 0ull;
    QTest::newRow("results not an array") << jsonBytes("{'results':{'bundleId':'com.example.app'}}") << false << 0ull;
    QTest::newRow("record not an object") << jsonBytes("{'results':[17]}") << false << 0ull;
    QTest::newRow("null bundle ID") << jsonBytes("{'results':[{'bundleId':null,'trackId':5}]}") << false << 0ull;
    QTest::newRow("trackId as a string") << jsonBytes("{'results':[{'bundleId':'com.example.app','trackId':' 4242x',"
                                                      "'primaryGenreId':[1]}]}") << false << 4242ull;
    QTest::newRow("huge") << huge << false << 31337ull;
}

void tst_QXRateLookup::badBodiesNeitherCrashNorHang()
{
    QFETCH(QByteArray, body);
    QFETCH(bool, parseError);
    QFETCH(quint64, trackID);

    m_server->answer(body);
    QXAppStoreLookup lookup;
    lookup.setBundleID(u"com.example.app"_s);
    lookup.setApplicationVersion(u"1.0"_s);
    const QXError error = lookup.run();
    QCOMPARE(error.domain(), parseError ? QXJSONErrorDomain : QString());
    QVERIFY(!error || !error.localizedDescription().isEmpty());
    QCOMPARE(lookup.foundRecord(), trackID != 0);
    QCOMPARE(lookup.record().trackID, trackID);
    QCOMPARE(lookup.record().primaryGenreID, 0u);
}

void tst_QXRateLookup::rateLearnsAndPersistsTheStoreID()
{
    m_server->answer(RateTest::record(u"com.example.app"_s, 987654, u"1.0"_s, QXRateAppStoreGameGenreID));
    QLocale::setDefault(QLocale(u"de_DE"_s));
    Recorder recorder;
    recorder.shouldPrompt = false;
    {
        QXRate rate;
        rate.setDelegate(&recorder);
        QVERIFY(rate.message().contains(u"gefällt"_s));
        // The launch lookup learns the ID and the genre by itself, and reports nothing.
        QVERIFY(RateTest::waitForLookups());
        QCOMPARE(m_server->targets, QList<QByteArray>{"/DE/lookup?bundleId=com.example.app"});
        QCOMPARE(rate.appStoreID(), 987654u);
        QCOMPARE(QSettings().value(u"QXRateAppStoreID"_s).toLongLong(), 987654);
        QCOMPARE(rate.appStoreGenreID(), QXRateAppStoreGameGenreID);
        QVERIFY(rate.message().contains(u"Spaß"_s));
        QCOMPARE(recorder.log, (QStringList{u"didDetectAppUpdate"_s, u"N:DidDetectAppUpdate"_s}));

        // A lookup for the prompt asks by ID now and succeeds on the main thread.
        recorder.log.clear();
        rate.promptIfNetworkAvailable();
        QVERIFY(RateTest::waitForLookups());
        QCOMPARE(m_server->targets.last(), "/DE/lookup?id=987654");
        QCOMPARE(recorder.log, QStringList{u"shouldPrompt"_s});
        QVERIFY(!recorder.offMainThread);
    }
    QLocale::setDefault(QLocale::c());

    // A later instance has the persisted ID but asks by bundle ID (only its
    // own ID goes into the request), and keeps a genre it already knows.
    QXRate later;
    QCOMPARE(later.appStoreID(), 987654u);
    later.setAppStoreGenreID(6016);
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(m_server->targets.last(), "/us/lookup?bundleId=com.example.app");
    QCOMPARE(later.appStoreGenreID(), 6016u);
}

void tst_QXRateLookup::rateReportsFailuresOnlyWhenSomethingWaits()
{
    QXAppStoreLookup::setStoreURL(RateTest::refusingStoreURL());
    const QStringList failure{u"couldNotConnect"_s, u"N:CouldNotConnectToAppStore"_s};
    Recorder recorder;
    QXRate rate;
    rate.setDelegate(&recorder);
    QXRatePrivate *d = QXRatePrivate::get(&rate);
    // The launch lookup fails silently.
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(recorder.log, (QStringList{u"didDetectAppUpdate"_s, u"N:DidDetectAppUpdate"_s}));

    // A prompt waiting for it hears, delegate first, with the same error.
    recorder.log.clear();
    rate.promptIfNetworkAvailable();
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(recorder.log, failure);
    QCOMPARE(recorder.errors.size(), 2);
    QCOMPARE(recorder.errors.at(0), recorder.errors.at(1));
    QCOMPARE(recorder.errors.at(0).code(), qint64(QNetworkReply::ConnectionRefusedError));
    QVERIFY(!d->checkingForPrompt && !recorder.offMainThread);
    // So does the ratings page waiting for an ID.
    recorder.log.clear();
    rate.openRatingsPageInAppStore();
    QVERIFY(d->checkingForAppStoreID);
    QVERIFY(RateTest::waitForLookups());
    QCOMPARE(recorder.log, failure);
    QVERIFY(!d->checkingForAppStoreID);

    // A sandbox's refusal (POSIX 1) stops nothing once an ID is known.
    const QXError refused = QXError::fromErrno(EPERM);
    recorder.log.clear();
    d->checkingForPrompt = true;
    d->lookupCompleted(refused);
    QCOMPARE(recorder.log, failure);
    recorder.log.clear();
    recorder.shouldPrompt = false;
    rate.setAppStoreIDOnMainThread(u"555"_s);
    QCOMPARE(QSettings().value(u"QXRateAppStoreID"_s).toLongLong(), 555);
    rate.setAppStoreID(0); // the persisted ID is enough
    d->checkingForPrompt = true;
    d->lookupCompleted(refused);
    QCOMPARE(recorder.log, QStringList{u"shouldPrompt"_s});

    // No error and no ID: the store does not know the application; nothing happens ...
    QSettings().remove(u"QXRateAppStoreID"_s);
    recorder.log.clear();
    d->checkingForPrompt = true;
    d->lookupCompleted(QXError());
    QVERIFY(recorder.log.isEmpty() && d->checkingForPrompt);
    // ... except in preview mode.
    rate.setPreviewMode(true);
    d->lookupCompleted(QXError());
    QCOMPARE(recorder.log, QStringList{u"shouldPrompt"_s});

    // A store that answers too slowly fails the waiting prompt with a time-out.
    m_server->handler = [](const QByteArray &) { return StoreServer::Response{200, "{}", 5000}; };
    QXAppStoreLookup::setStoreURL(m_server->url());
    QXRatePrivate::setLookupTimeout(0.3);
    recorder.log.clear();
    rate.promptIfNetworkAvailable();
    QVERIFY(RateTest::waitForLookups());
    QXRatePrivate::setLookupTimeout(60.0);
    QCOMPARE(recorder.log, failure);
    QCOMPARE(recorder.errors.last().code(), qint64(QNetworkReply::TimeoutError));
}

void tst_QXRateLookup::keyScanner()
{
    const auto scan = [](const QString &key, const char *json) {
        return QXRate::valueForKey(key, RateTest::json(json)).toString();
    };
    const auto found = [](const QString &key, const char *json) {
        return QXRate::valueForKey(key, RateTest::json(json)).isValid();
    };

    // A string with commas is joined back; the last member has no comma after it.
    QCOMPARE(scan(u"a"_s, "{'a': 'x, y', 'b': 1}"), u"x, y"_s);
    QVERIFY(!found(u"b"_s, "{'a': 'x, y', 'b': 1}") && !found(u"A"_s, "{'a': 'x, y', 'b': 1}"));
    // Escapes, the backslash pass first, and Unicode escapes (pairs, and those that form anew).
    QCOMPARE(scan(u"s"_s, "{'s': 'one\\ntwo', 'z': 0}"), u"one\ntwo"_s);
    QCOMPARE(scan(u"s"_s, "{'s': 'a\\/b\\tc\\'d\\\\e', 'z': 0}"), u"a/b\tc\"d\\e"_s);
    QCOMPARE(scan(u"s"_s, "{'s': 'x\\\\n', 'z': 0}"), u"x\n"_s);
    QCOMPARE(scan(u"s"_s, "{'s': 'caf\\u00e9 \\ud83d\\ude00', 'z': 0}"), u"café 😀"_s);
    QCOMPARE(scan(u"s"_s, "{'s': '\\u005cu0041', 'z': 0}"), u"A"_s);
    QCOMPARE(scan(u"s"_s, "{'s': '\\u 0x4g\\uzzzz!', 'z': 0}"), u"\x04g"_s + QChar(0) + u"!"_s);
    // Extra quotes go; numbers, booleans and null come back trimmed, as text.
    QCOMPARE(scan(u"q"_s, "{'q': '''quoted'', 'z': 0}"), u"quoted"_s);
    QCOMPARE(scan(u"n"_s, "{'n':\n\t 42 \r\n, 't': true, 'u': null, 'z': 0}"), u"42"_s);
    QCOMPARE(scan(u"u"_s, "{'n':\n\t 42 \r\n, 't': true, 'u': null, 'z': 0}"), u"null"_s);
    // Text up to a comma that already ends in a quote is complete; an unclosed one runs to the last comma.
    QCOMPARE(scan(u"e"_s, "{'e': 'a\\',b', 'z': 0}"), u"a\\"_s);
    QCOMPARE(scan(u"o"_s, "{'o': 'open, still, open}"), u"open, still"_s);
    // The first occurrence anywhere: nested, or a value that reads like the key.
    QCOMPARE(scan(u"id"_s, "{'outer': {'id': 7, 'x': 1}, 'id': 8, 'z': 0}"), u"7"_s);
    QCOMPARE(scan(u"k"_s, "{'a': 'k', 'b': 3, 'k': 9, 'z': 0}"), u"3"_s);
    QCOMPARE(scan(QString(), "{'': 5, 'x': 1}"), u"5"_s);

    // Never past the end: short escapes, a key without colon or value.
    QCOMPARE(scan(u"k"_s, "'k': 'ab\\u12',"), u"ab\x12"_s);
    QCOMPARE(scan(u"k"_s, "'k': \\u\\u\\u,"), QString(QChar(0)));
    QCOMPARE(scan(u"k"_s, "'k': \\,"), u"\\"_s);
    QVERIFY(!found(u"k"_s, "{'k'") && !found(u"k"_s, "{'k':") && found(u"k"_s, "{'k':,"));

    // Maps give their entry, anything else nothing.
    const QVariantMap map{{u"bundleId"_s, u"com.example.app"_s}};
    QCOMPARE(QXRate::valueForKey(u"bundleId"_s, map), QVariant(u"com.example.app"_s));
    for (const QVariant &other : {QVariant(), QVariant(QVariantList{map}), QVariant(12)})
        QVERIFY(!QXRate::valueForKey(u"bundleId"_s, other).isValid());

    // Long inputs: many commas inside a string, many escapes.
    const QString commas = RateTest::json("{'k': 'a") + QString(400000, u',') + RateTest::json("b', 'z': 0}");
    QCOMPARE(QXRate::valueForKey(u"k"_s, commas).toString().size(), 400002);
    const QString escapes = RateTest::json("{'k': '") + RateTest::json("\\u0041\\\\").repeated(100000) + RateTest::json("', 'z': 0}");
    QCOMPARE(QXRate::valueForKey(u"k"_s, escapes).toString(), u"A\\"_s.repeated(100000));
}

void tst_QXRateLookup::toolLookup()
{
    const QString tool = qEnvironmentVariable("QX_TOOL");
    if (tool.isEmpty())
        QSKIP("QX_TOOL is not set");
    // The tool is another process, which cannot trust this run's certificate: plain HTTP.
    StoreServer server(false);
    QVERIFY(server.start());
    server.handler = [](const QByteArray &target) {
        if (target.contains("id=404"))
            return StoreServer::Response{200, jsonBytes("{'resultCount':0,'results':[]}")};
        return StoreServer::Response{200, RateTest::record(u"com.example.app"_s, 42, u"1.10"_s, 6014)};
    };
    QString out;
    QString err;
    const auto run = [&](const QStringList &arguments) {
        QProcess process;
        process.start(tool, QStringList{u"rate"_s, u"lookup"_s, u"--host"_s, server.url().toString()} + arguments);
        // The server lives on this thread: keep its events flowing meanwhile.
        if (!QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, 30000))
            return -1;
        out = QString::fromUtf8(process.readAllStandardOutput());
        err = QString::fromUtf8(process.readAllStandardError());
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    };

    QCOMPARE(run({u"--bundle-id"_s, u"com.example.APP"_s, u"--country"_s, u"DE"_s}), 0);
    QCOMPARE(out, u"bundle ID: com.example.app\ntrack ID: 42\nversion: 1.10\ngenre: 6014\n"_s);
    QCOMPARE(server.targets.last(), "/DE/lookup?bundleId=com.example.APP");
    QCOMPARE(run({u"--id"_s, u"42"_s, u"--app-version"_s, u"1.9"_s}), 1);
    QVERIFY2(err.contains(u"QXRateErrorDomain 3: Installed app is not the latest version available"_s), qPrintable(err));
    QCOMPARE(run({u"--id"_s, u"42"_s, u"--app-version"_s, u"1.10"_s}), 0);
    QCOMPARE(run({u"--bundle-id"_s, u"com.example.other"_s}), 1);
    QVERIFY2(err.contains(u"QXRateErrorDomain 1: Application bundle ID does not match expected value of com.example.app"_s),
             qPrintable(err));
    QCOMPARE(run({u"--id"_s, u"404"_s}), 1);
    QVERIFY2(err.contains(u"QXRateErrorDomain 2"_s), qPrintable(err));
    // Wrong command lines.
    QCOMPARE(run({}), 2);
    QCOMPARE(run({u"--id"_s, u"1"_s, u"--bundle-id"_s, u"x"_s}), 2);
    QCOMPARE(run({u"--id"_s, u"abc"_s}), 2);
}

QTEST_MAIN(tst_QXRateLookup)
#include "tst_qxratelookup.moc"
