#include <QXFoundation/QXEncryption.h>
#include <QXFoundation/QXString.h>

#include "platform/QXPropertyList_p.h"

#include <QtTest>

#include <openssl/err.h>

namespace {

QByteArray pattern(int size, int seed = 7)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        bytes[i] = char((i * 131 + seed) & 0xFF);
    return bytes;
}

// The key as `openssl enc -K` wants it: the 32 bytes the library uses, in hex.
QByteArray keyHex(const QByteArray &key)
{
    QByteArray fitted = key.left(32);
    fitted.append(QByteArray(32 - fitted.size(), '\0'));
    return fitted.toHex();
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

struct Run
{
    int status = -1;
    QByteArray out;
    QByteArray err;
};

Run run(const QString &program, const QStringList &arguments, const QByteArray &input = QByteArray())
{
    QProcess process;
    process.start(program, arguments);
    Run result;
    if (!process.waitForStarted(10000))
        return result;
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit)
        return result;
    result.status = process.exitCode();
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

} // namespace

class tst_QXEncryption : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void sizesAndRoundTrips();
    void keyFitting();
    void fixedIvMakesEqualBlocksVisible();
    void failuresGiveNoResult();
    void encryptedFileReaders();
    void interoperatesWithOpenssl();
    void qxEncryptAndDecrypt();

private:
    QTemporaryDir m_dir;
    QString m_openssl;
    QString m_qx;
    QString path(const QString &name) const { return m_dir.filePath(name); }
};

void tst_QXEncryption::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_openssl = QStandardPaths::findExecutable(QStringLiteral("openssl"));
    QVERIFY2(!m_openssl.isEmpty(), "the openssl program (package openssl) is needed");
    m_qx = qEnvironmentVariable("QX_TOOL");
    QVERIFY2(QFileInfo(m_qx).isExecutable(), "QX_TOOL must name the qx binary");
}

void tst_QXEncryption::sizesAndRoundTrips()
{
    const QByteArray key("round trip key");
    for (const int n : {0, 1, 15, 16, 17, 31, 32, 33, 4096, (1 << 20) + 5}) {
        const QByteArray plain = pattern(n);
        const QByteArray sealed = qx_encryptedWithKey(plain, key);
        QCOMPARE(sealed.size(), n / 16 * 16 + 16);
        if (n >= 16)
            QVERIFY(sealed.left(16) != plain.left(16));
        const QByteArray opened = qx_decryptedWithKey(sealed, key);
        QVERIFY(!opened.isNull());
        QCOMPARE(opened.size(), n);
        QCOMPARE(opened, plain);
    }
    // A null receiver is empty data: one block of padding.
    QCOMPARE(qx_encryptedWithKey(QByteArray(), key), qx_encryptedWithKey(QByteArray(""), key));

    // AES-256 known answer (FIPS-197, appendix C.3). With a zero IV the first
    // CBC block is the plain block cipher, so this pins key size and mode.
    const QByteArray fipsKey = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
    const QByteArray fipsPlain = QByteArray::fromHex("00112233445566778899aabbccddeeff");
    QCOMPARE(qx_encryptedWithKey(fipsPlain, fipsKey).left(16).toHex(), QByteArray("8ea2b7ca516745bfeafc49904b496089"));
}

void tst_QXEncryption::keyFitting()
{
    const QByteArray plain("Only the first 32 bytes of a key take part.");
    auto seal = [&plain](const QByteArray &key) { return qx_encryptedWithKey(plain, key); };

    const QByteArray key40 = pattern(40, 3);
    QCOMPARE(seal(key40), seal(key40.left(32)));
    QByteArray changed = key40;
    changed[35] = char(changed[35] ^ 0x01); // beyond 32 bytes: no effect
    QCOMPARE(seal(changed), seal(key40));
    changed[31] = char(changed[31] ^ 0x01); // the last byte that counts
    QVERIFY(seal(changed) != seal(key40));

    const QByteArray key5("abcde");
    QCOMPARE(seal(key5), seal(key5 + QByteArray(27, '\0')));
    QVERIFY(seal(key5) != seal(key5 + QByteArray(27, ' ')));

    const QByteArray zeros(32, '\0');
    QCOMPARE(seal(QByteArray()), seal(zeros));
    QCOMPARE(seal(QByteArray("")), seal(zeros));
    QVERIFY(seal(zeros) != seal(QByteArray(1, '\1')));

    // The C function takes a pointer and a length.
    QCOMPARE(QXCryptedVersionOfDataWithKeyData(plain, key40.constData(), 40, false), seal(key40.left(32)));
    QCOMPARE(QXCryptedVersionOfDataWithKeyData(plain, key40.constData(), 3, false), seal(key40.left(3)));
    QCOMPARE(QXCryptedVersionOfDataWithKeyData(plain, nullptr, 10, false), seal(zeros));
    QCOMPARE(QXCryptedVersionOfDataWithKeyData(seal(key40), key40.constData(), 32, true), plain);
}

