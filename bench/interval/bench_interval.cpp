// Phrases per second of QXTimeIntervalFormatter for one million random
// intervals, and how much of the time the calendar arithmetic takes.
//
//   bench_interval [COUNT]

#include <QXFoundation/QXCalendar.h>
#include <QXFoundation/QXTimeIntervalFormatter.h>

#include "QxBench.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QLocale>
#include <QRandomGenerator>
#include <QTimeZone>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

namespace {

// Magnitudes spread evenly on a log scale from one second to ten years, half
// of them in the past, to the millisecond.
std::vector<QDateTime> randomTargets(const QDateTime &reference, int count)
{
    QRandomGenerator random(20240515);
    std::vector<QDateTime> targets;
    targets.reserve(size_t(count));
    const double maxExponent = std::log10(10 * 365.25 * 86400);
    for (int i = 0; i < count; ++i) {
        const double seconds = std::pow(10.0, random.generateDouble() * maxExponent);
        const double sign = random.bounded(2) ? 1.0 : -1.0;
        targets.push_back(reference.addMSecs(qint64(std::llround(sign * seconds * 1000))));
    }
    return targets;
}

double cpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

// Runs `work` once; prints the wall-clock rate and, since the machine may be
// shared, the rate by the process's CPU time as well.
void measure(const char *what, int count, const std::function<int()> &work)
{
    const double cpuStart = cpuSeconds();
    int misses = 0;
    const double seconds = QxBench::bestOf(1, [&] { misses = work(); });
    const double cpu = cpuSeconds() - cpuStart;
    std::printf("%-42s %8d in %6.2f s: %7.0f per second (%7.0f per CPU second)%s\n", what, count, seconds,
                count / seconds, count / cpu, misses ? ", some without a phrase" : "");
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int count = argc > 1 ? QByteArray(argv[1]).toInt() : 1000000;
    if (count <= 0) {
        std::fprintf(stderr, "usage: bench_interval [COUNT]\n");
        return 2;
    }
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    const QXCalendar calendar(QStringLiteral("gregorian"), QTimeZone("Europe/Berlin"));
    const QDateTime reference(QDate(2024, 5, 15), QTime(12, 0), QTimeZone("Europe/Berlin"));
    const std::vector<QDateTime> targets = randomTargets(reference, count);

    QXTimeIntervalFormatter formatter;
    formatter.setCalendar(calendar);
    const auto phrases = [&](const char *what) {
        measure(what, count, [&] {
            int misses = 0;
            qsizetype characters = 0;
            for (const QDateTime &target : targets) {
                const QString text = formatter.stringForTimeIntervalFromDate(reference, target);
                misses += text.isEmpty();
                characters += text.size();
            }
            QxBench::keep(characters);
            return misses;
        });
    };

    // Loads ICU's zone and calendar data and the translations before timing.
    for (int i = 0; i < std::min(count, 2000); ++i)
        QxBench::keep(formatter.stringForTimeIntervalFromDate(reference, targets[size_t(i)]));

    phrases("phrases, default settings");
    formatter.setNumberOfSignificantUnits(0);
    formatter.setUsesAbbreviatedCalendarUnits(true);
    formatter.setUsesApproximateQualifier(true);
    phrases("phrases, every unit, abbreviated");

    // The calendar alone: the same differences without any words.
    measure("calendar components only (year to second)", count, [&] {
        int failures = 0;
        for (const QDateTime &target : targets) {
            bool ok = false;
            const QXDateComponents c = calendar.components(252, reference, target, &ok);
            failures += !ok;
            QxBench::keep(c);
        }
        return failures;
    });
    return 0;
}
