// The qx tool as scripts use it: exit statuses, standard input and output,
// help texts, and the text and data commands.

#include "QxToolRunner.h"

#include <QtTest>

class tst_QxTool : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void helpAndBadUsage();
    void base64();
    void digests();
    void urlsPathsSizesAndDates();
    void tourRuns();

private:
    QTemporaryDir m_dir;
};

void tst_QxTool::initTestCase()
{
    QVERIFY(!qEnvironmentVariableIsEmpty("QX_TOOL"));
    QVERIFY(m_dir.isValid());
}

void tst_QxTool::helpAndBadUsage()
{
    const QxRun help = runQx({QStringLiteral("--help")});
    QCOMPARE(help.exitCode, 0);
    for (const char *command : {"tour", "base64 encode", "digest md5|sha1|sha256", "url decode", "relpath", "filesize", "iso8601"})
        QVERIFY2(help.out.contains(command), command);

    const QxRun commandHelp = runQx({QStringLiteral("base64"), QStringLiteral("--help")});
    QCOMPARE(commandHelp.exitCode, 0);
    QVERIFY(commandHelp.out.contains("--lines"));

    // Wrong command lines exit with 2 and say what was wrong on stderr.
    const QList<QStringList> wrong = {
        {},
        {QStringLiteral("no-such-command")},
        {QStringLiteral("base64")},
        {QStringLiteral("base64"), QStringLiteral("squash")},
        {QStringLiteral("base64"), QStringLiteral("decode"), QStringLiteral("--lines")},
        {QStringLiteral("base64"), QStringLiteral("encode"), QStringLiteral("a"), QStringLiteral("b")},
        {QStringLiteral("digest"), QStringLiteral("crc32")},
        {QStringLiteral("url"), QStringLiteral("encode")},
        {QStringLiteral("relpath"), QStringLiteral("/a")},
        {QStringLiteral("filesize"), QStringLiteral("-1")},
        {QStringLiteral("filesize"), QStringLiteral("12kb")},
        {QStringLiteral("iso8601"), QStringLiteral("nan")},
        {QStringLiteral("iso8601"), QStringLiteral("1e300")},
        {QStringLiteral("tour"), QStringLiteral("--bogus")},
    };
    for (const QStringList &arguments : wrong) {
        const QxRun run = runQx(arguments);
        QVERIFY2(run.exitCode == 2, qPrintable(arguments.join(QLatin1Char(' '))));
        QVERIFY(!run.err.isEmpty());
        QVERIFY(run.out.isEmpty());
    }
}

void tst_QxTool::base64()
{
    const QxRun encoded = runQx({QStringLiteral("base64"), QStringLiteral("encode")}, QByteArray("ABC"));
    QCOMPARE(encoded.exitCode, 0);
    QCOMPARE(encoded.out, QByteArray("QUJD\n"));

    QByteArray bytes(100, Qt::Uninitialized);
    for (int i = 0; i < bytes.size(); ++i)
        bytes[i] = char(i * 37);
    const QString file = m_dir.filePath(QStringLiteral("bytes.bin"));
    QFile out(file);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(bytes);
    out.close();

    const QxRun lines = runQx({QStringLiteral("base64"), QStringLiteral("encode"), QStringLiteral("--lines"), file});
    QCOMPARE(lines.exitCode, 0);
    QCOMPARE(lines.out.count("\r\n"), 2);
    QVERIFY(lines.out.endsWith("=\n"));
    // Decoding writes raw bytes, whatever line breaks the text has.
    const QxRun decoded = runQx({QStringLiteral("base64"), QStringLiteral("decode")}, lines.out);
    QCOMPARE(decoded.exitCode, 0);
    QCOMPARE(decoded.out, bytes);

    const QxRun missing = runQx({QStringLiteral("base64"), QStringLiteral("encode"), m_dir.filePath(QStringLiteral("none"))});
    QCOMPARE(missing.exitCode, 1);
    QVERIFY(missing.err.contains("cannot read"));
}

