// The qx commands of the imaging area, run as a user runs them.

#include <QtTest>

class tst_QXImagingTool : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void transforms();
    void blur();
    void color();
    void tourGallery();

private:
    struct Run
    {
        int status = -1;
        QString output;
    };
    // Runs "qx" with the words of `command`; a word in braces is a file in the scratch folder.
    Run qx(const QString &command) const;
    QString path(const QString &name) const { return m_directory.filePath(name); }
    QTemporaryDir m_directory;
};

tst_QXImagingTool::Run tst_QXImagingTool::qx(const QString &command) const
{
    QStringList arguments = command.split(QLatin1Char(' '));
    for (QString &argument : arguments)
        if (argument.startsWith(QLatin1Char('{')) && argument.endsWith(QLatin1Char('}')))
            argument = path(argument.mid(1, argument.size() - 2));
    QProcess process;
    process.start(qEnvironmentVariable("QX_TOOL"), arguments);
    Run run;
    if (process.waitForFinished(30000)) {
        run.status = process.exitCode();
        run.output = QString::fromUtf8(process.readAllStandardOutput());
    }
    return run;
}

void tst_QXImagingTool::initTestCase()
{
    QVERIFY(QFileInfo(qEnvironmentVariable("QX_TOOL")).isExecutable());
    QImage wide(200, 100, QImage::Format_ARGB32);
    wide.fill(Qt::red);
    QVERIFY(wide.save(path(QStringLiteral("wide.png"))));
    QImage white(400, 300, QImage::Format_RGB32);
    white.fill(Qt::white);
    QVERIFY(white.save(path(QStringLiteral("white.png"))));
}

void tst_QXImagingTool::transforms()
{
    // Fit keeps the alpha of its margins in a PNG.
    Run run = qx(QStringLiteral("image scale fit 100x100 {wide.png} {fit.png}"));
    QCOMPARE(run.status, 0);
    QVERIFY(run.output.contains(QStringLiteral("100 x 100 pixels")));
    const QImage fitted(path(QStringLiteral("fit.png")));
    QCOMPARE(fitted.size(), QSize(100, 100));
    QCOMPARE(qAlpha(fitted.pixel(50, 10)), 0);
    QCOMPARE(fitted.pixel(50, 50), qRgb(255, 0, 0));

    // The output format follows the extension.
    QCOMPARE(qx(QStringLiteral("image rotate -90 {wide.png} {turned.bmp}")).status, 0);
    QImageReader reader(path(QStringLiteral("turned.bmp")));
    QCOMPARE(reader.format(), QByteArray("bmp"));
    QCOMPARE(reader.size(), QSize(100, 200));

    QCOMPARE(qx(QStringLiteral("image crop 150 50 100 100 {wide.png} {cut.png}")).status, 0);
    QCOMPARE(QImage(path(QStringLiteral("cut.png"))).size(), QSize(50, 50));

    // Failures give 1 and write nothing; wrong command lines give 2.
    QCOMPARE(qx(QStringLiteral("image crop 300 0 10 10 {wide.png} {none.png}")).status, 1);
    QVERIFY(!QFile::exists(path(QStringLiteral("none.png"))));
    QCOMPARE(qx(QStringLiteral("image rotate 10 {missing.png} {x.png}")).status, 1);
    QCOMPARE(qx(QStringLiteral("image scale fill 0x10 {wide.png} {x.png}")).status, 1);
    QCOMPARE(qx(QStringLiteral("image scale stretch 10x10 {wide.png} {x.png}")).status, 2);
    QCOMPARE(qx(QStringLiteral("image scale fit 10by10 {wide.png} {x.png}")).status, 2);
    QCOMPARE(qx(QStringLiteral("image rotate nan {wide.png} {x.png}")).status, 2);
    QCOMPARE(qx(QStringLiteral("image")).status, 2);
}

void tst_QXImagingTool::blur()
{
    QCOMPARE(qx(QStringLiteral("image blur --dark {white.png} {dark.png}")).status, 0);
    QImage result(path(QStringLiteral("dark.png")));
    QCOMPARE(result.size(), QSize(100, 75));
    QVERIFY(qAbs(qRed(result.pixel(50, 40)) - 128) <= 1);

    // Options on their own: red at 50 % over white.
    QCOMPARE(qx(QStringLiteral("image blur --radius 3 --saturation 0 --tint ff000080 {white.png} {tinted.png}")).status, 0);
    result = QImage(path(QStringLiteral("tinted.png")));
    QCOMPARE(qRed(result.pixel(10, 10)), 255);
    QVERIFY(qAbs(qGreen(result.pixel(10, 10)) - 127) <= 1);

    QCOMPARE(qx(QStringLiteral("image blur --tint red {white.png} {x.png}")).status, 2);
    QCOMPARE(qx(QStringLiteral("image blur --light --dark {white.png} {x.png}")).status, 2);
    QCOMPARE(qx(QStringLiteral("image blur {white.png}")).status, 2);
}

void tst_QXImagingTool::color()
{
    const Run run = qx(QStringLiteral("color 00ff00"));
    QCOMPARE(run.status, 0);
    for (const char *line : {"form        RGB\n", "green  1.0000 (255)\n", "luminosity  0.71516\n", "contrasting black\n",
                             "hex         00ff00ff\n"})
        QVERIFY2(run.output.contains(QLatin1String(line)), line);
    QCOMPARE(qx(QStringLiteral("color #00ff00")).status, 1);
    QCOMPARE(qx(QStringLiteral("color")).status, 2);
}

void tst_QXImagingTool::tourGallery()
{
    const Run run = qx(QStringLiteral("tour --gallery {gallery}"));
    QCOMPARE(run.status, 0);
    for (const char *name : {"sample.png", "fit-200x200.png", "rotate-30.png", "blur-dark.png", "three-part.png"}) {
        QVERIFY2(run.output.contains(QLatin1String(name)), name);
        QVERIFY2(!QImage(path(QStringLiteral("gallery/") + QLatin1String(name))).isNull(), name);
    }
}

QTEST_GUILESS_MAIN(tst_QXImagingTool)
#include "tst_qximagingtool.moc"
