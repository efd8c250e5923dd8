#include <QXFoundation/QXString.h>

#include <QtTest>

class tst_QXString : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void directories();
    void relativePaths();
    void digests();
    void urlEncoding();
    void urlDecoding();
    void appendingParameters();
    void trimming();
    void prefixAndSuffix();
};

void tst_QXString::directories()
{
    const QByteArray previous = qgetenv("XDG_CACHE_HOME");
    qputenv("XDG_CACHE_HOME", "/tmp/qx-caches-test");
    QCOMPARE(qx_cachesDirectoryPath(), QStringLiteral("/tmp/qx-caches-test"));
    QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/qx-caches-test"))); // nothing is created
    qputenv("XDG_CACHE_HOME", previous);

    QCOMPARE(qx_documentsDirectoryPath(), QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation));
    const QString support = qx_applicationSupportDirectoryPath();
    QCOMPARE(support, QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
    QCOMPARE(qx_libraryDirectoryPath(), QFileInfo(support).path());
    QCOMPARE(qx_userDirectoryPathForSearchPath(QXSearchPathDirectory::Caches), qx_cachesDirectoryPath());
    // A kind of directory the user domain does not have: no path at all.
    QVERIFY(qx_userDirectoryPathForSearchPath(QXSearchPathDirectory(7)).isNull());
    QCOMPARE(qx_temporaryDirectoryPath(), QDir::tempPath());
}

void tst_QXString::relativePaths()
{
    QCOMPARE(qx_stringWithPathRelativeTo(QStringLiteral("/a/b/c"), QStringLiteral("/a/b/c")), QString());
    QCOMPARE(qx_stringWithPathRelativeTo(QStringLiteral("/a/d"), QStringLiteral("/a/b/c")), QStringLiteral("../../d"));
    QCOMPARE(qx_stringWithPathRelativeTo(QStringLiteral("/a/b"), QStringLiteral("/a/b/c/d")), QStringLiteral("../.."));
    QCOMPARE(qx_stringWithPathRelativeTo(QStringLiteral("/a/b/c"), QStringLiteral("/a")), QStringLiteral("b/c"));
    QCOMPARE(qx_stringWithPathRelativeTo(QStringLiteral("/A/x"), QStringLiteral("/a")), QStringLiteral("../A/x"));
    // Repeated slashes count once; relative paths work the same way.
    QCOMPARE(qx_stringWithPathRelativeTo(QStringLiteral("/a//b///c"), QStringLiteral("/a/b")), QStringLiteral("c"));
    QCOMPARE(qx_stringWithPathRelativeTo(QStringLiteral("x/y"), QStringLiteral("x/z")), QStringLiteral("../y"));
    // An absolute path against a relative base shares nothing with it.
    QCOMPARE(qx_stringWithPathRelativeTo(QStringLiteral("/x"), QStringLiteral("x")), QStringLiteral("../x"));
    // A trailing slash is a component of its own.
    QCOMPARE(qx_stringWithPathRelativeTo(QStringLiteral("/a/b"), QStringLiteral("/a/b/")), QStringLiteral(".."));
    QCOMPARE(qx_stringWithPathRelativeTo(QStringLiteral("/a/b/"), QStringLiteral("/a")), QStringLiteral("b"));
    QCOMPARE(qx_stringWithPathRelativeTo(QStringLiteral("/"), QStringLiteral("/")), QString());
    QCOMPARE(qx_stringWithPathRelativeTo(QString(), QStringLiteral("/a")), QStringLiteral("../.."));

    const QString inApp = QCoreApplication::applicationDirPath() + QStringLiteral("/data/x.png");
    QCOMPARE(qx_stringWithPathRelativeToMainBundle(inApp), QStringLiteral("data/x.png"));
}

