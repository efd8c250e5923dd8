// Commands and tour of the collections area: JSON without nulls, URL query
// strings, list operations, the sorted list and index paths.

#include "QxCommand.h"

#include <QXFoundation/QXArray.h>
#include <QXFoundation/QXDictionary.h>
#include <QXFoundation/QXIndexPath.h>
#include <QXFoundation/QXJSON.h>
#include <QXFoundation/QXSortedList.h>

#include <QRandomGenerator>
#include <QStringList>

namespace {

QxCommand jsonCommand()
{
    QxCommand command;
    command.name = QStringLiteral("json");
    command.synopsis = QStringLiteral("json strip-nulls [--ignore-arrays] [FILE]");
    command.help = QStringLiteral(
        "strip-nulls: reads one JSON document from FILE (standard input when FILE is omitted or '-'),\n"
        "             removes every object entry whose value is null and every null array element,\n"
        "             at every depth, and writes the result as compact JSON (object keys sorted).\n"
        "             --ignore-arrays keeps null array elements; null values of objects still go,\n"
        "             also inside arrays. A bare value (\"text\", 5, null) is a document too.\n"
        "Invalid JSON prints the parser's message with its byte offset and exits with status 1.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.isEmpty())
            return Qx::usageError(command, QStringLiteral("missing action"));
        if (arguments.at(0) != QLatin1String("strip-nulls"))
            return Qx::usageError(command, QStringLiteral("unknown action '%1'").arg(arguments.at(0)));
        bool ignoreArrays = false;
        QStringList files;
        for (const QString &argument : arguments.mid(1)) {
            if (argument == QLatin1String("--ignore-arrays"))
                ignoreArrays = true;
            else if (argument.startsWith(QLatin1String("--")))
                return Qx::usageError(command, QStringLiteral("unknown option '%1'").arg(argument));
            else
                files.append(argument);
        }
        if (files.size() > 1)
            return Qx::usageError(command, QStringLiteral("expected at most one FILE"));
        QByteArray data;
        QString readError;
        if (!Qx::readInput(files.value(0), &data, &readError))
            return Qx::failure(command.name, readError);
        QXError error;
        QByteArray json = qx_JSONDataByRemovingNulls(data, QXJSONReadingOption::FragmentsAllowed, &error, ignoreArrays);
        data.clear();
        if (json.isNull())
            return Qx::failure(command.name, error.localizedDescription());
        json += '\n';
        Qx::writeStdout(json);
        return int(QxSuccess);
    };
    return command;
}

QxCommand queryCommand()
{
    QxCommand command;
    command.name = QStringLiteral("query");
    command.synopsis = QStringLiteral("query parse STRING\nquery build NAME=VALUE...");
    command.help = QStringLiteral(
        "parse: splits a URL query string at '&' and prints one decoded name=value line per entry,\n"
        "       sorted by name. A piece without '=' has the empty value; the first '=' divides name\n"
        "       from value; of a repeated name the first occurrence counts; '+' stays '+'.\n"
        "build: prints the query string of the pairs, names and values percent-encoded, sorted by\n"
        "       name ('qx query build \"name=a b&c\"' prints name=a%20b%26c). An argument without '='\n"
        "       is a name with the empty value; a repeated NAME keeps its last value.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.isEmpty())
            return Qx::usageError(command, QStringLiteral("missing action"));
        const QString &action = arguments.at(0);
        if (action == QLatin1String("parse")) {
            if (arguments.size() != 2)
                return Qx::usageError(command, QStringLiteral("expected one STRING"));
            const QVariantMap parameters = qx_dictionaryWithURLParameterString(arguments.at(1));
            for (auto it = parameters.cbegin(); it != parameters.cend(); ++it)
                Qx::printLine(it.key() + u'=' + it.value().toString());
            return int(QxSuccess);
        }
        if (action == QLatin1String("build")) {
            if (arguments.size() < 2)
                return Qx::usageError(command, QStringLiteral("expected at least one NAME=VALUE"));
            QVariantMap parameters;
            for (const QString &pair : arguments.mid(1)) {
                const qsizetype equals = pair.indexOf(u'=');
                parameters.insert(equals < 0 ? pair : pair.first(equals),
                                  equals < 0 ? QString() : pair.sliced(equals + 1));
            }
            Qx::printLine(qx_URLParameterString(parameters));
            return int(QxSuccess);
        }
        return Qx::usageError(command, QStringLiteral("unknown action '%1'").arg(action));
    };
    return command;
}

QString listText(const QStringList &list)
{
    return u'[' + list.join(QStringLiteral(", ")) + u']';
}

template<typename T>
QString listText(const QList<T> &list)
{
    QStringList texts;
    for (const T &element : list)
        texts.append(QStringLiteral("%1").arg(element));
    return listText(texts);
}

QString indexPathText(const QXIndexPath &path)
{
    return u'(' + listText(path.indexes()).mid(1).chopped(1) + u')';
}

void tour(QxTour &tour)
{
    const QStringList abac{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("a"), QStringLiteral("c")};
    tour.line(QStringLiteral("Lists: each element once, where it last occurs; set operations end the same way:"));
    tour.example(QStringLiteral("qx_uniqueMembers([a, b, a, c])"), listText(qx_uniqueMembers(abac)));
    const QStringList ab{QStringLiteral("a"), QStringLiteral("b")};
    const QStringList bc{QStringLiteral("b"), QStringLiteral("c")};
    tour.example(QStringLiteral("qx_unionWithArray([a, b], [b, c])"), listText(qx_unionWithArray(ab, bc)));
    tour.example(QStringLiteral("qx_intersectionWithArray([a, b, c, b], [b, c, d])"),
                 listText(qx_intersectionWithArray(QStringList{"a", "b", "c", "b"}, QStringList{"b", "c", "d"})));
    tour.example(QStringLiteral("qx_differenceWithArray([a, b, c, a], [b])"),
                 listText(qx_differenceWithArray(QStringList{"a", "b", "c", "a"}, QStringList{"b"})));
    QStringList abcd{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"), QStringLiteral("d")};
    qx_moveObjectFromIndex(abcd, 1, 10);
    tour.example(QStringLiteral("qx_moveObjectFromIndex([a, b, c, d], 1, 10)"), listText(abcd));
    tour.example(QStringLiteral("qx_arrayByInsertingObjectsFromArray([a, b, c], [x, y], 1)"),
                 listText(qx_arrayByInsertingObjectsFromArray(QStringList{"a", "b", "c"}, QStringList{"x", "y"}, 1)));
    QList<int> deck{1, 2, 3, 4, 5, 6, 7, 8};
    QRandomGenerator seeded(2024);
    qx_shuffle(deck, seeded);
    tour.example(QStringLiteral("qx_shuffle([1 … 8]) with a generator seeded 2024"), listText(deck));

    tour.line(QStringLiteral("JSON without nulls (qx json strip-nulls does the same on files):"));
    const QByteArray json = R"({"a":null,"b":[1,null,{"c":null,"d":2}]})";
    for (const bool ignoreArrays : {false, true}) {
        const QVariant object = qx_JSONObjectWithData(json, {}, nullptr, true, ignoreArrays);
        tour.example(QStringLiteral("%1 removing nulls%2")
                         .arg(QString::fromUtf8(json), ignoreArrays ? QStringLiteral(", ignoring arrays") : QString()),
                     QString::fromUtf8(qx_JSONDataWithObject(object)));
    }
    QXError error;
    qx_JSONObjectWithData(R"({"a":[1,2})", {}, &error, true);
    tour.example(QStringLiteral("{\"a\":[1,2}"), error.domain() + QStringLiteral(" ") + QString::number(error.code())
                                                     + QStringLiteral(": ") + error.localizedDescription());

    tour.line(QStringLiteral("URL query strings (qx query parse / build):"));
    const QVariantMap parameters = qx_dictionaryWithURLParameterString(QStringLiteral("x=1&y=a%20b&z&=5&&w=p=q"));
    QStringList entries;
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it)
        entries.append(QStringLiteral("\"%1\" → \"%2\"").arg(it.key(), it.value().toString()));
    tour.example(QStringLiteral("qx_dictionaryWithURLParameterString(\"x=1&y=a%20b&z&=5&&w=p=q\")"),
                 entries.join(QStringLiteral(", ")));
    tour.example(QStringLiteral("qx_URLParameterString({name: \"a b&c\", n: 42})"),
                 qx_URLParameterString({{QStringLiteral("name"), QStringLiteral("a b&c")}, {QStringLiteral("n"), 42}}));

    tour.line(QStringLiteral("A sorted list keeps the reverse of its descriptor's order, newest first among equals:"));
    QXSortedList<int> sorted(QXSortDescriptors::byValue<int>(true));
    for (const int value : {5, 3, 4})
        sorted.insertObject(value);
    tour.example(QStringLiteral("insert 5, 3, 4 (ascending descriptor)"), listText(sorted.allObjects()));
    tour.example(QStringLiteral("indexForInsertingObject(4)"), QString::number(sorted.indexForInsertingObject(4)));

    const QXIndexPath path{1, 2, 3};
    tour.line(QStringLiteral("Index paths:"));
    tour.example(QStringLiteral("qx_indexPathByInsertingIndex((1, 2, 3), 9, 1)"),
                 indexPathText(qx_indexPathByInsertingIndex(path, 9, 1)));
    tour.example(QStringLiteral("qx_lastIndex((1, 2, 3))"), QString::number(qx_lastIndex(path)));
}

} // namespace

void registerCollectionsCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tourSections)
{
    commands.push_back(jsonCommand());
    commands.push_back(queryCommand());
    tourSections.push_back({QStringLiteral("Collections, JSON and query strings"), tour});
}
