// Commands and tour section of the data area: Base64 and digests of bytes.

#include "QxCommand.h"

#include <QXFoundation/QXData.h>

#include <cstdlib>
#include <memory>

namespace {

struct FreeDeleter
{
    void operator()(void *p) const { std::free(p); }
};

QxCommand base64Command()
{
    QxCommand command;
    command.name = QStringLiteral("base64");
    command.synopsis = QStringLiteral("base64 encode [--lines] [FILE]\nbase64 decode [FILE]");
    command.help = QStringLiteral(
        "Reads FILE, or standard input when FILE is omitted or '-'.\n"
        "encode: writes the Base64 text (standard alphabet, '=' padding) and one newline;\n"
        "        --lines cuts it into lines of 64 characters separated by CR LF.\n"
        "decode: writes the decoded bytes as they are. Characters outside the alphabet\n"
        "        (white space, line breaks, '=') are skipped, so any text decodes.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.isEmpty())
            return Qx::usageError(command, QStringLiteral("missing action"));
        const QString action = arguments.at(0);
        QStringList rest = arguments.mid(1);
        const bool lines = rest.removeAll(QStringLiteral("--lines")) > 0;
        if (action != QLatin1String("encode") && action != QLatin1String("decode"))
            return Qx::usageError(command, QStringLiteral("unknown action '%1'").arg(action));
        if (lines && action == QLatin1String("decode"))
            return Qx::usageError(command, QStringLiteral("--lines applies to encode only"));
        for (const QString &argument : rest)
            if (argument.startsWith(QLatin1Char('-')) && argument != QLatin1String("-"))
                return Qx::usageError(command, QStringLiteral("unknown option '%1'").arg(argument));
        if (rest.size() > 1)
            return Qx::usageError(command, QStringLiteral("expected at most one FILE"));

        Qx::InputBytes source;
        QString error;
        if (!source.open(rest.value(0), &error))
            return Qx::failure(command.name, error);
        const QByteArray input = source.bytes();
        size_t length = 0;
        if (action == QLatin1String("encode")) {
            std::unique_ptr<char, FreeDeleter> text(
                QXNewBase64Encode(input.constData(), size_t(input.size()), lines, &length));
            if (!text)
                return Qx::failure(command.name, QStringLiteral("out of memory"));
            text.get()[length] = '\n'; // the terminating zero's place: the text is written with its length
            Qx::writeStdout(QByteArray::fromRawData(text.get(), qsizetype(length + 1)));
        } else {
            std::unique_ptr<void, FreeDeleter> bytes(QXNewBase64Decode(input.constData(), size_t(input.size()), &length));
            if (!bytes)
                return Qx::failure(command.name, QStringLiteral("out of memory"));
            Qx::writeStdout(QByteArray::fromRawData(static_cast<const char *>(bytes.get()), qsizetype(length)));
        }
        return int(QxSuccess);
    };
    return command;
}

QxCommand digestCommand()
{
    QxCommand command;
    command.name = QStringLiteral("digest");
    command.synopsis = QStringLiteral("digest md5|sha1|sha256 [FILE]");
    command.help = QStringLiteral(
        "Writes the digest of FILE's bytes (standard input when FILE is omitted or '-') as\n"
        "lowercase hexadecimal, then a newline.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.isEmpty() || arguments.size() > 2)
            return Qx::usageError(command, QStringLiteral("expected an algorithm and at most one FILE"));
        const QString algorithm = arguments.at(0);
        QString (*digest)(const QByteArray &) = nullptr;
        if (algorithm == QLatin1String("md5"))
            digest = qx_md5Hash;
        else if (algorithm == QLatin1String("sha1"))
            digest = qx_sha1Hash;
        else if (algorithm == QLatin1String("sha256"))
            digest = qx_sha256Hash;
        else
            return Qx::usageError(command, QStringLiteral("unknown algorithm '%1'").arg(algorithm));
        Qx::InputBytes source;
        QString error;
        if (!source.open(arguments.value(1), &error))
            return Qx::failure(command.name, error);
        Qx::printLine(digest(source.bytes()));
        return int(QxSuccess);
    };
    return command;
}

void tour(QxTour &tour)
{
    const QByteArray abc("ABC");
    tour.line(QStringLiteral("Base64 with the standard alphabet; the decoder skips whatever is not Base64:"));
    tour.example(QStringLiteral("qx_base64EncodedString(\"ABC\")"), qx_base64EncodedString(abc));
    tour.example(QStringLiteral("qx_base64EncodedString(\"A\")"), qx_base64EncodedString(QByteArray("A")));
    tour.example(QStringLiteral("qx_dataFromBase64String(\"Q U J\\nD\")"),
                 QString::fromLatin1(qx_dataFromBase64String(QStringLiteral("Q U J\nD"))));
    size_t length = 0;
    const QByteArray block(49, 'x');
    std::unique_ptr<char, FreeDeleter> lines(QXNewBase64Encode(block.constData(), size_t(block.size()), true, &length));
    tour.example(QStringLiteral("QXNewBase64Encode(49 bytes, separateLines) length"),
                 QStringLiteral("%1 (64 characters, CR LF, 4 characters)").arg(length));
    tour.line(QStringLiteral("Digests of bytes, as lowercase hex:"));
    tour.example(QStringLiteral("qx_md5Hash(QByteArray(\"ABC\"))"), qx_md5Hash(abc));
    tour.example(QStringLiteral("qx_sha256Hash(QByteArray(\"ABC\"))"), qx_sha256Hash(abc));
}

} // namespace

void registerDataCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tourSections)
{
    commands.push_back(base64Command());
    commands.push_back(digestCommand());
    tourSections.push_back({QStringLiteral("Base64 and digests"), tour});
}
