// Commands and tour of the rating prompt: the App Store lookup, and the
// eligibility rule deciding on sample states.

#include "QxCommand.h"

#include <QXFoundation/QXAppStoreLookup.h>
#include <QXFoundation/QXRate.h>

#include <QDateTime>
#include <QLocale>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>

namespace {

QxCommand rateCommand()
{
    QxCommand command;
    command.name = QStringLiteral("rate");
    command.synopsis = QStringLiteral(
        "rate lookup (--id N | --bundle-id ID) [--country CC] [--host URL] [--app-version V]");
    command.help = QStringLiteral(
        "lookup: asks the App Store's lookup service about an application, the way the rating\n"
        "        prompt does, and prints the record it found: bundle ID, track ID (the App Store ID),\n"
        "        version and primary genre.\n"
        "  --id N          look the application up by its App Store ID\n"
        "  --bundle-id ID  look it up by bundle identifier; the record must carry the same ID\n"
        "                  (compared ignoring case)\n"
        "  --country CC    store front (default: from the current locale, e.g. us, DE, eu)\n"
        "  --host URL      scheme, host and port of the service (default https://itunes.apple.com)\n"
        "  --app-version V the installed version: an older V than the store's is an error\n"
        "                  (digit runs compare as numbers, 1.10 > 1.9); without it nothing is compared\n"
        "Errors print their domain, code and text, with exit status 1; so does a lookup that\n"
        "finds no record.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.isEmpty())
            return Qx::usageError(command, QStringLiteral("missing action"));
        if (arguments.at(0) != QLatin1String("lookup"))
            return Qx::usageError(command, QStringLiteral("unknown action '%1'").arg(arguments.at(0)));

        QXAppStoreLookup lookup;
        lookup.setCountry(QXAppStoreLookup::countryForLocale(QLocale()));
        lookup.setChecksBundleID(false);
        lookup.setOnlyIfLatestVersion(false);
        bool byID = false;
        bool byBundleID = false;
        for (qsizetype i = 1; i < arguments.size(); ++i) {
            const QString &option = arguments.at(i);
            if (i + 1 >= arguments.size())
                return Qx::usageError(command, QStringLiteral("'%1' needs a value").arg(option));
            const QString &value = arguments.at(++i);
            if (option == QLatin1String("--id")) {
                bool ok = false;
                const quint64 id = value.startsWith(QLatin1Char('+')) ? 0 : value.toULongLong(&ok, 10);
                if (!ok || id == 0)
                    return Qx::usageError(command, QStringLiteral("'%1' is not an App Store ID").arg(value));
                lookup.setAppStoreID(id);
                byID = true;
            } else if (option == QLatin1String("--bundle-id")) {
                lookup.setBundleID(value);
                lookup.setChecksBundleID(true);
                byBundleID = true;
            } else if (option == QLatin1String("--country")) {
                lookup.setCountry(value);
            } else if (option == QLatin1String("--host")) {
                const QUrl url(value, QUrl::StrictMode);
                if (!url.isValid() || url.scheme().isEmpty() || url.host().isEmpty())
                    return Qx::usageError(command, QStringLiteral("'%1' is not a URL such as https://host:port").arg(value));
                QXAppStoreLookup::setStoreURL(url);
            } else if (option == QLatin1String("--app-version")) {
                lookup.setApplicationVersion(value);
                lookup.setOnlyIfLatestVersion(true);
            } else {
                return Qx::usageError(command, QStringLiteral("unknown option '%1'").arg(option));
            }
        }
        if (byID == byBundleID)
            return Qx::usageError(command, QStringLiteral("give either --id or --bundle-id"));

        const QXError error = lookup.run();
        if (error)
            return Qx::failure(command.name, QStringLiteral("%1 %2: %3").arg(error.domain()).arg(error.code()).arg(error.localizedDescription()));
        if (!lookup.foundRecord())
            return Qx::failure(command.name, QStringLiteral("no record for %1 in store front %2")
                                                 .arg(byID ? QString::number(lookup.appStoreID()) : lookup.bundleID(), lookup.country()));
        const QXAppStoreRecord &record = lookup.record();
        Qx::printLine(QStringLiteral("bundle ID: ") + record.bundleID);
        Qx::printLine(QStringLiteral("track ID: ") + QString::number(record.trackID));
        Qx::printLine(QStringLiteral("version: ") + record.version);
        Qx::printLine(QStringLiteral("genre: ") + QString::number(record.primaryGenreID));
        return int(QxSuccess);
    };
    return command;
}

QString yesNo(bool value)
{
    return value ? QStringLiteral("prompt") : QStringLiteral("no prompt");
}

void tour(QxTour &tour)
{
    // The rule reads the application's settings: keep the tour's samples in
    // a scratch directory instead of qx's own configuration.
    QTemporaryDir scratch;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, scratch.path());

