// Encryption throughput: the library against OpenSSL's own EVP loop in
// memory, and `qx encrypt` against `openssl enc -aes-256-cbc` file to file
// (both processes read IN and write OUT, so file I/O is counted alike).
//
//   bench_crypto QX OPENSSL WORKDIR [MEBIBYTES]

#include <QXFoundation/QXEncryption.h>

#include "QxBench.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>

#include <openssl/evp.h>

#include <sys/resource.h>

#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>

namespace {

const QByteArray key("bench key of thirty-two bytes!!!");

// What `openssl speed -evp aes-256-cbc` does: one context, 16 KiB updates.
QByteArray evpReference(const QByteArray &input)
{
    static constexpr unsigned char iv[16] = {};
    QByteArray output(input.size() + 16, Qt::Uninitialized);
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    EVP_EncryptInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, reinterpret_cast<const unsigned char *>(key.constData()), iv);
    auto *out = reinterpret_cast<unsigned char *>(output.data());
    const auto *in = reinterpret_cast<const unsigned char *>(input.constData());
    int total = 0;
    for (qsizetype offset = 0; offset < input.size(); offset += 16384) {
        int produced = 0;
        EVP_EncryptUpdate(context.get(), out + total, &produced, in + offset, int(std::min<qsizetype>(16384, input.size() - offset)));
        total += produced;
    }
    int produced = 0;
    EVP_EncryptFinal_ex(context.get(), out + total, &produced);
    output.truncate(total + produced);
    return output;
}

