#include <QXFoundation/QXData.h>
#include <QXFoundation/QXString.h>

#include <QtTest>

#include <cstdlib>
#include <memory>

#include <sys/mman.h>
#include <unistd.h>

namespace {

struct FreeDeleter
{
    void operator()(void *p) const { std::free(p); }
};

QByteArray encode(const QByteArray &bytes, bool lines)
{
    size_t length = 12345;
    std::unique_ptr<char, FreeDeleter> text(QXNewBase64Encode(bytes.constData(), size_t(bytes.size()), lines, &length));
    if (!text)
        return QByteArray();
    if (text.get()[length] != '\0')
        return QByteArrayLiteral("<not zero-terminated>");
    return QByteArray(text.get(), qsizetype(length));
}

QByteArray decode(const QByteArray &text)
{
    size_t length = 12345;
    std::unique_ptr<void, FreeDeleter> bytes(QXNewBase64Decode(text.constData(), size_t(text.size()), &length));
    return bytes ? QByteArray(static_cast<const char *>(bytes.get()), qsizetype(length)) : QByteArray();
}

// Memory that ends exactly where an inaccessible page begins: reading one
// byte past the end crashes, in any build.
class GuardedBuffer
{
public:
    explicit GuardedBuffer(const QByteArray &content)
    {
        const size_t page = size_t(sysconf(_SC_PAGESIZE));
        m_dataPages = (size_t(content.size()) + page - 1) / page;
        m_size = (m_dataPages + 1) * page;
        m_base = static_cast<char *>(mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(m_base + m_dataPages * page, page, PROT_NONE);
        m_data = m_base + m_dataPages * page - size_t(content.size());
        memcpy(m_data, content.constData(), size_t(content.size()));
    }
    ~GuardedBuffer() { munmap(m_base, m_size); }
    const char *data() const { return m_data; }

private:
    char *m_base = nullptr;
    char *m_data = nullptr;
    size_t m_size = 0;
    size_t m_dataPages = 0;
};

QByteArray randomBytes(int length, quint32 seed)
{
    QRandomGenerator generator(seed);
    QByteArray bytes(length, Qt::Uninitialized);
    for (char &c : bytes)
        c = char(generator.bounded(256));
    return bytes;
}

} // namespace

class tst_QXBase64 : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void encodesStandardPaddedText();
    void lineLayout();
    void decodesAndSkipsForeignBytes();
    void tailsAndPadding();
    void neverReadsPastTheInput();
    void dataOperations();
    void digests();
};

void tst_QXBase64::encodesStandardPaddedText()
{
    QCOMPARE(encode(QByteArray(), false), QByteArray());
    QCOMPARE(encode(QByteArray(), true), QByteArray());
    QCOMPARE(encode(QByteArray("A"), false), QByteArray("QQ=="));
    QCOMPARE(encode(QByteArray("AB"), false), QByteArray("QUI="));
    QCOMPARE(encode(QByteArray("ABC"), false), QByteArray("QUJD"));
    QCOMPARE(encode(QByteArray("\xff\xfe\xfd", 3), false), QByteArray("//79"));
    // Every length and every byte value agrees with RFC 4648 as Qt implements it.
    for (int length = 0; length < 300; ++length) {
        const QByteArray bytes = randomBytes(length, quint32(length));
        QCOMPARE(encode(bytes, false), bytes.toBase64());
    }
}

void tst_QXBase64::lineLayout()
{
    QCOMPARE(encode(QByteArray(48, 'x'), true).size(), 64);
    QVERIFY(!encode(QByteArray(48, 'x'), true).contains('\r'));

    const QByteArray fortyNine = encode(QByteArray(49, 'x'), true);
    QCOMPARE(fortyNine.size(), 70);
    QCOMPARE(fortyNine.mid(64, 2), QByteArray("\r\n"));
    QCOMPARE(fortyNine.right(4), QByteArray("eA=="));

    const QByteArray ninetySix = encode(QByteArray(96, 'x'), true);
    QCOMPARE(ninetySix.size(), 130);
    QCOMPARE(ninetySix.count("\r\n"), 1);

    // Any length: the unbroken text cut into 64-character lines.
    for (int length = 0; length < 500; length += 7) {
        const QByteArray bytes = randomBytes(length, quint32(length) + 1000);
        const QByteArray flat = encode(bytes, false);
        QByteArrayList lines;
        for (qsizetype at = 0; at < flat.size(); at += 64)
            lines << flat.mid(at, 64);
        QCOMPARE(encode(bytes, true), lines.join("\r\n"));
    }
}

void tst_QXBase64::decodesAndSkipsForeignBytes()
{
    QCOMPARE(decode("QUJD"), QByteArray("ABC"));
    QCOMPARE(decode("QUJD\n"), QByteArray("ABC"));
    QCOMPARE(decode("Q U J D"), QByteArray("ABC"));
    QCOMPARE(decode("Q\tU\r\nJ-_D\x80\xff"), QByteArray("ABC"));
    QCOMPARE(decode(""), QByteArray());
    QCOMPARE(decode("===="), QByteArray());
    QCOMPARE(decode("!!!! ???"), QByteArray());

    // Round trip through text with noise at random places: the noise is ignored.
    QRandomGenerator generator(7);
    const QByteArray noise(" \t\r\n=-_\x80\xc3\xa9*");
    for (int length = 0; length < 200; ++length) {
        const QByteArray bytes = randomBytes(length, quint32(length) + 2000);
        QByteArray text = encode(bytes, length % 2);
        for (int n = 0; n < 10; ++n)
            text.insert(generator.bounded(text.size() + 1), noise.at(generator.bounded(noise.size())));
        QCOMPARE(decode(text), bytes);
    }
}

