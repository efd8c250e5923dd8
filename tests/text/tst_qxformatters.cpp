#include <QXFoundation/QXDateFormatter.h>
#include <QXFoundation/QXNumberFormatter.h>

#include <QtTest>

class tst_QXFormatters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QLocale::setDefault(QLocale::c()); }
    void numberFormatterDefaults();
    void fileSizesInEnglish_data();
    void fileSizesInEnglish();
    void fileSizesFollowTheLocale();
    void iso8601();
};

void tst_QXFormatters::numberFormatterDefaults()
{
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QXNumberFormatter formatter;
    // No grouping, no fraction, half-even rounding.
    QCOMPARE(formatter.stringFromNumber(qint64(1234567)), QStringLiteral("1234567"));
    QCOMPARE(formatter.stringFromNumber(2.5), QStringLiteral("2"));
    QCOMPARE(formatter.stringFromNumber(3.5), QStringLiteral("4"));
    QCOMPARE(formatter.stringFromNumber(-0.4), QStringLiteral("-0"));
    formatter.setNumberStyle(QXNumberFormatter::DecimalStyle);
    QCOMPARE(formatter.stringFromNumber(qint64(1234567)), QStringLiteral("1,234,567"));
    formatter.setUsesGroupingSeparator(false);
    QCOMPARE(formatter.stringFromNumber(qint64(1234567)), QStringLiteral("1234567"));
    // Integers beyond a double's exact range are written exactly.
    QCOMPARE(formatter.stringFromNumber(std::numeric_limits<quint64>::max()), QStringLiteral("18446744073709551615"));
    QCOMPARE(formatter.stringFromNumber(std::numeric_limits<qint64>::min()), QStringLiteral("-9223372036854775808"));

    formatter.setMaximumFractionDigits(2);
    formatter.setRoundingMode(QXNumberFormatter::RoundHalfUp);
    QCOMPARE(formatter.stringFromNumber(1.005), QStringLiteral("1.01")); // from the shortest decimal form
    QCOMPARE(formatter.stringFromNumber(0.5), QStringLiteral("0.5"));
    formatter.setMinimumIntegerDigits(0);
    QCOMPARE(formatter.stringFromNumber(0.5), QStringLiteral(".5"));
    formatter.setMinimumFractionDigits(3); // raises the maximum with it
    QCOMPARE(formatter.maximumFractionDigits(), 3);
    QCOMPARE(formatter.stringFromNumber(1.5), QStringLiteral("1.500"));
    QVERIFY(!formatter.stringFromNumber(qQNaN()).isEmpty());
}

void tst_QXFormatters::fileSizesInEnglish_data()
{
    QTest::addColumn<quint64>("bytes");
    QTest::addColumn<QString>("text");
    QTest::newRow("0") << quint64(0) << QStringLiteral("0 Byte");
    QTest::newRow("1") << quint64(1) << QStringLiteral("1 Byte");
    QTest::newRow("1024") << quint64(1024) << QStringLiteral("1024 Byte");
    QTest::newRow("1025") << quint64(1025) << QStringLiteral("1 KB");
    QTest::newRow("1536") << quint64(1536) << QStringLiteral("1.5 KB");
    QTest::newRow("1048576") << quint64(1048576) << QStringLiteral("1024 KB");
    QTest::newRow("1048577") << quint64(1048577) << QStringLiteral("1 MB");
    QTest::newRow("1572864") << quint64(1572864) << QStringLiteral("1.5 MB");
    QTest::newRow("1073741824") << quint64(1073741824) << QStringLiteral("1024 MB");
    QTest::newRow("1610612736") << quint64(1610612736) << QStringLiteral("1.5 GB");
    QTest::newRow("1024 GB") << quint64(1099511627776) << QStringLiteral("1024 GB");
    QTest::newRow("2048 GB") << quint64(2199023255552) << QStringLiteral("2048 GB");
    QTest::newRow("1025 KB") << quint64(1049600) << QStringLiteral("1 MB");
    QTest::newRow("half up 1.125") << quint64(1152) << QStringLiteral("1.13 KB");
    QTest::newRow("1.2548828125") << quint64(1285) << QStringLiteral("1.25 KB");
    QTest::newRow("1.255859375") << quint64(1286) << QStringLiteral("1.26 KB");
    QTest::newRow("max") << std::numeric_limits<quint64>::max() << QStringLiteral("17179869184 GB");
}

void tst_QXFormatters::fileSizesInEnglish()
{
    QFETCH(quint64, bytes);
    QFETCH(QString, text);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QCOMPARE(qx_formatedFileSize(qx_fileSizeFormatter(), bytes), text);
}

