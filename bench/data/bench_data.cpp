// Throughput of the Base64 codec and the data digests, each next to its
// reference, measured in one run on the same 64 MiB buffer.

#include "QxBench.h"

#include <QXFoundation/QXData.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr qsizetype bufferSize = 64 * 1024 * 1024;
constexpr int repeats = 5;

void report(const char *what, double bytes, double seconds, double reference = 0)
{
    if (reference > 0)
        std::printf("  %-44s %8.0f MiB/s   %5.2fx the reference\n", what, QxBench::mibPerSecond(bytes, seconds),
                    reference / seconds);
    else
        std::printf("  %-44s %8.0f MiB/s\n", what, QxBench::mibPerSecond(bytes, seconds));
}

double timeProcess(const QString &program, const QStringList &arguments)
{
    return QxBench::bestOf(3, [&] {
        QProcess process;
        process.setStandardOutputFile(QProcess::nullDevice());
        process.start(program, arguments);
        process.waitForFinished(-1);
        if (process.exitCode() != 0)
            std::fprintf(stderr, "%s failed\n", qPrintable(program));
    });
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QString qx = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();

    QByteArray data(bufferSize, Qt::Uninitialized);
    QRandomGenerator generator(42);
    generator.fillRange(reinterpret_cast<quint32 *>(data.data()), bufferSize / 4);
    std::printf("Base64 on %lld MiB of random bytes (best of %d runs)\n", bufferSize / (1024 * 1024), repeats);

    // Encoding.
    size_t length = 0;
    char *text = nullptr;
    const double qtEncode = QxBench::bestOf(repeats, [&] { QxBench::keep(data.toBase64()); });
    const double ownEncode = QxBench::bestOf(repeats, [&] {
        std::free(text);
        text = QXNewBase64Encode(data.constData(), size_t(data.size()), false, &length);
    });
    QByteArray evpText(qsizetype(4 * ((bufferSize + 2) / 3) + 1), Qt::Uninitialized);
    const double evpEncode = QxBench::bestOf(repeats, [&] {
        EVP_EncodeBlock(reinterpret_cast<unsigned char *>(evpText.data()),
                        reinterpret_cast<const unsigned char *>(data.constData()), int(data.size()));
    });
    size_t linedLength = 0;
    char *lined = nullptr;
    const double ownLines = QxBench::bestOf(repeats, [&] {
        std::free(lined);
        lined = QXNewBase64Encode(data.constData(), size_t(data.size()), true, &linedLength);
    });
    std::printf(" encode (input bytes per second; ratio = Qt's time / this time)\n");
    report("QByteArray::toBase64", double(bufferSize), qtEncode);
    report("EVP_EncodeBlock", double(bufferSize), evpEncode, qtEncode);
    report("QXNewBase64Encode", double(bufferSize), ownEncode, qtEncode);
    report("QXNewBase64Encode with line breaks", double(bufferSize), ownLines, qtEncode);

    // Decoding the same text.
    const QByteArray encoded(text, qsizetype(length));
    const double qtDecode = QxBench::bestOf(repeats, [&] { QxBench::keep(QByteArray::fromBase64(encoded)); });
    QByteArray evpBytes(qsizetype(3 * (length / 4) + 3), Qt::Uninitialized);
    const double evpDecode = QxBench::bestOf(repeats, [&] {
        EVP_DecodeBlock(reinterpret_cast<unsigned char *>(evpBytes.data()),
                        reinterpret_cast<const unsigned char *>(encoded.constData()), int(encoded.size()));
    });
    size_t decodedLength = 0;
    void *decoded = nullptr;
    const double ownDecode = QxBench::bestOf(repeats, [&] {
        std::free(decoded);
        decoded = QXNewBase64Decode(encoded.constData(), size_t(encoded.size()), &decodedLength);
    });
    size_t linedDecodedLength = 0;
    void *linedDecoded = nullptr;
    const double ownDecodeLines = QxBench::bestOf(repeats, [&] {
        std::free(linedDecoded);
        linedDecoded = QXNewBase64Decode(lined, linedLength, &linedDecodedLength);
    });
    const bool same = decodedLength == size_t(bufferSize) && memcmp(decoded, data.constData(), size_t(bufferSize)) == 0
        && linedDecodedLength == size_t(bufferSize) && memcmp(linedDecoded, data.constData(), size_t(bufferSize)) == 0
        && encoded == data.toBase64();
    std::printf(" decode (output bytes per second; ratio = Qt's time / this time)\n");
    report("QByteArray::fromBase64", double(bufferSize), qtDecode);
    report("EVP_DecodeBlock", double(bufferSize), evpDecode, qtDecode);
    report("QXNewBase64Decode", double(bufferSize), ownDecode, qtDecode);
    report("QXNewBase64Decode of the line-broken text", double(bufferSize), ownDecodeLines, qtDecode);
    std::printf("  round trip identical to the input and to Qt's text: %s\n", same ? "yes" : "NO");
    std::free(text);
    std::free(lined);
    std::free(decoded);
    std::free(linedDecoded);

    // Digests: in process, and as commands on the same file.
    std::printf("\nDigests of the same 64 MiB (in process; then qx digest vs openssl dgst on a file, best of 3)\n");
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("data.bin"));
    {
        QFile out(file);
        out.open(QIODevice::WriteOnly);
        out.write(data);
    }
    struct Digest
    {
        const char *name;
        QString (*function)(const QByteArray &);
    };
    for (const Digest &digest : {Digest{"md5", qx_md5Hash}, Digest{"sha1", qx_sha1Hash}, Digest{"sha256", qx_sha256Hash}}) {
        const double inProcess = QxBench::bestOf(repeats, [&] { QxBench::keep(digest.function(data)); });
        const QString name = QString::fromLatin1(digest.name);
        const double openssl = timeProcess(QStringLiteral("openssl"), {QStringLiteral("dgst"), QLatin1Char('-') + name, file});
        const double tool = qx.isEmpty() ? 0 : timeProcess(qx, {QStringLiteral("digest"), name, file});
        std::printf("  %-7s in process %6.0f MiB/s | openssl dgst %6.3f s | qx digest %6.3f s | qx/openssl %.2f\n",
                    digest.name, QxBench::mibPerSecond(double(bufferSize), inProcess), openssl, tool,
                    tool > 0 ? tool / openssl : 0.0);
    }
    return 0;
}
