// The qx commands of the imaging area, run as a user runs them.

#include <QtTest>

namespace {

struct Run
{
    int status = -1;
    QString output;
    QString errors;
};

Run qx(const QStringList &arguments)
{
    QProcess process;
    process.start(qEnvironmentVariable("QX_TOOL"), arguments);
    Run run;
    if (!process.waitForFinished(30000))
        return run;
    run.status = process.exitCode();
    run.output = QString::fromUtf8(process.readAllStandardOutput());
    run.errors = QString::fromUtf8(process.readAllStandardError());
    return run;
}

} // namespace

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
    QTemporaryDir m_directory;
    QString path(const QString &name) const { return m_directory.filePath(name); }
};

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
    Run run = qx({QStringLiteral("image"), QStringLiteral("scale"), QStringLiteral("fit"), QStringLiteral("100x100"),
                  path(QStringLiteral("wide.png")), path(QStringLiteral("fit.png"))});
    QCOMPARE(run.status, 0);
    QVERIFY(run.output.contains(QStringLiteral("100 x 100 pixels")));
    QImage result(path(QStringLiteral("fit.png")));
    QCOMPARE(result.size(), QSize(100, 100));
    QCOMPARE(qAlpha(result.pixel(50, 10)), 0);
    QCOMPARE(result.pixel(50, 50), qRgb(255, 0, 0));

    // The output format follows the extension.
    run = qx({QStringLiteral("image"), QStringLiteral("rotate"), QStringLiteral("-90"), path(QStringLiteral("wide.png")),
              path(QStringLiteral("turned.bmp"))});
    QCOMPARE(run.status, 0);
    QImageReader reader(path(QStringLiteral("turned.bmp")));
    QCOMPARE(reader.format(), QByteArray("bmp"));
    QCOMPARE(reader.size(), QSize(100, 200));

    run = qx({QStringLiteral("image"), QStringLiteral("crop"), QStringLiteral("150"), QStringLiteral("50"),
              QStringLiteral("100"), QStringLiteral("100"), path(QStringLiteral("wide.png")), path(QStringLiteral("cut.png"))});
    QCOMPARE(run.status, 0);
    QCOMPARE(QImage(path(QStringLiteral("cut.png"))).size(), QSize(50, 50));

    // Failures (1) and wrong command lines (2).
    run = qx({QStringLiteral("image"), QStringLiteral("crop"), QStringLiteral("300"), QStringLiteral("0"),
              QStringLiteral("10"), QStringLiteral("10"), path(QStringLiteral("wide.png")), path(QStringLiteral("none.png"))});
    QCOMPARE(run.status, 1);
    QVERIFY(!QFile::exists(path(QStringLiteral("none.png"))));
    QCOMPARE(qx({QStringLiteral("image"), QStringLiteral("rotate"), QStringLiteral("10"), path(QStringLiteral("missing.png")),
                 path(QStringLiteral("x.png"))}).status, 1);
    QCOMPARE(qx({QStringLiteral("image"), QStringLiteral("scale"), QStringLiteral("fill"), QStringLiteral("0x10"),
                 path(QStringLiteral("wide.png")), path(QStringLiteral("x.png"))}).status, 1);
    QCOMPARE(qx({QStringLiteral("image"), QStringLiteral("scale"), QStringLiteral("stretch"), QStringLiteral("10x10"),
                 path(QStringLiteral("wide.png")), path(QStringLiteral("x.png"))}).status, 2);
    QCOMPARE(qx({QStringLiteral("image"), QStringLiteral("scale"), QStringLiteral("fit"), QStringLiteral("10by10"),
                 path(QStringLiteral("wide.png")), path(QStringLiteral("x.png"))}).status, 2);
    QCOMPARE(qx({QStringLiteral("image"), QStringLiteral("rotate"), QStringLiteral("nan"), path(QStringLiteral("wide.png")),
                 path(QStringLiteral("x.png"))}).status, 2);
    QCOMPARE(qx({QStringLiteral("image")}).status, 2);
}

void tst_QXImagingTool::blur()
{
    Run run = qx({QStringLiteral("image"), QStringLiteral("blur"), QStringLiteral("--dark"), path(QStringLiteral("white.png")),
                  path(QStringLiteral("dark.png"))});
    QCOMPARE(run.status, 0);
    QImage result(path(QStringLiteral("dark.png")));
    QCOMPARE(result.size(), QSize(100, 75));
    QVERIFY(qAbs(qRed(result.pixel(50, 40)) - 128) <= 1);

    // Options override the preset: no tint leaves white white.
    run = qx({QStringLiteral("image"), QStringLiteral("blur"), QStringLiteral("--radius"), QStringLiteral("3"),
              QStringLiteral("--saturation"), QStringLiteral("0"), QStringLiteral("--tint"), QStringLiteral("ff000080"),
              path(QStringLiteral("white.png")), path(QStringLiteral("tinted.png"))});
    QCOMPARE(run.status, 0);
    result = QImage(path(QStringLiteral("tinted.png")));
    QCOMPARE(qRed(result.pixel(10, 10)), 255);
    QVERIFY(qAbs(qGreen(result.pixel(10, 10)) - 127) <= 1);

    QCOMPARE(qx({QStringLiteral("image"), QStringLiteral("blur"), QStringLiteral("--tint"), QStringLiteral("red"),
                 path(QStringLiteral("white.png")), path(QStringLiteral("x.png"))}).status, 2);
    QCOMPARE(qx({QStringLiteral("image"), QStringLiteral("blur"), QStringLiteral("--light"), QStringLiteral("--dark"),
                 path(QStringLiteral("white.png")), path(QStringLiteral("x.png"))}).status, 2);
    QCOMPARE(qx({QStringLiteral("image"), QStringLiteral("blur"), path(QStringLiteral("white.png"))}).status, 2);
}

void tst_QXImagingTool::color()
{
    const Run run = qx({QStringLiteral("color"), QStringLiteral("00ff00")});
    QCOMPARE(run.status, 0);
    QVERIFY(run.output.contains(QStringLiteral("form        RGB\n")));
    QVERIFY(run.output.contains(QStringLiteral("green  1.0000 (255)")));
    QVERIFY(run.output.contains(QStringLiteral("luminosity  0.71516")));
    QVERIFY(run.output.contains(QStringLiteral("contrasting black")));
    QVERIFY(run.output.contains(QStringLiteral("hex         00ff00ff")));
    QCOMPARE(qx({QStringLiteral("color"), QStringLiteral("#00ff00")}).status, 1);
    QCOMPARE(qx({QStringLiteral("color")}).status, 2);
}

void tst_QXImagingTool::tourGallery()
{
    const QString gallery = path(QStringLiteral("gallery"));
    const Run run = qx({QStringLiteral("tour"), QStringLiteral("--gallery"), gallery});
    QCOMPARE(run.status, 0);
    for (const char *name : {"sample.png", "fit-200x200.png", "rotate-30.png", "blur-dark.png", "three-part.png"}) {
        QVERIFY2(run.output.contains(QLatin1String(name)), name);
        QVERIFY2(!QImage(QDir(gallery).filePath(QLatin1String(name))).isNull(), name);
    }
}

QTEST_GUILESS_MAIN(tst_QXImagingTool)
#include "tst_qximagingtool.moc"
