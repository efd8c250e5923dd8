#include <QXFoundation/QXColor.h>

#include <QtTest>

namespace {

// Components as doubles, compared with a tolerance where 16-bit storage rounds.
bool hasComponents(const QColor &color, double red, double green, double blue, double alpha, double tolerance = 1e-4)
{
    return color.isValid() && qAbs(color.redF() - red) <= tolerance && qAbs(color.greenF() - green) <= tolerance
        && qAbs(color.blueF() - blue) <= tolerance && qAbs(color.alphaF() - alpha) <= tolerance;
}

} // namespace

class tst_QXColor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fromNumbers();
    void fromStrings_data();
    void fromStrings();
    void toStrings();
    void luminosityAndContrast();
    void blending();
};

void tst_QXColor::fromNumbers()
{
    // 0x336699: 0.2, 0.4, 0.6 exactly as single-precision c / 255; the top byte is ignored.
    const QColor rgb = qx_colorWithRGBHex(0x336699);
    QCOMPARE(rgb.redF(), 0.2f);
    QCOMPARE(rgb.greenF(), 0.4f);
    QCOMPARE(rgb.blueF(), 0.6f);
    QCOMPARE(rgb.alphaF(), 1.0f);
    QCOMPARE(qx_colorWithRGBHex(0xab336699), rgb);

    const QColor rgba = qx_colorWithRGBAHex(0x33669980);
    QCOMPARE(rgba.rgb(), rgb.rgb());
    QCOMPARE(rgba.alphaF(), float(128 / 255.0));
    QCOMPARE(rgba.spec(), QColor::Rgb);

    QVERIFY(hasComponents(qx_colorWithWhite(0.25, 0.5), 0.25, 0.25, 0.25, 0.5));
    QVERIFY(hasComponents(qx_colorWithRed(0.1, 0.2, 0.3, 0.4), 0.1, 0.2, 0.3, 0.4));
}

void tst_QXColor::fromStrings_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<quint32>("rgba");

    QTest::newRow("rgb") << QStringLiteral("ff0000") << true << 0xff0000ffu;
    QTest::newRow("rgba") << QStringLiteral("ff000080") << true << 0xff000080u;
    QTest::newRow("upper case") << QStringLiteral("FF00Aa") << true << 0xff00aaffu;
    QTest::newRow("no short form") << QStringLiteral("fff") << true << 0x000fffffu;
    // The length of the string decides, not the digits: these are RGBA.
    QTest::newRow("0x prefix") << QStringLiteral("0xff0000") << true << 0x00ff0000u;
    QTest::newRow("leading space") << QStringLiteral(" ff0000") << true << 0x00ff0000u;
    QTest::newRow("trailing text") << QStringLiteral("ff0000zz") << true << 0x00ff0000u;
    QTest::newRow("line breaks") << QStringLiteral("\n\t336699") << true << 0x00336699u;
    QTest::newRow("no-break space") << QStringLiteral("\u00a0ff") << true << 0x0000ffffu;
    QTest::newRow("0X") << QStringLiteral("0X1a") << true << 0x00001affu;
    QTest::newRow("overflow") << QStringLiteral("123456789") << true << 0xffffffffu;
    QTest::newRow("long overflow") << QStringLiteral("fffffffffffffffffffff0") << true << 0xffffffffu;
    QTest::newRow("0x without digits") << QStringLiteral("0xg") << true << 0x000000ffu;
    QTest::newRow("hash") << QStringLiteral("#336699") << false << 0u;
    QTest::newRow("empty") << QString() << false << 0u;
    QTest::newRow("blank") << QStringLiteral("   ") << false << 0u;
    QTest::newRow("sign") << QStringLiteral("+ff") << false << 0u;
    QTest::newRow("x alone") << QStringLiteral("x12") << false << 0u;
}

void tst_QXColor::fromStrings()
{
    QFETCH(QString, text);
    QFETCH(bool, valid);
    QFETCH(quint32, rgba);
    const QColor color = qx_colorWithHexString(text);
    QCOMPARE(color.isValid(), valid);
    if (valid)
        QCOMPARE(color, qx_colorWithRGBAHex(rgba));
}

void tst_QXColor::toStrings()
{
    QCOMPARE(qx_hexStringFromColor(QColor(Qt::white)), QStringLiteral("ffffffff"));
    QCOMPARE(qx_hexStringFromColor(qx_colorWithRGBHex(0xff0000)), QStringLiteral("ff0000ff"));
    QCOMPARE(qx_hexStringFromColor(qx_colorWithRed(0.999, 0, 0, 1)), QStringLiteral("fe0000ff"));
    // 127.5 truncates to 127.
    QCOMPARE(qx_hexStringFromColor(qx_colorWithWhite(0.5, 1)), QStringLiteral("7f7f7fff"));
    QCOMPARE(qx_hexStringFromColor(QColor::fromHsv(240, 255, 255)), QStringLiteral("0000ffff"));
    QVERIFY(qx_hexStringFromColor(QColor()).isNull());
    // Every channel value survives the way there and back.
    for (quint32 c = 0; c < 256; ++c) {
        const quint32 hex = (c << 24) | ((255 - c) << 16) | (c / 2 << 8) | c;
        const QString text = qx_hexStringFromColor(qx_colorWithRGBAHex(hex));
        QCOMPARE(text, QString::asprintf("%08x", hex));
        QCOMPARE(qx_colorWithHexString(text), qx_colorWithRGBAHex(hex));
    }
    // An extrapolated component writes a longer group.
    const QColor beyond = qx_colorWithRGBBlendFrom(QColor(Qt::black), QColor(Qt::white), {2, 0, 0, 0});
    QCOMPARE(qx_hexStringFromColor(beyond), QStringLiteral("1fe0000ff"));
}