void tst_QXEncryption::fixedIvMakesEqualBlocksVisible()
{
    const QByteArray key("iv key");
    const QByteArray shared = pattern(32, 11);
    const QByteArray first = qx_encryptedWithKey(shared + "first message", key);
    const QByteArray second = qx_encryptedWithKey(shared + "other message", key);
    QCOMPARE(qx_encryptedWithKey(shared + "first message", key), first);
    QCOMPARE(first.left(32), second.left(32));
    QVERIFY(first.mid(32, 16) != second.mid(32, 16));
    QVERIFY(qx_encryptedWithKey(shared, "another key").left(32) != first.left(32));
}

void tst_QXEncryption::failuresGiveNoResult()
{
    const QByteArray key("failure key");
    const QByteArray plain = pattern(48, 5); // three full blocks and one of padding
    const QByteArray sealed = qx_encryptedWithKey(plain, key);

    for (const int n : {0, 1, 15, 17, 31})
        QVERIFY2(qx_decryptedWithKey(sealed.left(n), key).isNull(), qPrintable(QString::number(n)));
    QVERIFY(qx_decryptedWithKey(QByteArray(), key).isNull());
    QVERIFY(qx_decryptedWithKey(sealed, "wrong key").isNull());
    // No error is left behind for the application's own use of OpenSSL.
    QCOMPARE(ERR_peek_error(), 0UL);

    // The padding block is all 0x10 here; changing the block before it turns
    // that into 0x11, which never checks out.
    QByteArray tampered = sealed;
    tampered[47] = char(tampered[47] ^ 0x01);
    QVERIFY(qx_decryptedWithKey(tampered, key).isNull());

    // Nothing protects the rest: a changed first block decrypts to wrong bytes.
    tampered = sealed;
    tampered[3] = char(tampered[3] ^ 0x01);
    const QByteArray garbled = qx_decryptedWithKey(tampered, key);
    QCOMPARE(garbled.size(), plain.size());
    QVERIFY(garbled.left(16) != plain.left(16));
    QCOMPARE(garbled.at(16 + 3), char(plain.at(16 + 3) ^ 0x01));
    QCOMPARE(garbled.mid(32), plain.mid(32));

    // Nor is a wrong key detected as such: now and then its padding checks out.
    int rejected = 0;
    int accepted = 0;
    for (int i = 0; i < 2048; ++i) {
        const QByteArray opened = qx_decryptedWithKey(sealed, "wrong " + QByteArray::number(i));
        if (opened.isNull()) {
            ++rejected;
            continue;
        }
        ++accepted;
        QVERIFY(opened != plain);
    }
    QVERIFY(accepted > 0);
    QVERIFY(rejected > 2048 * 9 / 10);
}

