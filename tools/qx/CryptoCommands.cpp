// Commands and tour section of keyed encryption: files encrypted with
// AES-256-CBC, zero IV, PKCS#7 padding, readable by `openssl enc`.

#include "QxCommand.h"

#include <QXFoundation/QXEncryption.h>
#include <QXFoundation/QXString.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

constexpr qsizetype blockSize = 16;
// Large enough that the per-call cost vanishes, small enough to stay in cache.
constexpr qsizetype sliceSize = qsizetype(1) << 20;

bool isStream(const QString &path)
{
    return path == QLatin1String("-");
}

QString displayName(const QString &path)
{
    return isStream(path) ? QStringLiteral("standard input") : path;
}

// OUT as a temporary file beside it, renamed over OUT by commit(): until
// then OUT is neither created nor changed, and a failure removes the
// temporary file. Like openssl and cp, it does not force the data to disk.
// "-" is standard output, written straight through.
class Output
{
public:
    explicit Output(const QString &path)
        : m_path(path)
    {
    }

    bool open(QString *error)
    {
        if (isStream(m_path)) {
            m_stdout = std::make_unique<QFile>();
            if (!m_stdout->open(stdout, QIODevice::WriteOnly)) {
                *error = QStringLiteral("cannot write standard output: %1").arg(m_stdout->errorString());
                return false;
            }
            return true;
        }
        // Replace what a symbolic link points to, not the link.
        const QFileInfo info(m_path);
        if (info.isSymLink())
            m_path = info.symLinkTarget();
        m_file = std::make_unique<QTemporaryFile>(
            QDir(QFileInfo(m_path).path()).filePath(QStringLiteral(".%1.XXXXXX").arg(QFileInfo(m_path).fileName())));
        if (!m_file->open()) {
            *error = QStringLiteral("cannot write %1: %2").arg(m_path, m_file->errorString());
            return false;
        }
        // An existing OUT keeps its permissions; a new one gets what the umask allows.
        struct stat existing;
        mode_t mode = 0;
        if (::stat(QFile::encodeName(m_path).constData(), &existing) == 0) {
            mode = existing.st_mode & 07777;
        } else {
            const mode_t mask = ::umask(0);
            ::umask(mask);
            mode = 0666 & ~mask;
        }
        ::fchmod(m_file->handle(), mode);
        return true;
    }

    QIODevice &device() { return m_stdout ? static_cast<QIODevice &>(*m_stdout) : *m_file; }

    bool write(const char *data, qsizetype size, QString *error)
    {
        if (device().write(data, size) == size)
            return true;
        *error = QStringLiteral("cannot write %1: %2")
                     .arg(isStream(m_path) ? QStringLiteral("standard output") : m_path, device().errorString());
        return false;
    }

    bool commit(QString *error)
    {
        if (m_stdout) {
            if (m_stdout->flush())
                return true;
            *error = QStringLiteral("cannot write standard output: %1").arg(m_stdout->errorString());
            return false;
        }
        if (!m_file->flush()) {
            *error = QStringLiteral("cannot write %1: %2").arg(m_path, m_file->errorString());
            return false;
        }
        if (std::rename(QFile::encodeName(m_file->fileName()).constData(), QFile::encodeName(m_path).constData()) != 0) {
            *error = QStringLiteral("cannot write %1: %2").arg(m_path, QString::fromLocal8Bit(std::strerror(errno)));
            return false;
        }
        m_file->setAutoRemove(false);
        return true;
    }

private:
    QString m_path;
    std::unique_ptr<QFile> m_stdout;
    std::unique_ptr<QTemporaryFile> m_file;
};

// Reads until `buffer` holds `size` bytes or the input ends; -1 on an error.
qsizetype readFully(QIODevice &in, char *buffer, qsizetype size)
{
    qsizetype total = 0;
    while (total < size) {
        const qint64 got = in.read(buffer + total, size - total);
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        total += got;
    }
    return total;
}

