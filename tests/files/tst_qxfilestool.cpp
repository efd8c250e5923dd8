#include <QXFoundation/QXString.h>

#include <QtTest>

#include <csignal>

// The files commands of the qx tool, run as a user would run them.
class tst_QXFilesTool : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void du();
    void uniquePath();
    void watchReportsSettledChangesUntilInterrupted();

private:
    struct Result
    {
        int status = -1;
        QString out;
        QString err;
    };
    Result run(const QStringList &arguments);
    QString m_tool;
    QTemporaryDir m_scratch;
};

void tst_QXFilesTool::initTestCase()
{
    m_tool = qEnvironmentVariable("QX_TOOL");
    QVERIFY2(QFileInfo(m_tool).isExecutable(), "QX_TOOL must name the qx binary");
    QVERIFY(m_scratch.isValid());
}

tst_QXFilesTool::Result tst_QXFilesTool::run(const QStringList &arguments)
{
    QProcess process;
    process.start(m_tool, arguments);
    Result result;
    if (!process.waitForFinished(20000))
        return result;
    result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

static void writeFile(const QString &path, const QByteArray &contents)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(contents);
}

void tst_QXFilesTool::du()
{
    const QString root = m_scratch.filePath(QStringLiteral("du"));
    writeFile(root + QStringLiteral("/a.bin"), QByteArray(1000, 'a'));
    writeFile(root + QStringLiteral("/sub/.b.bin"), QByteArray(536, 'b'));
    const Result sized = run({QStringLiteral("du"), root});
    QCOMPARE(sized.status, 0);
    QCOMPARE(sized.out, QStringLiteral("1536\t1.5 KB\n"));

    const Result missing = run({QStringLiteral("du"), m_scratch.filePath(QStringLiteral("absent"))});
    QCOMPARE(missing.status, 1);
    QVERIFY2(missing.err.contains(QStringLiteral("no such file or directory")), qPrintable(missing.err));
    const Result file = run({QStringLiteral("du"), root + QStringLiteral("/a.bin")});
    QCOMPARE(file.status, 1);
    QVERIFY(file.err.contains(QStringLiteral("not a directory")));
    QCOMPARE(run({QStringLiteral("du")}).status, 2);
    QCOMPARE(run({QStringLiteral("du"), root, root}).status, 2);
}

void tst_QXFilesTool::uniquePath()
{
    const QString directory = m_scratch.filePath(QStringLiteral("names"));
    writeFile(directory + QStringLiteral("/Report.txt"), "r");
    QCOMPARE(run({QStringLiteral("unique-path"), QStringLiteral("Report.txt"), directory}).out,
             directory + QStringLiteral("/Report 2.txt\n"));
    QCOMPARE(run({QStringLiteral("unique-path"), QStringLiteral("Folder"), directory}).out,
             directory + QStringLiteral("/Folder\n"));
    const Result hashed = run({QStringLiteral("unique-path"), QStringLiteral("Report.txt"), directory, QStringLiteral("--hash")});
    QCOMPARE(hashed.status, 0);
    QCOMPARE(hashed.out, directory + QLatin1Char('/') + qx_md5Hash(QStringLiteral("Report")) + QStringLiteral(".txt\n"));
    QCOMPARE(run({QStringLiteral("unique-path"), QStringLiteral("Report.txt")}).status, 2);
    QCOMPARE(run({QStringLiteral("unique-path"), QString(), directory}).status, 2);
}

void tst_QXFilesTool::watchReportsSettledChangesUntilInterrupted()
{
    const QString file = m_scratch.filePath(QStringLiteral("watched.txt"));
    writeFile(file, "one");
    QCOMPARE(run({QStringLiteral("watch"), m_scratch.filePath(QStringLiteral("absent"))}).status, 1);

    QProcess watch;
    watch.start(m_tool, {QStringLiteral("watch"), file});
    QVERIFY(watch.waitForStarted(5000));
    // It says on stderr when it watches.
    QByteArray err;
    QTRY_VERIFY_WITH_TIMEOUT(err.append(watch.readAllStandardError()).contains("watching"), 10000);

    auto lines = [&watch, buffered = QString()]() mutable {
        buffered += QString::fromUtf8(watch.readAllStandardOutput());
        return buffered.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    };
    // A burst of writes: one line, with the final size.
    for (int i = 0; i < 3; ++i) {
        QFile append(file);
        QVERIFY(append.open(QIODevice::Append));
        append.write(QByteArray(500, 'x'));
        append.close();
        QTest::qWait(100);
    }
    QTRY_COMPARE_WITH_TIMEOUT(lines().size(), 1, 10000);
    const QRegularExpression line(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d\\.\\d{3}  (\\d+) bytes  (.+)$"));
    QRegularExpressionMatch match = line.match(lines().at(0));
    QVERIFY2(match.hasMatch(), qPrintable(lines().at(0)));
    QCOMPARE(match.captured(1), QStringLiteral("1503"));
    QCOMPARE(match.captured(2), QStringLiteral("1.47 KB"));

    // An editor-style save replaces the file; the watch follows the path.
    const QString temporary = file + QStringLiteral(".new");
    writeFile(temporary, "replaced");
    QCOMPARE(::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(file).constData()), 0);
    QTRY_COMPARE_WITH_TIMEOUT(lines().size(), 2, 10000);
    match = line.match(lines().at(1));
    QVERIFY2(match.hasMatch(), qPrintable(lines().at(1)));
    QCOMPARE(match.captured(1), QStringLiteral("8"));

    // Ctrl-C ends it cleanly.
    QCOMPARE(::kill(pid_t(watch.processId()), SIGINT), 0);
    QVERIFY(watch.waitForFinished(10000));
    QCOMPARE(watch.exitStatus(), QProcess::NormalExit);
    QCOMPARE(watch.exitCode(), 0);
    QCOMPARE(lines().size(), 2);
}

QTEST_GUILESS_MAIN(tst_QXFilesTool)
#include "tst_qxfilestool.moc"
