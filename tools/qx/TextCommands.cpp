// Commands and tour of the text utilities: URL encoding, relative paths,
// digests of strings, file sizes and ISO 8601 dates.

#include "QxCommand.h"

#include <QXFoundation/QXDateFormatter.h>
#include <QXFoundation/QXNumberFormatter.h>
#include <QXFoundation/QXString.h>

#include <QDateTime>
#include <QLocale>

#include <cmath>

namespace {

QString quoted(const QString &text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

QxCommand urlCommand()
{
    QxCommand command;
    command.name = QStringLiteral("url");
    command.synopsis = QStringLiteral("url encode TEXT\nurl decode TEXT");
    command.help = QStringLiteral(
        "encode: percent-encodes TEXT's UTF-8 bytes; only letters, digits and _ . ! ~ * ( ) / @ $ ,\n"
        "        stay as they are (\"a-b c\" gives \"a%2Db%20c\").\n"
        "decode: replaces every %XX escape; '+' stays '+'. A malformed escape or bytes that are\n"
        "        not UTF-8 make it fail with exit status 1.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.size() != 2)
            return Qx::usageError(command, arguments.isEmpty() ? QStringLiteral("missing action")
                                                              : QStringLiteral("expected an action and one TEXT"));
        const QString &action = arguments.at(0);
        if (action == QLatin1String("encode")) {
            Qx::printLine(qx_URLEncodeString(arguments.at(1)));
            return int(QxSuccess);
        }
        if (action == QLatin1String("decode")) {
            const QString decoded = qx_URLDecodeString(arguments.at(1));
            if (decoded.isNull())
                return Qx::failure(command.name, QStringLiteral("cannot decode %1: malformed escape or not UTF-8")
                                                     .arg(quoted(arguments.at(1))));
            Qx::printLine(decoded);
            return int(QxSuccess);
        }
        return Qx::usageError(command, QStringLiteral("unknown action '%1'").arg(action));
    };
    return command;
}

QxCommand relpathCommand()
{
    QxCommand command;
    command.name = QStringLiteral("relpath");
    command.synopsis = QStringLiteral("relpath TARGET BASE");
    command.help = QStringLiteral(
        "Prints TARGET relative to BASE, comparing path components exactly:\n"
        "'qx relpath /a/d /a/b/c' prints ../../d. Nothing is looked up on disk.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.size() != 2)
            return Qx::usageError(command, QStringLiteral("expected TARGET and BASE"));
        Qx::printLine(qx_stringWithPathRelativeTo(arguments.at(0), arguments.at(1)));
        return int(QxSuccess);
    };
    return command;
}

QxCommand filesizeCommand()
{
    QxCommand command;
    command.name = QStringLiteral("filesize");
    command.synopsis = QStringLiteral("filesize BYTES");
    command.help = QStringLiteral(
        "Prints BYTES (a whole number from 0 to 18446744073709551615) as a file size in the\n"
        "current locale: '1536' gives 1.5 KB, or 1,5 KB in a German locale.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.size() != 1)
            return Qx::usageError(command, QStringLiteral("expected one BYTES value"));
        bool ok = false;
        const QString &text = arguments.at(0);
        const quint64 bytes = text.startsWith(QLatin1Char('+')) ? 0 : text.toULongLong(&ok, 10);
        if (!ok)
            return Qx::usageError(command, QStringLiteral("'%1' is not a byte count").arg(text));
        Qx::printLine(qx_formatedFileSize(qx_fileSizeFormatter(), bytes));
        return int(QxSuccess);
    };
    return command;
}

QxCommand iso8601Command()
{
    QxCommand command;
    command.name = QStringLiteral("iso8601");
    command.synopsis = QStringLiteral("iso8601 [EPOCH_SECONDS]");
    command.help = QStringLiteral(
        "Prints the moment EPOCH_SECONDS (seconds since 1970-01-01T00:00:00Z, fractions allowed;\n"
        "now when omitted) as an ISO 8601 timestamp with milliseconds in the system's time zone\n"
        "(honours TZ): 2024-03-05T14:07:09.042+0100.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.size() > 1)
            return Qx::usageError(command, QStringLiteral("expected at most one EPOCH_SECONDS value"));
        QDateTime date = QDateTime::currentDateTimeUtc();
        if (!arguments.isEmpty()) {
            bool ok = false;
            const double seconds = arguments.at(0).toDouble(&ok);
            // About ±285,000 years: where milliseconds still fit the date type.
            if (!ok || !std::isfinite(seconds) || std::fabs(seconds) > 9.0e12)
                return Qx::usageError(command, QStringLiteral("'%1' is not a number of seconds").arg(arguments.at(0)));
            date = QDateTime::fromMSecsSinceEpoch(qint64(std::llround(seconds * 1000.0)), QTimeZone::utc());
        }
        const QString text = qx_ISO8601DateFormatter().stringFromDate(date);
        if (text.isEmpty())
            return Qx::failure(command.name, QStringLiteral("cannot format that date"));
        Qx::printLine(text);
        return int(QxSuccess);
    };
    return command;
}

void tour(QxTour &tour)
{
    tour.line(QStringLiteral("Digests of text are lowercase hex of its UTF-8 bytes:"));
    tour.example(QStringLiteral("qx_md5Hash(\"avatar-42\")"), qx_md5Hash("avatar-42"));
    tour.example(QStringLiteral("qx_sha1Hash(\"\")"), qx_sha1Hash(""));
    tour.line(QStringLiteral("URL encoding escapes everything but letters, digits and _ . ! ~ * ( ) / @ $ ,"));
    tour.example(QStringLiteral("qx_URLEncodeString(\"a-b c\")"), qx_URLEncodeString(QStringLiteral("a-b c")));
    tour.example(QStringLiteral("qx_URLDecodeString(\"a%20b+c\")"), qx_URLDecodeString(QStringLiteral("a%20b+c")));
    tour.example(QStringLiteral("qx_URLStringByAppendingParameter(\"/search?x=1\", \"q\", \"a b\")"),
                 qx_URLStringByAppendingParameter(QStringLiteral("/search?x=1"), QStringLiteral("q"),
                                                  QStringLiteral("a b")));
    tour.line(QStringLiteral("Paths relative to one another, compared component by component:"));
    tour.example(QStringLiteral("qx_stringWithPathRelativeTo(\"/a/d\", \"/a/b/c\")"),
                 qx_stringWithPathRelativeTo(QStringLiteral("/a/d"), QStringLiteral("/a/b/c")));
    tour.example(QStringLiteral("qx_trimedString(\"\\t x \\n\")"),
                 quoted(qx_trimedString(QStringLiteral("\t x \n")).replace(QLatin1Char('\n'), QStringLiteral("\\n"))));
    tour.example(QStringLiteral("qx_stringByRemovingPrefix(\"abab\", \"ab\")"),
                 qx_stringByRemovingPrefix(QStringLiteral("abab"), QStringLiteral("ab")));
    tour.example(QStringLiteral("qx_cachesDirectoryPath()"), qx_cachesDirectoryPath());

    tour.line(QStringLiteral("File sizes in the current locale (%1), and in German:").arg(QLocale().name()));
    const QXNumberFormatter formatter = qx_fileSizeFormatter();
    for (const quint64 size : {quint64(1024), quint64(1536), quint64(1572864), quint64(2199023255552)})
        tour.example(QStringLiteral("qx_formatedFileSize(%1)").arg(size), qx_formatedFileSize(formatter, size));
    const QLocale previous;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    tour.example(QStringLiteral("qx_formatedFileSize(1536) in de_DE"),
                 qx_formatedFileSize(qx_fileSizeFormatter(), 1536));
    QLocale::setDefault(previous);

    QXDateFormatter iso = qx_ISO8601DateFormatter();
    iso.setTimeZone(QTimeZone("Etc/GMT-1"));
    const QDateTime sample = QDateTime::fromString(QStringLiteral("2024-03-05T13:07:09.042Z"), Qt::ISODateWithMs);
    tour.example(QStringLiteral("ISO 8601, one hour east of UTC"), iso.stringFromDate(sample));
}

} // namespace

void registerTextCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tourSections)
{
    commands.push_back(urlCommand());
    commands.push_back(relpathCommand());
    commands.push_back(filesizeCommand());
    commands.push_back(iso8601Command());
    tourSections.push_back({QStringLiteral("Strings, paths and formatters"), tour});
}