void tst_QXFormatters::fileSizesFollowTheLocale()
{
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    const QXNumberFormatter german = qx_fileSizeFormatter();
    QCOMPARE(qx_formatedFileSize(german, 1536), QStringLiteral("1,5 KB"));
    QCOMPARE(qx_formatedFileSize(german, 1152), QStringLiteral("1,13 KB"));
    QCOMPARE(qx_formatedFileSize(german, 0), QStringLiteral("0 Byte"));
    // No grouping even where the locale groups thousands.
    QCOMPARE(qx_formatedFileSize(german, 2199023255552), QStringLiteral("2048 GB"));

    // The formatter keeps the locale it was made with; the unit follows the current translations.
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QCOMPARE(qx_formatedFileSize(german, 1536), QStringLiteral("1,5 KB"));
    QCOMPARE(qx_formatedFileSize(qx_fileSizeFormatter(), 1536), QStringLiteral("1.5 KB"));
    QXNumberFormatter french = qx_fileSizeFormatter();
    french.setLocale(QLocale(QLocale::French, QLocale::France));
    QCOMPARE(qx_formatedFileSize(french, 1572864), QStringLiteral("1,5 MB"));
}

void tst_QXFormatters::iso8601()
{
    QXDateFormatter formatter = qx_ISO8601DateFormatter();
    QCOMPARE(formatter.dateFormat(), QStringLiteral("yyyy-MM-dd'T'HH:mm:ss.SSSZ"));
    QCOMPARE(formatter.localeIdentifier(), QStringLiteral("en_US_POSIX"));
    QVERIFY(!formatter.timeZone().isValid()); // the system's zone

    // 14:07:09.042 on 5 March 2024, one hour east of UTC.
    const QDateTime moment = QDateTime(QDate(2024, 3, 5), QTime(13, 7, 9, 42), QTimeZone::utc());
    formatter.setTimeZone(QTimeZone("Etc/GMT-1"));
    QCOMPARE(formatter.stringFromDate(moment), QStringLiteral("2024-03-05T14:07:09.042+0100"));
    formatter.setTimeZone(QTimeZone("America/New_York"));
    QCOMPARE(formatter.stringFromDate(moment), QStringLiteral("2024-03-05T08:07:09.042-0500"));
    // Summer time changes the offset of the same zone.
    QCOMPARE(formatter.stringFromDate(moment.addMonths(4)), QStringLiteral("2024-07-05T09:07:09.042-0400"));

    // The same formatter parses what it writes, from any offset.
    QCOMPARE(formatter.dateFromString(QStringLiteral("2024-03-05T14:07:09.042+0100")), moment);
    QCOMPARE(formatter.dateFromString(QStringLiteral("2024-03-05T13:07:09.042+0000")), moment);
    QVERIFY(!formatter.dateFromString(QStringLiteral("2024-03-05")).isValid());
    QVERIFY(!formatter.dateFromString(QStringLiteral("2024-03-05T14:07:09.042+0100 trailing")).isValid());
    QVERIFY(!formatter.dateFromString(QStringLiteral("2024-13-45T14:07:09.042+0100")).isValid());
    QVERIFY(formatter.stringFromDate(QDateTime()).isNull());

    // Machine-readable: the default locale never changes the digits.
    QLocale::setDefault(QLocale(QLocale::Arabic, QLocale::Egypt));
    const QXDateFormatter iso = qx_ISO8601DateFormatter();
    QXDateFormatter utc = iso;
    utc.setTimeZone(QTimeZone::utc());
    QCOMPARE(utc.stringFromDate(QDateTime(QDate(1999, 1, 2), QTime(3, 4, 5), QTimeZone::utc())),
             QStringLiteral("1999-01-02T03:04:05.000+0000"));

    // The command-line tool formats in the zone of TZ.
    const QString tool = qEnvironmentVariable("QX_TOOL");
    if (!tool.isEmpty()) {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("TZ"), QStringLiteral("Etc/GMT-1"));
        process.setProcessEnvironment(environment);
        process.start(tool, {QStringLiteral("iso8601"), QStringLiteral("1709644029.042")});
        QVERIFY(process.waitForFinished(10000));
        QCOMPARE(process.readAllStandardOutput(), QByteArray("2024-03-05T14:07:09.042+0100\n"));
    }
}

QTEST_GUILESS_MAIN(tst_QXFormatters)
#include "tst_qxformatters.moc"