void tst_QxTool::digests()
{
    const QxRun fromStdin = runQx({QStringLiteral("digest"), QStringLiteral("md5")}, QByteArray("avatar-42"));
    QCOMPARE(fromStdin.out, QByteArray("018d16023be51c8939fc73a793564140\n"));
    const QString file = m_dir.filePath(QStringLiteral("abc.txt"));
    QFile out(file);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write("abc");
    out.close();
    QCOMPARE(runQx({QStringLiteral("digest"), QStringLiteral("sha1"), file}).out,
             QByteArray("a9993e364706816aba3e25717850c26c9cd0d89d\n"));
    QCOMPARE(runQx({QStringLiteral("digest"), QStringLiteral("sha256"), QStringLiteral("-")}, QByteArray("abc")).out,
             QByteArray("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\n"));
}

void tst_QxTool::urlsPathsSizesAndDates()
{
    QCOMPARE(runQx({QStringLiteral("url"), QStringLiteral("encode"), QStringLiteral("a-b c")}).out, QByteArray("a%2Db%20c\n"));
    QCOMPARE(runQx({QStringLiteral("url"), QStringLiteral("decode"), QStringLiteral("a%20b+c")}).out, QByteArray("a b+c\n"));
    const QxRun bad = runQx({QStringLiteral("url"), QStringLiteral("decode"), QStringLiteral("%zz")});
    QCOMPARE(bad.exitCode, 1);
    QVERIFY(bad.out.isEmpty());
    QVERIFY(bad.err.contains("%zz"));

    QCOMPARE(runQx({QStringLiteral("relpath"), QStringLiteral("/a/d"), QStringLiteral("/a/b/c")}).out, QByteArray("../../d\n"));

    QProcessEnvironment german = QProcessEnvironment::systemEnvironment();
    german.insert(QStringLiteral("LC_ALL"), QStringLiteral("de_DE.UTF-8"));
    german.insert(QStringLiteral("LANG"), QStringLiteral("de_DE.UTF-8"));
    QProcessEnvironment english = QProcessEnvironment::systemEnvironment();
    english.insert(QStringLiteral("LC_ALL"), QStringLiteral("en_US.UTF-8"));
    english.insert(QStringLiteral("LANG"), QStringLiteral("en_US.UTF-8"));
    QCOMPARE(runQx({QStringLiteral("filesize"), QStringLiteral("1536")}, {}, english).out, QByteArray("1.5 KB\n"));
    QCOMPARE(runQx({QStringLiteral("filesize"), QStringLiteral("1536")}, {}, german).out, QByteArray("1,5 KB\n"));
    QCOMPARE(runQx({QStringLiteral("filesize"), QStringLiteral("18446744073709551615")}, {}, english).out,
             QByteArray("17179869184 GB\n"));

    QProcessEnvironment utc = QProcessEnvironment::systemEnvironment();
    utc.insert(QStringLiteral("TZ"), QStringLiteral("UTC"));
    QCOMPARE(runQx({QStringLiteral("iso8601"), QStringLiteral("0")}, {}, utc).out, QByteArray("1970-01-01T00:00:00.000+0000\n"));
    QCOMPARE(runQx({QStringLiteral("iso8601"), QStringLiteral("-0.5")}, {}, utc).out, QByteArray("1969-12-31T23:59:59.500+0000\n"));
    const QxRun now = runQx({QStringLiteral("iso8601")}, {}, utc);
    QCOMPARE(now.exitCode, 0);
    const QDateTime parsed = QDateTime::fromString(QString::fromLatin1(now.out.trimmed()).replace(QStringLiteral("+0000"), QStringLiteral("Z")),
                                                   Qt::ISODateWithMs);
    QVERIFY(qAbs(parsed.secsTo(QDateTime::currentDateTimeUtc())) < 60);
}

void tst_QxTool::tourRuns()
{
    const QxRun tour = runQx({QStringLiteral("tour"), QStringLiteral("--gallery"), m_dir.filePath(QStringLiteral("gallery"))});
    QCOMPARE(tour.exitCode, 0);
    QVERIFY(tour.out.contains("018d16023be51c8939fc73a793564140"));
    QVERIFY(tour.out.contains("QUJD"));
}

QTEST_GUILESS_MAIN(tst_QxTool)
#include "tst_qxtool.moc"
