// Commands and tour section of keyed encryption: files encrypted with
// AES-256-CBC, zero IV, PKCS#7 padding, readable by `openssl enc`.

#include "QxCommand.h"

#include <QXFoundation/QXEncryption.h>
#include <QXFoundation/QXString.h>

#include <QDir>
#include <QFile>
#include <QSaveFile>

#include <cstdio>

namespace {

bool isStream(const QString &path)
{
    return path == QLatin1String("-");
}

// Writes all of `bytes` to `path` (standard output for "-"). A file is
// written beside its final name and renamed at the end, so a failure never
// leaves a partial file, and an existing file stays as it was.
bool writeOutput(const QString &path, const QByteArray &bytes, QString *error)
{
    if (isStream(path)) {
        const size_t written = std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
        if (written != size_t(bytes.size()) || std::fflush(stdout) != 0) {
            *error = QStringLiteral("cannot write standard output");
            return false;
        }
        return true;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
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
        const QString &outPath = arguments.at(2);

        QFile keyFile(keyPath);
        if (!keyFile.open(QIODevice::ReadOnly))
            return Qx::failure(command.name, QStringLiteral("cannot read key file %1: %2").arg(keyPath, keyFile.errorString()));
        const QByteArray key = keyFile.readAll();
        if (keyFile.error() != QFileDevice::NoError)
            return Qx::failure(command.name, QStringLiteral("cannot read key file %1: %2").arg(keyPath, keyFile.errorString()));

        QByteArray input;
        QString error;
        if (!Qx::readInput(inPath, &input, &error))
            return Qx::failure(command.name, error);
        const QString inName = isStream(inPath) ? QStringLiteral("standard input") : inPath;

        QByteArray output;
        if (decrypt) {
            if (input.isEmpty() || input.size() % 16 != 0)
                return Qx::failure(command.name,
                                   QStringLiteral("%1 is not an encrypted file: its length (%2 bytes) is not a "
                                                  "positive multiple of 16")
                                       .arg(inName)
                                       .arg(input.size()));
            output = qx_decryptedWithKey(input, key);
            if (output.isNull())
                return Qx::failure(command.name,
                                   QStringLiteral("cannot decrypt %1: wrong key or damaged file").arg(inName));
        } else {
            output = qx_encryptedWithKey(input, key);
            if (output.isNull())
                return Qx::failure(command.name, QStringLiteral("cannot encrypt %1: out of memory").arg(inName));
        }
        if (!writeOutput(outPath, output, &error))
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