/*
  Encrypts `in` into `out` a slice at a time, so that memory stays small and
  the kernel writes one slice while the next is encrypted, as in openssl's
  own loop. Each slice goes through qx_encryptedWithKey(), which starts from
  the zero IV and pads: XORing a slice's first block with the last
  ciphertext block before it continues the CBC chain exactly, and the
  padding block is dropped from every slice but the last. At least one
  whole block is held back until the input ends, so that the last slice
  starts with a whole block too.
*/
bool encryptStream(QIODevice &in, const QString &inName, Output &out, const QByteArray &key, QString *error)
{
    QByteArray buffer(sliceSize + 2 * blockSize, Qt::Uninitialized);
    char chain[blockSize] = {};
    qsizetype held = 0;
    for (;;) {
        const qsizetype wanted = buffer.size() - held;
        const qsizetype got = readFully(in, buffer.data() + held, wanted);
        if (got < 0) {
            *error = QStringLiteral("cannot read %1: %2").arg(inName, in.errorString());
            return false;
        }
        held += got;
        const bool last = got < wanted;
        const qsizetype take = last ? held : (held - blockSize) / blockSize * blockSize;
        if (take >= blockSize) {
            for (qsizetype i = 0; i < blockSize; ++i)
                buffer[i] = char(buffer[i] ^ chain[i]);
        }
        const QByteArray sealed = qx_encryptedWithKey(QByteArray::fromRawData(buffer.constData(), take), key);
        if (sealed.isNull()) {
            *error = QStringLiteral("cannot encrypt %1: out of memory").arg(inName);
            return false;
        }
        if (last)
            return out.write(sealed.constData(), sealed.size(), error);
        const qsizetype keep = sealed.size() - blockSize;
        if (!out.write(sealed.constData(), keep, error))
            return false;
        std::memcpy(chain, sealed.constData() + keep - blockSize, blockSize);
        std::memmove(buffer.data(), buffer.constData() + take, std::size_t(held - take));
        held -= take;
    }
}

QxCommand cryptCommand(bool decrypt)
{
    QxCommand command;
    command.name = decrypt ? QStringLiteral("decrypt") : QStringLiteral("encrypt");
    command.synopsis = command.name + QStringLiteral(" KEYFILE IN OUT");
    const QString verb = decrypt ? QStringLiteral("Decrypts") : QStringLiteral("Encrypts");
    command.help = verb
        + QStringLiteral(
              " IN into OUT with AES-256-CBC, an all-zero IV and PKCS#7 padding (\"-\" is\n"
              "standard input or output). The key is the bytes of KEYFILE, every byte, a final line\n"
              "feed included: the first 32 bytes, filled up with zero bytes when there are fewer.\n"
              "The same files are read and written by\n"
              "  openssl enc -aes-256-cbc -nosalt -K <the 32 key bytes as hex> -iv <32 zeros> [-d]\n"
              "\n"
              "The format has no integrity check. Decrypting with a wrong key or a damaged file\n"
              "fails with exit status 1 when the padding does not check out, which is almost\n"
              "always; otherwise (about one time in 256) it yields garbage. Nothing is written to\n"
              "OUT unless the whole operation succeeds; an existing OUT is replaced only then.");
    command.run = [command, decrypt](const QStringList &arguments) {
        if (arguments.size() != 3)
            return Qx::usageError(command, QStringLiteral("expected KEYFILE, IN and OUT"));
        const QString &keyPath = arguments.at(0);
        const QString &inPath = arguments.at(1);
        const QString inName = displayName(inPath);

        QFile keyFile(keyPath);
        if (!keyFile.open(QIODevice::ReadOnly))
            return Qx::failure(command.name, QStringLiteral("cannot read key file %1: %2").arg(keyPath, keyFile.errorString()));
        const QByteArray key = keyFile.readAll();
        if (keyFile.error() != QFileDevice::NoError)
            return Qx::failure(command.name, QStringLiteral("cannot read key file %1: %2").arg(keyPath, keyFile.errorString()));

        QString error;
        Output out(arguments.at(2));
        if (!decrypt) {
            QFile in;
            const bool opened = isStream(inPath) ? in.open(stdin, QIODevice::ReadOnly)
                                                 : (in.setFileName(inPath), in.open(QIODevice::ReadOnly));
            if (!opened)
                return Qx::failure(command.name, QStringLiteral("cannot read %1: %2").arg(inName, in.errorString()));
            if (!out.open(&error) || !encryptStream(in, inName, out, key, &error) || !out.commit(&error))
                return Qx::failure(command.name, error);
            return int(QxSuccess);
        }

        // Decryption can only fail at the very end (the padding), so it
        // happens in memory before anything is written.
        QByteArray input;
        if (!Qx::readInput(inPath, &input, &error))
            return Qx::failure(command.name, error);
        if (input.isEmpty() || input.size() % blockSize != 0)
            return Qx::failure(command.name,
                               QStringLiteral("%1 is not an encrypted file: its length (%2 bytes) is not a "
                                              "positive multiple of 16")
                                   .arg(inName)
                                   .arg(input.size()));
        const QByteArray output = qx_decryptedWithKey(input, key);
        if (output.isNull())
            return Qx::failure(command.name, QStringLiteral("cannot decrypt %1: wrong key or damaged file").arg(inName));
        if (!out.open(&error) || !out.write(output.constData(), output.size(), &error) || !out.commit(&error))
            return Qx::failure(command.name, error);
        return int(QxSuccess);
    };
    return command;
}

QString hex(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toHex());
}

