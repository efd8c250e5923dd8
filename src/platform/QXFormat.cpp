#include "platform/QXFormat_p.h"

QString QXFormat::format(const QString &format, const QStringList &arguments)
{
    QString result;
    result.reserve(format.size() + 16 * arguments.size());
    qsizetype nextArgument = 0;
    const qsizetype n = format.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = format.at(i);
        if (c != QLatin1Char('%') || i + 1 >= n) {
            result.append(c);
            continue;
        }
        const QChar next = format.at(i + 1);
        if (next == QLatin1Char('%')) {
            result.append(QLatin1Char('%'));
            ++i;
            continue;
        }
        if (next == QLatin1Char('@')) {
            result.append(arguments.value(nextArgument++));
            ++i;
            continue;
        }
        // Positional form: %N$@
        qsizetype j = i + 1;
        qsizetype position = 0;
        while (j < n && format.at(j).isDigit() && format.at(j).unicode() < 128 && position < 1000) {
            position = position * 10 + (format.at(j).unicode() - '0');
            ++j;
        }
        if (j > i + 1 && j + 1 < n && format.at(j) == QLatin1Char('$') && format.at(j + 1) == QLatin1Char('@')
            && position > 0) {
            result.append(arguments.value(position - 1));
            i = j + 1;
            continue;
        }
        result.append(c);
    }
    return result;
}