void tst_QXEncryption::encryptedFileReaders()
{
    const QByteArray key("reader key");
    auto sealTo = [&](const QString &name, const QByteArray &plain) {
        const QString file = path(name);
        return writeFile(file, qx_encryptedWithKey(plain, key)) ? file : QString();
    };

    // Data
    const QByteArray plain = pattern(1000);
    const QString dataFile = sealTo(QStringLiteral("data.aes"), plain);
    QCOMPARE(qx_dataWithContentsOfEncryptedFile(dataFile, key), plain);
    QVERIFY(qx_dataWithContentsOfEncryptedFile(dataFile, "wrong key").isNull());
    const QByteArray empty = qx_dataWithContentsOfEncryptedFile(sealTo(QStringLiteral("empty.aes"), QByteArray()), key);
    QVERIFY(!empty.isNull());
    QVERIFY(empty.isEmpty());
    QVERIFY(writeFile(path(QStringLiteral("short.aes")), pattern(15)));
    QVERIFY(qx_dataWithContentsOfEncryptedFile(path(QStringLiteral("short.aes")), key).isNull());

    // Nothing to read: every reader says so.
    for (const QString &missing : {path(QStringLiteral("missing.aes")), m_dir.path(), QString()}) {
        QVERIFY(qx_dataWithContentsOfEncryptedFile(missing, key).isNull());
        QVERIFY(qx_stringWithContentsOfEncryptedFile(missing, key, QStringConverter::Utf8).isNull());
        QVERIFY(!qx_arrayWithContentsOfEncryptedFile(missing, key));
        QVERIFY(!qx_dictionaryWithContentsOfEncryptedFile(missing, key));
    }

    // Text, in the encoding the caller names
    const QString text = QStringLiteral("Grüße, 世界 😀");
    auto readText = [&](const QString &name, const QByteArray &bytes, QStringConverter::Encoding encoding) {
        return qx_stringWithContentsOfEncryptedFile(sealTo(name, bytes), key, encoding);
    };
    QCOMPARE(readText(QStringLiteral("utf8.aes"), text.toUtf8(), QStringConverter::Utf8), text);
    QCOMPARE(readText(QStringLiteral("bom.aes"), "\xEF\xBB\xBF" + text.toUtf8(), QStringConverter::Utf8), text);
    QByteArray utf16le;
    for (const QChar c : text)
        utf16le.append(char(c.unicode() & 0xFF)).append(char(c.unicode() >> 8));
    QCOMPARE(readText(QStringLiteral("utf16.aes"), utf16le, QStringConverter::Utf16LE), text);
    QCOMPARE(readText(QStringLiteral("latin1.aes"), "\xE9t\xE9", QStringConverter::Latin1), QStringLiteral("été"));
    QVERIFY(readText(QStringLiteral("bad.aes"), "a\xC3(b", QStringConverter::Utf8).isNull());
    QVERIFY(readText(QStringLiteral("cut.aes"), "ab\xC3", QStringConverter::Utf8).isNull());
    QVERIFY(readText(QStringLiteral("odd.aes"), "abc", QStringConverter::Utf16LE).isNull());
    QVERIFY(readText(QStringLiteral("odd32.aes"), "abcdef", QStringConverter::Utf32).isNull());
    const QString none = readText(QStringLiteral("notext.aes"), QByteArray(), QStringConverter::Utf8);
    QVERIFY(!none.isNull());
    QVERIFY(none.isEmpty());

    // Property lists: binary or XML, and only of the kind asked for
    const QVariantMap settings{{QStringLiteral("volume"), 7}, {QStringLiteral("name"), QStringLiteral("Jörg")}};
    const QString binaryDict = sealTo(QStringLiteral("dict.bplist.aes"),
                                      QXPropertyList::serialize(settings, QXPropertyList::Format::Binary));
    const QString xmlDict = sealTo(QStringLiteral("dict.plist.aes"),
                                   "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                                   "<key>name</key><string>J\xC3\xB6rg</string><key>volume</key><integer>7</integer>"
                                   "</dict></plist>\n");
    for (const QString &file : {binaryDict, xmlDict}) {
        const std::optional<QVariantMap> read = qx_dictionaryWithContentsOfEncryptedFile(file, key);
        QVERIFY(read);
        QCOMPARE(*read, settings);
        QVERIFY(!qx_arrayWithContentsOfEncryptedFile(file, key));
        QVERIFY(!qx_dictionaryWithContentsOfEncryptedFile(file, "wrong key"));
    }
    const QVariantList list{1, QStringLiteral("two"), 3.5, QVariantList{}};
    const QString arrayFile = sealTo(QStringLiteral("array.aes"),
                                     QXPropertyList::serialize(list, QXPropertyList::Format::Binary));
    const std::optional<QVariantList> readList = qx_arrayWithContentsOfEncryptedFile(arrayFile, key);
    QVERIFY(readList);
    QCOMPARE(*readList, list);
    QVERIFY(!qx_dictionaryWithContentsOfEncryptedFile(arrayFile, key));

    const QString emptyArray = sealTo(QStringLiteral("emptyarray.aes"), "<plist><array/></plist>");
    QVERIFY(qx_arrayWithContentsOfEncryptedFile(emptyArray, key).has_value());
    QVERIFY(qx_arrayWithContentsOfEncryptedFile(emptyArray, key)->isEmpty());
    for (const QByteArray &other : {QByteArray("<plist><string>just text</string></plist>"),
                                    QByteArray("not a property list"), QByteArray("bplist00garbage")}) {
        const QString file = sealTo(QStringLiteral("other.aes"), other);
        QVERIFY2(!qx_arrayWithContentsOfEncryptedFile(file, key), other.constData());
        QVERIFY2(!qx_dictionaryWithContentsOfEncryptedFile(file, key), other.constData());
    }
}

