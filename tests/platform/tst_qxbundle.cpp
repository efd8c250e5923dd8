#include <QXFoundation/QXBundle.h>

#include <QtTest>

class tst_QXBundle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void mainBundleFollowsTheApplication();
    void entriesCanBeSetEmptiedOrRemoved();
    void frameworkBundleIdentity();
    void translationsFollowTheDefaultLocale();
};

void tst_QXBundle::init()
{
    QCoreApplication::setApplicationName(QStringLiteral("Viewer"));
    QCoreApplication::setApplicationVersion(QStringLiteral("2.1"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("example.com"));
}

void tst_QXBundle::cleanup()
{
    QXBundle::mainBundle().resetInfoValues();
    QLocale::setDefault(QLocale::c());
}

void tst_QXBundle::mainBundleFollowsTheApplication()
{
    QXBundle &bundle = QXBundle::mainBundle();
    QCOMPARE(bundle.bundleIdentifier(), QStringLiteral("com.example.Viewer"));
    QCOMPARE(bundle.objectForInfoDictionaryKey(QXBundleNameKey).toString(), QStringLiteral("Viewer"));
    QCOMPARE(bundle.objectForInfoDictionaryKey(QXBundleShortVersionStringKey).toString(), QStringLiteral("2.1"));
    QCOMPARE(bundle.objectForInfoDictionaryKey(QXBundleVersionKey).toString(), QStringLiteral("2.1"));
    QCOMPARE(bundle.bundlePath(), QCoreApplication::applicationDirPath());

    // Derived entries are read when asked, not when the bundle was first used.
    QCoreApplication::setApplicationVersion(QStringLiteral("3.0"));
    QCOMPARE(bundle.infoDictionary().value(QXBundleShortVersionStringKey).toString(), QStringLiteral("3.0"));
    QCoreApplication::setApplicationVersion(QString());
    QVERIFY(!bundle.objectForInfoDictionaryKey(QXBundleVersionKey).isValid());
}

void tst_QXBundle::entriesCanBeSetEmptiedOrRemoved()
{
    QXBundle &bundle = QXBundle::mainBundle();
    bundle.setInfoValue(QXBundleShortVersionStringKey, QString(QLatin1String("")));
    bundle.setInfoValue(QXBundleDisplayNameKey, QStringLiteral("Picture Viewer"));
    bundle.removeInfoValue(QXBundleIdentifierKey);

    const QVariant shortVersion = bundle.objectForInfoDictionaryKey(QXBundleShortVersionStringKey);
    QVERIFY(shortVersion.isValid());
    QVERIFY(shortVersion.toString().isEmpty());
    QCOMPARE(bundle.objectForInfoDictionaryKey(QXBundleVersionKey).toString(), QStringLiteral("2.1"));
    QCOMPARE(bundle.objectForInfoDictionaryKey(QXBundleDisplayNameKey).toString(), QStringLiteral("Picture Viewer"));
    QVERIFY(!bundle.objectForInfoDictionaryKey(QXBundleIdentifierKey).isValid());
    QVERIFY(bundle.bundleIdentifier().isEmpty());

    const QVariantMap info = bundle.infoDictionary();
    QVERIFY(!info.contains(QXBundleIdentifierKey));
    QCOMPARE(info.value(QXBundleShortVersionStringKey).toString(), QString());
    QCOMPARE(info.value(QXBundleNameKey).toString(), QStringLiteral("Viewer"));

    bundle.resetInfoValue(QXBundleIdentifierKey);
    QCOMPARE(bundle.bundleIdentifier(), QStringLiteral("com.example.Viewer"));
}

void tst_QXBundle::frameworkBundleIdentity()
{
    const QXBundle &framework = QXBundle::frameworkBundle();
    QVERIFY(&framework != &QXBundle::mainBundle());
    QVERIFY(framework.bundleIdentifier().endsWith(QLatin1String(".QXFoundation")));
    QVERIFY(QFileInfo(framework.bundlePath()).isDir());
}

void tst_QXBundle::translationsFollowTheDefaultLocale()
{
    const QXBundle &framework = QXBundle::frameworkBundle();
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QCOMPARE(framework.localizedStringForKey(QStringLiteral("Rate %@")), QStringLiteral("Rate %@"));

    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    QCOMPARE(framework.localizedStringForKey(QStringLiteral("Rate %@")), QStringLiteral("%@ bewerten"));
    QCOMPARE(framework.localizedStringForKey(QStringLiteral("Remind Me Later")), QStringLiteral("Später erinnern"));
    QCOMPARE(framework.localizedStringForKey(QStringLiteral("ago")), QStringLiteral("vor"));
    QCOMPARE(framework.localizedStringForKey(QStringLiteral("Method Not Implemented")),
             QStringLiteral("Methode nicht implementiert"));
    // The German translation also serves other German-speaking regions.
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Austria));
    QCOMPARE(framework.localizedStringForKey(QStringLiteral("minutes")), QStringLiteral("Minuten"));

    // Untranslated: the key itself, or the default value when one is given.
    QCOMPARE(framework.localizedStringForKey(QStringLiteral("No such key")), QStringLiteral("No such key"));
    QCOMPARE(framework.localizedStringForKey(QStringLiteral("No such key"), QStringLiteral("Fallback")),
             QStringLiteral("Fallback"));
    QCOMPARE(framework.localizedStringForKey(QStringLiteral("ago"), QStringLiteral("Fallback"), QStringLiteral("OtherTable")),
             QStringLiteral("Fallback"));

    // The library's translator is its own: the application's lookups are unaffected.
    QCOMPARE(QCoreApplication::translate("QXFoundation", "ago"), QStringLiteral("ago"));
    QCOMPARE(QXBundle::mainBundle().localizedStringForKey(QStringLiteral("ago")), QStringLiteral("ago"));
}

QTEST_GUILESS_MAIN(tst_QXBundle)
#include "tst_qxbundle.moc"