    tour.line(QStringLiteral("The store front follows the locale's region:"));
    for (const char *name : {"de_DE", "en_150", "es_419", "en_GI", "C"})
        tour.example(QStringLiteral("QXAppStoreLookup::countryForLocale(%1)").arg(QLatin1String(name)),
                     QXAppStoreLookup::countryForLocale(QLocale(QLatin1String(name))));

    {
        // Never shown and never launched: the tour only asks the rule.
        QXRate rate;
        rate.setApplicationVersion(QStringLiteral("2.0"));
        rate.setApplicationName(QStringLiteral("Viewer"));
        rate.setAppStoreID(123456789);
        tour.example(QStringLiteral("messageTitle()"), rate.messageTitle());
        tour.example(QStringLiteral("ratingsURL()"), rate.ratingsURL().toString());

        const QDateTime now = QDateTime::currentDateTimeUtc();
        const auto sample = [&](const QString &state, double days, quint64 uses, quint64 events,
                                const std::function<void()> &extra = {}) {
            rate.setFirstUsed(now.addSecs(qint64(-days * 86400.0)));
            rate.setUsesCount(uses);
            rate.setEventCount(events);
            rate.setLastReminded(QDateTime());
            rate.setDeclinedThisVersion(false);
            rate.setRatedThisVersion(false);
            if (extra)
                extra();
            tour.example(state, yesNo(rate.shouldPromptForRating()));
        };
        tour.line(QStringLiteral("The eligibility rule (defaults: 10 days, 10 uses or 10 events, remind after 1 day):"));
        sample(QStringLiteral("first day, 1 use"), 0.01, 1, 0);
        sample(QStringLiteral("11 days, 3 uses, 9 events"), 11, 3, 9);
        sample(QStringLiteral("11 days, 3 uses, 10 events"), 11, 3, 10);
        sample(QStringLiteral("11 days, 12 uses, reminded 23 hours ago"), 11, 12, 0,
               [&] { rate.setLastReminded(now.addSecs(-23 * 3600)); });
        sample(QStringLiteral("11 days, 12 uses, reminded 25 hours ago"), 11, 12, 0,
               [&] { rate.setLastReminded(now.addSecs(-25 * 3600)); });
        sample(QStringLiteral("11 days, 12 uses, declined version 1.0"), 11, 12, 0, [&] {
            rate.setApplicationVersion(QStringLiteral("1.0"));
            rate.setDeclinedThisVersion(true);
            rate.setApplicationVersion(QStringLiteral("2.0"));
        });
        sample(QStringLiteral("11 days, 12 uses, rated this version"), 11, 12, 0, [&] { rate.setRatedThisVersion(true); });
        sample(QStringLiteral("first day, preview mode"), 0.01, 1, 0, [&] { rate.setPreviewMode(true); });
        rate.setPreviewMode(false);
    }

    tour.line(QStringLiteral("The key scanner reads a value straight from JSON text:"));
    const QString json = QStringLiteral("{\"name\": \"Caf\\u00e9, Bar\", \"id\": 42 , \"ok\": true}");
    tour.example(QStringLiteral("valueForKey(\"name\", %1)").arg(json), QXRate::valueForKey(QStringLiteral("name"), json).toString());
    tour.example(QStringLiteral("valueForKey(\"id\", ...)"), QXRate::valueForKey(QStringLiteral("id"), json).toString());
    tour.example(QStringLiteral("valueForKey(\"ok\", ...)  (no comma follows)"),
                 QXRate::valueForKey(QStringLiteral("ok"), json).isValid() ? QStringLiteral("found") : QStringLiteral("nil"));

    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation));
}

} // namespace

void registerRateCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour)
{
    commands.push_back(rateCommand());
    tour.push_back({QStringLiteral("Rating prompt"), ::tour});
}
