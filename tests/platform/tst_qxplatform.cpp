#include <QXFoundation/QXFoundation.h>

#include "platform/QXFormat_p.h"

#include <QtTest>

#include <cerrno>
#include <cstring>

class tst_QXPlatform : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void versionConstants();
    void errorValues();
    void formatPlaceholders();
};

void tst_QXPlatform::versionConstants()
{
    QCOMPARE(QXFoundationVersionNumber, 1.0);
    const char *expected = "@(#)PROGRAM:QXFoundation  PROJECT:QXFoundation-1\n";
    QCOMPARE(reinterpret_cast<const char *>(QXFoundationVersionString), expected);
    QCOMPARE(std::memcmp(QXFoundationVersionString, expected, std::strlen(expected) + 1), 0);
}

void tst_QXPlatform::errorValues()
{
    const QXError none;
    QVERIFY(none.isNull());
    QVERIFY(!none);
    QVERIFY(none.localizedDescription().isEmpty());

    const QXError error = QXError::withDescription(QStringLiteral("QXRateErrorDomain"), 2,
                                                   QStringLiteral("The application could not be found."));
    QVERIFY(error);
    QCOMPARE(error.domain(), QStringLiteral("QXRateErrorDomain"));
    QCOMPARE(error.code(), 2);
    QCOMPARE(error.localizedDescription(), QStringLiteral("The application could not be found."));
    QCOMPARE(error.userInfo().size(), 1);
    QCOMPARE(error, QXError(QStringLiteral("QXRateErrorDomain"), 2,
                            {{QXLocalizedDescriptionKey, QStringLiteral("The application could not be found.")}}));

    const QXError posix = QXError::fromErrno(EPERM);
    QCOMPARE(posix.domain(), QXPOSIXErrorDomain);
    QCOMPARE(posix.code(), EPERM);
    QVERIFY(!posix.localizedDescription().isEmpty());

    // Errors travel in QVariants (as the object of a notification).
    const QVariant carried = QVariant::fromValue(error);
    QCOMPARE(carried.value<QXError>(), error);

    QXError out;
    qxSetError(&out, error);
    QCOMPARE(out, error);
    qxSetError(nullptr, error); // no place asked for: nothing happens
}

void tst_QXPlatform::formatPlaceholders()
{
    const QStringList args{QStringLiteral("5 minutes"), QStringLiteral("ago")};
    QCOMPARE(QXFormat::format(QStringLiteral("%@ %@"), args), QStringLiteral("5 minutes ago"));
    QCOMPARE(QXFormat::format(QStringLiteral("%2$@ %1$@"), args), QStringLiteral("ago 5 minutes"));
    QCOMPARE(QXFormat::format(QStringLiteral("100%% %@"), args), QStringLiteral("100% 5 minutes"));
    // Missing arguments become empty; other sequences stay as written.
    QCOMPARE(QXFormat::format(QStringLiteral("%@|%@|%@"), {QStringLiteral("a")}), QStringLiteral("a||"));
    QCOMPARE(QXFormat::format(QStringLiteral("%d %3$@ %0$@ %"), args), QStringLiteral("%d  %0$@ %"));
}

QTEST_GUILESS_MAIN(tst_QXPlatform)
#include "tst_qxplatform.moc"