double childCpuSeconds()
{
    rusage usage {};
    getrusage(RUSAGE_CHILDREN, &usage);
    auto seconds = [](const timeval &t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Timing
{
    double wall = 1e9;
    double cpu = 1e9;
};

void keepBest(Timing &best, const Timing &run)
{
    best.wall = std::min(best.wall, run.wall);
    best.cpu = std::min(best.cpu, run.cpu);
}

double threadCpuSeconds()
{
    timespec now {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

Timing measure(const std::function<void()> &work)
{
    const double cpuBefore = threadCpuSeconds();
    QElapsedTimer timer;
    timer.start();
    work();
    return {double(timer.nsecsElapsed()) / 1e9, threadCpuSeconds() - cpuBefore};
}

// Wall-clock time, and user + system CPU time, which a loaded machine disturbs less.
Timing runProcess(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    const double cpuBefore = childCpuSeconds();
    QElapsedTimer timer;
    timer.start();
    process.start(program, arguments);
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        std::fprintf(stderr, "bench_crypto: %s failed\n", qPrintable(program));
        std::exit(1);
    }
    return {double(timer.nsecsElapsed()) / 1e9, childCpuSeconds() - cpuBefore};
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 4) {
        std::fprintf(stderr, "usage: bench_crypto QX OPENSSL WORKDIR [MEBIBYTES]\n");
        return 2;
    }
    const QString qx = args.at(1);
    const QString openssl = args.at(2);
    const QString work = args.at(3);
    const qsizetype mebibytes = args.size() > 4 ? args.at(4).toLongLong() : 256;
    const qsizetype size = mebibytes << 20;

    QByteArray plain(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        plain[i] = char((i * 2654435761u) >> 13);

    // In memory: the two alternate, and CPU time of this thread is kept
    // next to wall time, since a loaded machine disturbs it less.
    QByteArray ours;
    QByteArray reference;
    Timing oursEncrypt;
    Timing referenceEncrypt;
    for (int round = 0; round < 5; ++round) {
        keepBest(oursEncrypt, measure([&] { ours = QXCryptedVersionOfDataWithKeyData(plain, key.constData(), 32, false); }));
        keepBest(referenceEncrypt, measure([&] { reference = evpReference(plain); }));
    }
    if (ours != reference) {
        std::fprintf(stderr, "bench_crypto: ciphertexts differ\n");
        return 1;
    }
    QByteArray opened;
    Timing oursDecrypt;
    for (int round = 0; round < 5; ++round)
        keepBest(oursDecrypt, measure([&] { opened = qx_decryptedWithKey(ours, key); }));
    if (opened != plain) {
        std::fprintf(stderr, "bench_crypto: round trip failed\n");
        return 1;
    }
    const QByteArray small = plain.left(1024);
    constexpr int calls = 20000;
    Timing smallCalls;
    for (int round = 0; round < 3; ++round)
        keepBest(smallCalls, measure([&] {
                     for (int i = 0; i < calls; ++i)
                         QxBench::keep(qx_encryptedWithKey(small, key));
                 }));
    const double mib = double(size);
    std::printf("in memory, %lld MiB (best of 5):            wall-time speed   CPU-time speed\n",
                static_cast<long long>(mebibytes));
    std::printf("  encrypt  QXCryptedVersionOfDataWithKeyData %8.1f MiB/s   %8.1f MiB/s\n",
                QxBench::mibPerSecond(mib, oursEncrypt.wall), QxBench::mibPerSecond(mib, oursEncrypt.cpu));
    std::printf("  encrypt  EVP, 16 KiB updates (reference)   %8.1f MiB/s   %8.1f MiB/s\n",
                QxBench::mibPerSecond(mib, referenceEncrypt.wall), QxBench::mibPerSecond(mib, referenceEncrypt.cpu));
    std::printf("  library at %.1f%% of the reference's speed by wall time, %.1f%% by CPU time\n",
                100.0 * referenceEncrypt.wall / oursEncrypt.wall, 100.0 * referenceEncrypt.cpu / oursEncrypt.cpu);
    std::printf("  decrypt  qx_decryptedWithKey               %8.1f MiB/s   %8.1f MiB/s\n",
                QxBench::mibPerSecond(mib, oursDecrypt.wall), QxBench::mibPerSecond(mib, oursDecrypt.cpu));
    std::printf("  1 KiB messages, qx_encryptedWithKey        %8.2f us per call (CPU %.2f us)\n",
                smallCalls.wall / calls * 1e6, smallCalls.cpu / calls * 1e6);
    ours.clear();
    reference.clear();
    opened.clear();

    // File to file
    const QString in = work + QStringLiteral("/plain.bin");
    const QString keyFile = work + QStringLiteral("/key.bin");
    const QString outQx = work + QStringLiteral("/qx.aes");
    const QString outOpenssl = work + QStringLiteral("/openssl.aes");
    {
        QFile file(in);
        QFile keyOut(keyFile);
        if (!file.open(QIODevice::WriteOnly) || file.write(plain) != size || !keyOut.open(QIODevice::WriteOnly)
            || keyOut.write(key) != key.size()) {
            std::fprintf(stderr, "bench_crypto: cannot write into %s\n", qPrintable(work));
            return 1;
        }
    }
    plain.clear();
    const QString keyHex = QString::fromLatin1(key.toHex());
    const QString zeroIv(32, QLatin1Char('0'));
    const QStringList qxArguments{QStringLiteral("encrypt"), keyFile, in, outQx};
    const QStringList opensslArguments{QStringLiteral("enc"), QStringLiteral("-aes-256-cbc"), QStringLiteral("-nosalt"),
                                       QStringLiteral("-K"), keyHex, QStringLiteral("-iv"), zeroIv,
                                       QStringLiteral("-in"), in, QStringLiteral("-out"), outOpenssl};
    Timing bestQx;
    Timing bestOpenssl;
    // Alternate the two so that both see the same machine load.
    for (int round = 0; round < 7; ++round) {
        keepBest(bestOpenssl, runProcess(openssl, opensslArguments));
        keepBest(bestQx, runProcess(qx, qxArguments));
    }
    QFile a(outQx), b(outOpenssl);
    if (!a.open(QIODevice::ReadOnly) || !b.open(QIODevice::ReadOnly) || a.readAll() != b.readAll()) {
        std::fprintf(stderr, "bench_crypto: qx and openssl wrote different files\n");
        return 1;
    }
    std::printf("file to file, %lld MiB, whole process (best of 7):\n", static_cast<long long>(mebibytes));
    std::printf("                                             wall time   throughput   CPU time\n");
    std::printf("  qx encrypt KEYFILE IN OUT                  %7.3f s  %7.1f MiB/s  %7.3f s\n", bestQx.wall,
                QxBench::mibPerSecond(double(size), bestQx.wall), bestQx.cpu);
    std::printf("  openssl enc -aes-256-cbc -nosalt -K -iv    %7.3f s  %7.1f MiB/s  %7.3f s\n", bestOpenssl.wall,
                QxBench::mibPerSecond(double(size), bestOpenssl.wall), bestOpenssl.cpu);
    std::printf("  qx takes %.1f%% of openssl's wall time and %.1f%% of its CPU time (goal: at most 110%%)\n",
                100.0 * bestQx.wall / bestOpenssl.wall, 100.0 * bestQx.cpu / bestOpenssl.cpu);
    return 0;
}