void tst_QXEncryption::interoperatesWithOpenssl()
{
    const QString zeroIv(32, QLatin1Char('0'));
    const QList<QByteArray> keys{QByteArray(), QByteArray("k"), pattern(16, 1), pattern(32, 2), pattern(45, 3)};
    const QList<QByteArray> plains{QByteArray(), pattern(1), pattern(16), pattern(70000)};
    int round = 0;
    for (const QByteArray &key : keys) {
        for (const QByteArray &plain : plains) {
            const QString label = QStringLiteral("key of %1 bytes, %2 bytes of data").arg(key.size()).arg(plain.size());
            const QString plainFile = path(QStringLiteral("plain-%1").arg(round));
            const QString ours = path(QStringLiteral("ours-%1.aes").arg(round));
            const QString theirs = path(QStringLiteral("theirs-%1.aes").arg(round));
            ++round;
            QVERIFY(writeFile(plainFile, plain));
            QVERIFY(writeFile(ours, qx_encryptedWithKey(plain, key)));
            const QStringList common{QStringLiteral("enc"), QStringLiteral("-aes-256-cbc"), QStringLiteral("-nosalt"),
                                     QStringLiteral("-K"), QString::fromLatin1(keyHex(key)), QStringLiteral("-iv"), zeroIv};

            // Ours, decrypted by openssl
            const Run decrypted = run(m_openssl, common + QStringList{QStringLiteral("-d"), QStringLiteral("-in"), ours});
            QVERIFY2(decrypted.status == 0, qPrintable(label + QLatin1Char(' ') + QString::fromLocal8Bit(decrypted.err)));
            QVERIFY2(decrypted.out == plain, qPrintable(label));

            // Theirs, read by us: byte for byte the same file
            const Run encrypted = run(m_openssl, common + QStringList{QStringLiteral("-e"), QStringLiteral("-in"), plainFile,
                                                                      QStringLiteral("-out"), theirs});
            QVERIFY2(encrypted.status == 0, qPrintable(label + QLatin1Char(' ') + QString::fromLocal8Bit(encrypted.err)));
            QVERIFY2(readFile(theirs) == readFile(ours), qPrintable(label));
            const QByteArray read = qx_dataWithContentsOfEncryptedFile(theirs, key);
            QVERIFY2(!read.isNull() && read == plain, qPrintable(label));
        }
    }
}