void tst_QXColor::luminosityAndContrast()
{
    QCOMPARE(qx_luminosity(QColor(Qt::green)), 0.71516);
    QCOMPARE(qx_luminosity(QColor(Qt::blue)), 0.072169);
    QCOMPARE(qx_luminosity(QColor(Qt::white)), 1.0);
    QCOMPARE(qx_luminosity(QColor::fromRgba(qRgba(255, 0, 0, 0))), 0.212671); // alpha ignored
    QCOMPARE(qx_luminosity(QColor()), 0.0);
    QCOMPARE(qx_contrastingColor(QColor(Qt::green)), QColor(Qt::black));
    QCOMPARE(qx_contrastingColor(QColor(Qt::blue)), QColor(Qt::white));
    QCOMPARE(qx_contrastingColor(qx_colorWithWhite(0.5, 1)), QColor(Qt::black));
    QCOMPARE(qx_contrastingColor(qx_colorWithWhite(0.49, 1)), QColor(Qt::white));
    QCOMPARE(qx_contrastingColor(QColor()), QColor(Qt::white));
    // Other colour models are read in RGB.
    QCOMPARE(qx_luminosity(QColor::fromHsvF(1.0f / 3.0f, 1.0f, 1.0f)), qx_luminosity(QColor(Qt::green)));
}

void tst_QXColor::blending()
{
    QVERIFY(hasComponents(qx_darkerColor(QColor(Qt::white)), 0.5, 0.5, 0.5, 1));
    QVERIFY(hasComponents(qx_lighterColorBy(QColor(Qt::black), 0.25), 0.25, 0.25, 0.25, 1));
    QVERIFY(hasComponents(qx_lighterColor(QColor(Qt::black)), 0.5, 0.5, 0.5, 1));
    // Alpha is left alone by both.
    const QColor half = qx_colorWithRed(0.2, 0.4, 0.8, 0.5);
    QVERIFY(hasComponents(qx_darkerColorBy(half, 0.5), 0.1, 0.2, 0.4, 0.5));
    QVERIFY(hasComponents(qx_lighterColorBy(half, 0.5), 0.6, 0.7, 0.9, 0.5));
    QVERIFY(!qx_darkerColor(QColor()).isValid());
    QVERIFY(!qx_lighterColor(QColor()).isValid());

    const QColor other = qx_colorWithRed(0.9, 0.1, 0.3, 0.7);
    QVERIFY(hasComponents(qx_colorWithRGBBlendFrom(half, other, {1, 1, 1, 1}), 0.9, 0.1, 0.3, 0.7));
    QVERIFY(hasComponents(qx_colorWithRGBBlendFrom(half, other, {0, 0, 0, 0}), 0.2, 0.4, 0.8, 0.5));
    QVERIFY(hasComponents(qx_colorWithRGBBlendFrom(half, other, {0.5, 0, 1, 0.25}), 0.55, 0.4, 0.3, 0.55));
    // Missing amounts count as 0; an invalid colour counts as all zeros.
    QVERIFY(hasComponents(qx_colorWithRGBBlendFrom(half, other, {1}), 0.9, 0.4, 0.8, 0.5));
    QVERIFY(hasComponents(qx_colorWithRGBBlendFrom(half, QColor(), {1, 1, 1, 1}), 0, 0, 0, 0));
    // Amounts beyond 1 extrapolate and keep values outside 0–1.
    const QColor beyond = qx_colorWithRGBBlendFrom(QColor(Qt::black), QColor(Qt::white), {2, -1, 0, 0});
    QCOMPARE(beyond.spec(), QColor::ExtendedRgb);
    QVERIFY(hasComponents(beyond, 2, -1, 0, 1, 1e-3));

    QVERIFY(hasComponents(qx_colorWithAlpha(half, 0.25), 0.2, 0.4, 0.8, 0.25));
    QVERIFY(hasComponents(qx_colorWithAlpha(QColor::fromHsv(0, 255, 255), 0.5), 1, 0, 0, 0.5));
    QVERIFY(!qx_colorWithAlpha(QColor(), 1).isValid());
}

QTEST_GUILESS_MAIN(tst_QXColor)
#include "tst_qxcolor.moc"