void tour(QxTour &tour)
{
    const QByteArray key("tour key");
    tour.line(QStringLiteral("AES-256-CBC with a zero IV and PKCS#7 padding; keys are fitted to 32 bytes."));
    tour.example(QStringLiteral("qx_encryptedWithKey(\"Hello\", \"tour key\")"),
                 hex(qx_encryptedWithKey("Hello", key)));
    tour.example(QStringLiteral("qx_encryptedWithKey(\"Hello\", \"tour key\" + 24 zero bytes)"),
                 hex(qx_encryptedWithKey("Hello", key + QByteArray(24, '\0'))));
    tour.example(QStringLiteral("ciphertext sizes for 0, 1, 15, 16 and 17 bytes"), [] {
        QStringList sizes;
        for (const int n : {0, 1, 15, 16, 17})
            sizes.append(QString::number(qx_encryptedWithKey(QByteArray(n, 'x'), "k").size()));
        return sizes.join(QStringLiteral(", "));
    }());
    const QByteArray sealed = qx_encryptedWithKey("Hello", key);
    tour.example(QStringLiteral("qx_decryptedWithKey(that, \"tour key\")"),
                 QString::fromUtf8(qx_decryptedWithKey(sealed, key)));
    const QByteArray wrong = qx_decryptedWithKey(sealed, "wrong key");
    tour.example(QStringLiteral("qx_decryptedWithKey(that, \"wrong key\")"),
                 wrong.isNull() ? QStringLiteral("null (the padding does not check out)")
                                : QStringLiteral("%1 (garbage: the format cannot tell)").arg(hex(wrong)));
    tour.line(QStringLiteral("The same plaintext block under the same key always gives the same ciphertext:"));
    tour.example(QStringLiteral("first blocks of \"16 bytes of text\" + \"A\" and + \"B\""),
                 hex(qx_encryptedWithKey("16 bytes of textA", key).left(16)) + QStringLiteral(" == ")
                     + hex(qx_encryptedWithKey("16 bytes of textB", key).left(16)));

    const QString directory = tour.galleryDirectory();
    const QString plistPath = QDir(directory).filePath(QStringLiteral("settings.plist.aes"));
    const QString textPath = QDir(directory).filePath(QStringLiteral("greeting.txt.aes"));
    const QByteArray plist(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<plist version=\"1.0\"><dict><key>volume</key><integer>7</integer>"
        "<key>voices</key><array><string>Anna</string><string>Jörg</string></array></dict></plist>\n");
    QFile plistFile(plistPath);
    QFile textFile(textPath);
    if (!plistFile.open(QIODevice::WriteOnly) || plistFile.write(qx_encryptedWithKey(plist, key)) < 0
        || !textFile.open(QIODevice::WriteOnly)
        || textFile.write(qx_encryptedWithKey(QStringLiteral("Grüße").toUtf8(), key)) < 0) {
        tour.line(QStringLiteral("(cannot write into %1)").arg(directory));
        return;
    }
    plistFile.close();
    textFile.close();
    tour.line(QStringLiteral("Encrypted files are bare ciphertext (written to %1):").arg(directory));
    const std::optional<QVariantMap> settings = qx_dictionaryWithContentsOfEncryptedFile(plistPath, key);
    tour.example(QStringLiteral("qx_dictionaryWithContentsOfEncryptedFile(\"settings.plist.aes\", key)"),
                 settings ? QStringLiteral("volume = %1, voices = %2")
                                .arg(settings->value(QStringLiteral("volume")).toString(),
                                     settings->value(QStringLiteral("voices")).toStringList().join(QStringLiteral(", ")))
                          : QStringLiteral("nullopt"));
    tour.example(QStringLiteral("qx_arrayWithContentsOfEncryptedFile(\"settings.plist.aes\", key)"),
                 qx_arrayWithContentsOfEncryptedFile(plistPath, key) ? QStringLiteral("an array")
                                                                     : QStringLiteral("nullopt (it holds a dictionary)"));
    tour.example(QStringLiteral("qx_stringWithContentsOfEncryptedFile(\"greeting.txt.aes\", key, Utf8)"),
                 qx_stringWithContentsOfEncryptedFile(textPath, key, QStringConverter::Utf8));
    tour.line(QStringLiteral("From the shell: qx encrypt KEYFILE IN OUT, qx decrypt KEYFILE IN OUT, or"));
    tour.line(QStringLiteral("  openssl enc -d -aes-256-cbc -nosalt -iv %1 -K %2 -in greeting.txt.aes")
                  .arg(QString(32, QLatin1Char('0')))
                  .arg(hex(key + QByteArray(32 - key.size(), '\0'))));
    tour.line(QStringLiteral("No integrity check and a fixed IV: see docs/encryption.md before relying on it."));
}

} // namespace

void registerCryptoCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tourSections)
{
    commands.push_back(cryptCommand(false));
    commands.push_back(cryptCommand(true));
    tourSections.push_back({QStringLiteral("Keyed encryption and encrypted files"), tour});
}