void tst_QXEncryption::qxEncryptAndDecrypt()
{
    const QByteArray key("qx key with a line feed\n");
    const QByteArray plain = pattern(5000, 9);
    const QString keyFile = path(QStringLiteral("qx.key"));
    const QString wrongKeyFile = path(QStringLiteral("qx-wrong.key"));
    const QString in = path(QStringLiteral("qx.in"));
    QVERIFY(writeFile(keyFile, key));
    QVERIFY(writeFile(wrongKeyFile, "qx key with a line feed"));
    QVERIFY(writeFile(in, plain));
    auto qx = [this](const QStringList &arguments, const QByteArray &input = QByteArray()) {
        return run(m_qx, arguments, input);
    };

    const QString sealed = path(QStringLiteral("qx.aes"));
    Run result = qx({QStringLiteral("encrypt"), keyFile, in, sealed});
    QCOMPARE(result.status, 0);
    QCOMPARE(readFile(sealed), qx_encryptedWithKey(plain, key));
    const QString opened = path(QStringLiteral("qx.out"));
    result = qx({QStringLiteral("decrypt"), keyFile, sealed, opened});
    QCOMPARE(result.status, 0);
    QCOMPARE(readFile(opened), plain);

    // Standard input and output
    result = qx({QStringLiteral("encrypt"), keyFile, QStringLiteral("-"), QStringLiteral("-")}, plain);
    QCOMPARE(result.status, 0);
    QCOMPARE(result.out, readFile(sealed));
    result = qx({QStringLiteral("decrypt"), keyFile, QStringLiteral("-"), QStringLiteral("-")}, readFile(sealed));
    QCOMPARE(result.status, 0);
    QCOMPARE(result.out, plain);

    // qx encrypts a slice of 1 MiB at a time: the chain must hold across slices.
    for (const int size : {(1 << 20) - 1, (1 << 20) + 15, (1 << 20) + 16, (1 << 20) + 17, (1 << 20) + 32,
                           (2 << 20) + 48, (2 << 20) + 53}) {
        const QByteArray large = pattern(size, size);
        const QByteArray expected = qx_encryptedWithKey(large, key);
        QVERIFY(writeFile(in, large));
        result = qx({QStringLiteral("encrypt"), keyFile, in, sealed});
        QCOMPARE(result.status, 0);
        QVERIFY2(readFile(sealed) == expected, qPrintable(QString::number(size)));
        result = qx({QStringLiteral("encrypt"), keyFile, QStringLiteral("-"), QStringLiteral("-")}, large);
        QVERIFY2(result.status == 0 && result.out == expected, qPrintable(QString::number(size)));
    }
    QVERIFY(writeFile(in, plain));
    QCOMPARE(qx({QStringLiteral("encrypt"), keyFile, in, sealed}).status, 0);

    // A new OUT gets the permissions the umask allows; an existing one keeps its own.
    QVERIFY(QFile::setPermissions(opened, QFile::ReadOwner | QFile::WriteOwner));
    const QFile::Permissions ownerOnly = QFile::permissions(opened);
    QCOMPARE(qx({QStringLiteral("decrypt"), keyFile, sealed, opened}).status, 0);
    QCOMPARE(QFile::permissions(opened), ownerOnly);
    const QString fresh = path(QStringLiteral("qx-fresh.out"));
    QCOMPARE(qx({QStringLiteral("decrypt"), keyFile, sealed, fresh}).status, 0);
    QFile probe(path(QStringLiteral("qx-probe")));
    QVERIFY(probe.open(QIODevice::WriteOnly)); // made the ordinary way, under the same umask
    probe.close();
    QCOMPARE(QFile::permissions(fresh), QFile::permissions(probe.fileName()));
    QCOMPARE(readFile(fresh), plain);

    // A wrong key or a damaged file: status 1, a message, and OUT untouched
    const QString damaged = path(QStringLiteral("qx-damaged.aes"));
    QVERIFY(writeFile(damaged, readFile(sealed).left(readFile(sealed).size() - 1)));
    const QString previous = path(QStringLiteral("qx-previous.out"));
    QVERIFY(writeFile(previous, "what was here before"));
    const int entriesBefore = int(QDir(m_dir.path()).entryList(QDir::Files).size());
    QVERIFY(qx_decryptedWithKey(readFile(sealed), "qx key with a line feed").isNull());
    const struct
    {
        QStringList arguments;
        QByteArray message;
    } failures[] = {
        {{QStringLiteral("decrypt"), wrongKeyFile, sealed, path(QStringLiteral("qx-new.out"))}, "wrong key or damaged file"},
        {{QStringLiteral("decrypt"), wrongKeyFile, sealed, previous}, "wrong key or damaged file"},
        {{QStringLiteral("decrypt"), keyFile, damaged, previous}, "not a positive multiple of 16"},
        {{QStringLiteral("decrypt"), keyFile, path(QStringLiteral("absent")), previous}, "cannot read"},
        {{QStringLiteral("encrypt"), path(QStringLiteral("absent.key")), in, previous}, "cannot read key file"},
    };
    for (const auto &failure : failures) {
        result = qx(failure.arguments);
        QCOMPARE(result.status, 1);
        QVERIFY2(result.err.contains(failure.message), result.err.constData());
    }
    QVERIFY(!QFile::exists(path(QStringLiteral("qx-new.out"))));
    QCOMPARE(readFile(previous), QByteArray("what was here before"));
    QCOMPARE(int(QDir(m_dir.path()).entryList(QDir::Files).size()), entriesBefore); // no temporary files left

    QCOMPARE(qx({QStringLiteral("decrypt"), keyFile, sealed}).status, 2);
}

QTEST_GUILESS_MAIN(tst_QXEncryption)
#include "tst_qxencryption.moc"