void tst_QXString::digests()
{
    QCOMPARE(qx_md5Hash(QString()), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
    QCOMPARE(qx_md5Hash(QStringLiteral("")), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
    QCOMPARE(qx_md5Hash(QStringLiteral("avatar-42")), QStringLiteral("018d16023be51c8939fc73a793564140"));
    QCOMPARE(qx_sha1Hash(QStringLiteral("abc")), QStringLiteral("a9993e364706816aba3e25717850c26c9cd0d89d"));
    QCOMPARE(qx_sha256Hash(QStringLiteral("abc")),
             QStringLiteral("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
    // The text is digested as UTF-8.
    QCOMPARE(qx_md5Hash(QStringLiteral("é")),
             QString::fromLatin1(QCryptographicHash::hash("\xc3\xa9", QCryptographicHash::Md5).toHex()));
    QCOMPARE(qx_md5Hash("avatar-42"), qx_md5Hash(QStringLiteral("avatar-42")));
    for (const QString &digest : {qx_md5Hash(QStringLiteral("x")), qx_sha1Hash(QStringLiteral("x")),
                                  qx_sha256Hash(QStringLiteral("x"))})
        QVERIFY(QRegularExpression(QStringLiteral("^[0-9a-f]+$")).match(digest).hasMatch());
}

void tst_QXString::urlEncoding()
{
    QCOMPARE(qx_URLEncodeString(QStringLiteral("a-b c")), QStringLiteral("a%2Db%20c"));
    QCOMPARE(qx_URLEncodeString(QStringLiteral("x=1&y=2")), QStringLiteral("x%3D1%26y%3D2"));
    QCOMPARE(qx_URLEncodedString(QStringLiteral("a/b@c")), QStringLiteral("a/b@c"));
    // Every escaped character of the list, and what passes unchanged.
    QCOMPARE(qx_URLEncodeString(QStringLiteral("% '\"?=&+<>;:-")),
             QStringLiteral("%25%20%27%22%3F%3D%26%2B%3C%3E%3B%3A%2D"));
    const QString unreserved = QStringLiteral("AZaz09_.!~*()/@$,");
    QCOMPARE(qx_URLEncodeString(unreserved), unreserved);
    QCOMPARE(qx_URLEncodeString(QStringLiteral("#[]{}|\\^`")), QStringLiteral("%23%5B%5D%7B%7D%7C%5C%5E%60"));
    // Non-ASCII text: one escape per UTF-8 byte, uppercase hex.
    QCOMPARE(qx_URLEncodeString(QStringLiteral("é€")), QStringLiteral("%C3%A9%E2%82%AC"));
    QCOMPARE(qx_URLEncodeString(QString::fromUtf8("\xf0\x9f\x98\x80")), QStringLiteral("%F0%9F%98%80"));
}

void tst_QXString::urlDecoding()
{
    QCOMPARE(qx_URLDecodeString(QStringLiteral("a%20b+c")), QStringLiteral("a b+c"));
    QCOMPARE(qx_URLDecodedString(QStringLiteral("%C3%a9t%C3%A9")), QStringLiteral("été"));
    QCOMPARE(qx_URLDecodeString(QStringLiteral("déjà")), QStringLiteral("déjà"));
    const QString empty = qx_URLDecodeString(QString());
    QVERIFY(empty.isEmpty() && !empty.isNull());
    // Malformed escapes and bytes that are not UTF-8 fail as a whole.
    QVERIFY(qx_URLDecodeString(QStringLiteral("%zz")).isNull());
    QVERIFY(qx_URLDecodeString(QStringLiteral("abc%")).isNull());
    QVERIFY(qx_URLDecodeString(QStringLiteral("abc%4")).isNull());
    QVERIFY(qx_URLDecodeString(QStringLiteral("%C3")).isNull());
    QVERIFY(qx_URLDecodeString(QStringLiteral("%C3x%A9")).isNull());
    QVERIFY(qx_URLDecodeString(QStringLiteral("%FF")).isNull());
    QVERIFY(qx_URLDecodeString(QStringLiteral("%C0%AF")).isNull()); // overlong "/"
    // Whatever is encoded decodes back.
    for (const QString &text : {QStringLiteral("a-b c"), QStringLiteral("x=1&y=2"), QStringLiteral("é€😀 %+")})
        QCOMPARE(qx_URLDecodeString(qx_URLEncodeString(text)), text);
}

void tst_QXString::appendingParameters()
{
    const QString q = QStringLiteral("q");
    const QString value = QStringLiteral("a b");
    QCOMPARE(qx_URLStringByAppendingParameter(QStringLiteral("/search"), q, value), QStringLiteral("/search?q=a%20b"));
    QCOMPARE(qx_URLStringByAppendingParameter(QStringLiteral("/search?x=1"), q, value),
             QStringLiteral("/search?x=1&q=a%20b"));
    QCOMPARE(qx_URLStringByAppendingParameter(QStringLiteral("/search?"), q, value), QStringLiteral("/search?&q=a%20b"));
    QCOMPARE(qx_URLStringByAppendingParameter(QStringLiteral("/s"), QStringLiteral("a&b"), QStringLiteral("c=d")),
             QStringLiteral("/s?a%26b=c%3Dd"));
    QCOMPARE(qx_URLStringByAppendingParameter(QStringLiteral("/search"), QString(), value), QStringLiteral("/search"));
    QCOMPARE(qx_URLStringByAppendingParameter(QStringLiteral("/search"), q, QString()), QStringLiteral("/search"));
    QCOMPARE(qx_URLStringByAppendingParameter(QStringLiteral("/search"), q, QStringLiteral("")), QStringLiteral("/search"));
}

void tst_QXString::trimming()
{
    QCOMPARE(qx_trimedString(QStringLiteral("\t x \n")), QStringLiteral("x \n"));
    QCOMPARE(qx_trimedString(QStringLiteral("\n x \t")), QStringLiteral("\n x"));
    // Unicode space separators count as white space: no-break, em and ideographic spaces.
    QCOMPARE(qx_trimedString(QStringLiteral("\u00a0\u2003x y\u3000")), QStringLiteral("x y"));
    QCOMPARE(qx_trimedString(QStringLiteral(" \t ")), QString());
    QCOMPARE(qx_trimedString(QStringLiteral("x")), QStringLiteral("x"));
}

void tst_QXString::prefixAndSuffix()
{
    QCOMPARE(qx_stringByRemovingPrefix(QStringLiteral("abab"), QStringLiteral("ab")), QStringLiteral("ab"));
    QCOMPARE(qx_stringByRemovingPrefix(QStringLiteral("abab"), QStringLiteral("x")), QStringLiteral("abab"));
    QCOMPARE(qx_stringByRemovingPrefix(QStringLiteral("abab"), QString()), QStringLiteral("abab"));
    QCOMPARE(qx_stringByRemovingSuffix(QStringLiteral("abab"), QStringLiteral("ab")), QStringLiteral("ab"));
    QCOMPARE(qx_stringByRemovingSuffix(QStringLiteral("file.tar.gz"), QStringLiteral(".gz")), QStringLiteral("file.tar"));
    QCOMPARE(qx_stringByRemovingSuffix(QStringLiteral("ab"), QStringLiteral("abc")), QStringLiteral("ab"));
    // Code units: a surrogate pair is two of them, and case matters.
    QCOMPARE(qx_stringByRemovingPrefix(QStringLiteral("😀x"), QStringLiteral("😀")), QStringLiteral("x"));
    QCOMPARE(qx_stringByRemovingPrefix(QStringLiteral("Abc"), QStringLiteral("a")), QStringLiteral("Abc"));
    QCOMPARE(qx_stringByRemovingSuffix(QStringLiteral("ab"), QStringLiteral("ab")), QString());
}

QTEST_GUILESS_MAIN(tst_QXString)
#include "tst_qxstring.moc"