void tst_QXBase64::tailsAndPadding()
{
    QCOMPARE(decode("QQ"), QByteArray("A"));
    QCOMPARE(decode("QQ=="), QByteArray("A"));
    QCOMPARE(decode("QUI"), QByteArray("AB"));
    // "=" in the middle does not end the data: groups continue after it.
    QCOMPARE(decode("QQ==QQ=="), QByteArray("\x41\x04\x10", 3));
    // A lone trailing character holds no whole byte.
    QCOMPARE(decode("QUJDR"), QByteArray("ABC"));
    QCOMPARE(decode("R"), QByteArray());

    // SIZE_MAX: the input is zero-terminated and measured.
    size_t length = 0;
    std::unique_ptr<void, FreeDeleter> bytes(QXNewBase64Decode("QUJD", SIZE_MAX, &length));
    QCOMPARE(length, size_t(3));
    QCOMPARE(QByteArray(static_cast<const char *>(bytes.get()), 3), QByteArray("ABC"));
    // The length pointer is optional.
    std::unique_ptr<char, FreeDeleter> text(QXNewBase64Encode("A", 1, false, nullptr));
    QCOMPARE(QByteArray(text.get()), QByteArray("QQ=="));
    std::unique_ptr<void, FreeDeleter> none(QXNewBase64Decode("", 0, nullptr));
    QVERIFY(none);
}

void tst_QXBase64::neverReadsPastTheInput()
{
    for (int length = 0; length < 200; ++length) {
        const QByteArray bytes = randomBytes(length, quint32(length) + 3000);
        const GuardedBuffer guardedBytes(bytes);
        for (const bool lines : {false, true}) {
            size_t textLength = 0;
            std::unique_ptr<char, FreeDeleter> text(QXNewBase64Encode(guardedBytes.data(), size_t(length), lines, &textLength));
            const GuardedBuffer guardedText(QByteArray(text.get(), qsizetype(textLength)));
            size_t decodedLength = 0;
            std::unique_ptr<void, FreeDeleter> decoded(QXNewBase64Decode(guardedText.data(), textLength, &decodedLength));
            QCOMPARE(QByteArray(static_cast<const char *>(decoded.get()), qsizetype(decodedLength)), bytes);
        }
        // Text of any length and content, not only well-formed Base64.
        const GuardedBuffer guardedJunk(bytes);
        size_t junkLength = 0;
        std::unique_ptr<void, FreeDeleter> junk(QXNewBase64Decode(guardedJunk.data(), size_t(length), &junkLength));
        QVERIFY(junkLength <= size_t((length + 3) / 4 * 3));
    }
}

void tst_QXBase64::dataOperations()
{
    QCOMPARE(qx_base64EncodedString(QByteArray("ABC")), QStringLiteral("QUJD"));
    QCOMPARE(qx_base64EncodedString(QByteArray(60, 'x')).size(), 80); // never line-broken
    QVERIFY(!qx_base64EncodedString(QByteArray()).isNull());

    QCOMPARE(qx_dataFromBase64String(QStringLiteral("QUJD")), QByteArray("ABC"));
    // Anything outside ASCII makes the whole string unusable: empty, never null.
    const QByteArray accented = qx_dataFromBase64String(QStringLiteral("QUJDé"));
    QVERIFY(accented.isEmpty());
    QVERIFY(!accented.isNull());
    QVERIFY(!qx_dataFromBase64String(QString()).isNull());
    QVERIFY(qx_dataFromBase64String(QStringLiteral("...")).isEmpty());
}

void tst_QXBase64::digests()
{
    QCOMPARE(qx_md5Hash(QByteArray()), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
    QCOMPARE(qx_sha1Hash(QByteArray("abc")), QStringLiteral("a9993e364706816aba3e25717850c26c9cd0d89d"));
    QCOMPARE(qx_sha256Hash(QByteArray("abc")),
             QStringLiteral("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
    // Over many inputs (so bytes below 0x10 occur: "0a", never "a"), the hex
    // agrees with Qt's own implementation of the algorithms.
    for (int length = 0; length < 100; ++length) {
        const QByteArray bytes = randomBytes(length, quint32(length) + 4000);
        QCOMPARE(qx_md5Hash(bytes), QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex()));
        QCOMPARE(qx_sha1Hash(bytes), QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex()));
        QCOMPARE(qx_sha256Hash(bytes),
                 QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex()));
    }
    // Data and text digests agree on the same bytes.
    QCOMPARE(qx_md5Hash(QByteArray("avatar-42")), qx_md5Hash(QStringLiteral("avatar-42")));
}

QTEST_GUILESS_MAIN(tst_QXBase64)
#include "tst_qxbase64.moc"
