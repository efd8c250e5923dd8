#include <QXFoundation/QXJSON.h>

#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

const QVariant jsonNull = QVariant::fromValue(nullptr);

// Random JSON text with nulls everywhere, white space, escapes, duplicate
// keys and numbers of every spelling.
void appendRandomValue(QByteArray &out, QRandomGenerator &random, int depth)
{
    static const char *const scalars[] = {
        "null", "true", "false", "0", "-0", "1.0", "1e2", "-12.5e-3", "9007199254740993", "12345678901234567890",
        "-9223372036854775808", "0.1", "\"\"", "\"caf\\u00e9 \\ud83d\\ude00\"", "\"tab\\t\\\"q\\\" \\/ \\\\\"",
        "\"Köln\"", "\"\\u0000\\u001f\\u007f\"", "\"\\u2028\"", "\"\\ud800x\"", "\"\\udc00\"",
        "\"a\\ud83d\"", "\"\\ud83d\\ud83d\\ude00\"", "\"\\b\\f\\n\\r\\t\\u0001\""};
    const int kind = int(random.bounded(depth > 3 ? 1 : 4));
    if (kind == 0) {
        out += scalars[random.bounded(int(std::size(scalars)))];
        return;
    }
    const bool isArray = kind == 1;
    out += isArray ? "[ " : "{\n";
    const int count = int(random.bounded(6));
    for (int i = 0; i < count; ++i) {
        if (i)
            out += random.bounded(2) ? "," : " ,\t";
        if (!isArray) {
            static const char *const keys[] = {"\"a\"", "\"b\"", "\"\\u00e9\"", "\"É\"", "\"z\"", "\"\"", "\"😀\""};
            out += keys[random.bounded(int(std::size(keys)))];
            out += " : ";
        }
        appendRandomValue(out, random, depth + 1);
    }
    out += isArray ? " ]" : "\r\n}";
}

QByteArray libraryResult(const QByteArray &json, bool ignoreArrays, QXError *error)
{
    const QVariant object = qx_JSONObjectWithData(json, QXJSONReadingOption::FragmentsAllowed, error, true, ignoreArrays);
    return object.isValid() ? qx_JSONDataWithObject(object) : QByteArray();
}

struct ToolRun
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

ToolRun runTool(const QStringList &arguments, const QByteArray &input = {})
{
    if (qEnvironmentVariableIsEmpty("QX_TOOL"))
        qFatal("QX_TOOL must name the qx binary (ctest sets it)");
    QProcess process;
    process.start(qEnvironmentVariable("QX_TOOL"), arguments);
    process.write(input);
    process.closeWriteChannel();
    ToolRun run;
    if (!process.waitForFinished(30000))
        return run;
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

} // namespace

class tst_QXJSON : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parsingRemovesNulls();
    void parseErrors();
    void bareValues();
    void textPathMatchesTreePath();
    void toolStripsNulls();
    void toolQueryStrings();
};

void tst_QXJSON::parsingRemovesNulls()
{
    const QByteArray json = R"({"a":null,"b":[1,null,{"c":null,"d":2}]})";
    const QVariant kept = qx_JSONObjectWithData(json, {}, nullptr, false);
    QCOMPARE(kept.toMap().value(u"a"_s), jsonNull);
    QCOMPARE(kept.toMap().value(u"b"_s).toList().size(), 3);

    QCOMPARE(qx_JSONDataWithObject(qx_JSONObjectWithData(json, {}, nullptr, true)), R"({"b":[1,{"d":2}]})");
    QCOMPARE(qx_JSONDataWithObject(qx_JSONObjectWithData(json, {}, nullptr, true, true)), R"({"b":[1,null,{"d":2}]})");
    // The mutability options change nothing.
    QCOMPARE(qx_JSONObjectWithData(json, QXJSONReadingOption::MutableContainers | QXJSONReadingOption::MutableLeaves,
                                   nullptr, true),
             qx_JSONObjectWithData(json, {}, nullptr, true));

    // The types a caller gets.
    const QVariantList values = qx_JSONObjectWithData(R"([1, 1.5, "s", true, null, {}, []])", {}, nullptr, false).toList();
    const QList<int> types{QMetaType::LongLong, QMetaType::Double, QMetaType::QString, QMetaType::Bool,
                           QMetaType::Nullptr, QMetaType::QVariantMap, QMetaType::QVariantList};
    QCOMPARE(values.size(), types.size());
    for (qsizetype i = 0; i < values.size(); ++i)
        QCOMPARE(values.at(i).metaType().id(), types.at(i));

    // A successful parse leaves a caller's earlier error alone and still removes nulls.
    const QXError earlier = QXError::withDescription(u"Earlier"_s, 1, u"from before"_s);
    QXError error = earlier;
    QCOMPARE(qx_JSONObjectWithData("[null]", {}, &error, true), QVariant(QVariantList()));
    QCOMPARE(error, earlier);
}

void tst_QXJSON::parseErrors()
{
    struct Case
    {
        QByteArray json;
        QJsonParseError::ParseError code;
        qint64 offset;
    };
    const Case cases[] = {
        {R"({"a":[1,2})", QJsonParseError::UnterminatedArray, 10},
        {"", QJsonParseError::IllegalValue, 0},
        {"[1] x", QJsonParseError::GarbageAtEnd, 4},
        {"[\"\xff\"]", QJsonParseError::IllegalUTF8String, 2},
        {"5", QJsonParseError::IllegalValue, 1}, // bare values need FragmentsAllowed
    };
    for (const Case &c : cases) {
        QXError error;
        QVERIFY(!qx_JSONObjectWithData(c.json, {}, &error, true).isValid());
        QCOMPARE(error.domain(), QXJSONErrorDomain);
        QCOMPARE(error.code(), c.code);
        QCOMPARE(error.userInfo().value(QXJSONErrorOffsetKey).toLongLong(), c.offset);
        QVERIFY2(error.localizedDescription().endsWith(u" at offset %1"_s.arg(c.offset)),
                 qPrintable(error.localizedDescription()));
        QVERIFY(error.localizedDescription().size() > 12);

        QXError textError;
        QVERIFY(qx_JSONDataByRemovingNulls(c.json, {}, &textError).isNull());
        QCOMPARE(textError, error);
    }
    QVERIFY(!qx_JSONObjectWithData("{", {}, nullptr, true).isValid()); // no error asked for
}

void tst_QXJSON::bareValues()
{
    const auto parsed = [](const QByteArray &json, QXError *error = nullptr) {
        return qx_JSONObjectWithData(json, QXJSONReadingOption::FragmentsAllowed, error, true);
    };
    QCOMPARE(parsed(" 5 "), QVariant(qlonglong(5)));
    QCOMPARE(parsed("\"a \\\"b\\\"\"\n"), QVariant(u"a \"b\""_s));
    QCOMPARE(parsed("null"), jsonNull);
    QCOMPARE(parsed("-2.5e1"), QVariant(-25.0));
    QCOMPARE(parsed(" [null] "), QVariant(QVariantList()));

    struct Case
    {
        QByteArray json;
        QJsonParseError::ParseError code;
        qint64 offset;
    };
    const Case cases[] = {
        {"1 2", QJsonParseError::GarbageAtEnd, 2},
        {"\"a\",\"b\"", QJsonParseError::GarbageAtEnd, 3},
        {"  tru", QJsonParseError::IllegalValue, 2},
        {"\"open", QJsonParseError::UnterminatedString, 5},
        {"]", QJsonParseError::IllegalValue, 0},
    };
    for (const Case &c : cases) {
        QXError error;
        QVERIFY(!parsed(c.json, &error).isValid());
        QCOMPARE(error.code(), c.code);
        const qint64 offset = error.userInfo().value(QXJSONErrorOffsetKey).toLongLong();
        QVERIFY2(offset >= c.offset && offset <= c.json.size(), qPrintable(error.localizedDescription()));
    }
}

void tst_QXJSON::textPathMatchesTreePath()
{
    // The text-to-text path must write exactly what the QVariant path gives.
    QList<QByteArray> documents{
        R"({"a":null,"b":[1,null,{"c":null,"d":2}]})",
        "[null,[null,[null,{\"x\":null}]],{}]",
        "{\"dup\":1,\"dup\":null,\"k\":{\"dup\":null,\"dup\":2}}",
        "\xEF\xBB\xBF {\"bom\": [null]}",
        "null",
        "  \"\\u00e9\\ud83d\\ude00\"  ",
        "[1.0, 1e2, -0, 12345678901234567890, 9007199254740993, 0.1, 1.5e-7, 1e300, -9223372036854775808]",
    };
    // Strings whose escapes need far more room than their length suggests.
    QByteArray escapes = "[\"";
    for (int i = 0; i < 300; ++i)
        escapes += "\\u0001\\\"";
    escapes += "ééé€€€😀\", \"";
    for (int i = 0; i < 100; ++i)
        escapes += "\\ud800";
    escapes += "\"]";
    documents.append(escapes);
    QRandomGenerator random(1234);
    for (int i = 0; i < 300; ++i) {
        QByteArray document;
        appendRandomValue(document, random, 0);
        documents.append(document);
    }
    documents.append("[1, {\"a\": }]");
    documents.append("{\"a\":[null,}");

    for (const QByteArray &document : std::as_const(documents)) {
        for (const bool ignoreArrays : {false, true}) {
            QXError treeError;
            QXError textError;
            const QByteArray expected = libraryResult(document, ignoreArrays, &treeError);
            const QByteArray text =
                qx_JSONDataByRemovingNulls(document, QXJSONReadingOption::FragmentsAllowed, &textError, ignoreArrays);
            QCOMPARE(text, expected);
            QCOMPARE(textError, treeError);
            // No null survives without the flag (no document here has "null" inside a string).
            if (!ignoreArrays && text != "null")
                QVERIFY2(!text.contains("null"), text.constData());
        }
    }
}

void tst_QXJSON::toolStripsNulls()
{
    const QByteArray json = R"({"a":null,"b":[1,null,{"c":null,"d":2}]})";
    ToolRun run = runTool({u"json"_s, u"strip-nulls"_s}, json);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, "{\"b\":[1,{\"d\":2}]}\n");

    QTemporaryDir directory;
    QVERIFY(directory.isValid());
    const QString path = directory.filePath(u"doc.json"_s);
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[null, {\"x\": null}, \"null\"]\n");
    file.close();
    run = runTool({u"json"_s, u"strip-nulls"_s, u"--ignore-arrays"_s, path});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, "[null,{},\"null\"]\n");

    run = runTool({u"json"_s, u"strip-nulls"_s}, "{\"a\": [1,}");
    QCOMPARE(run.exitCode, 1);
    QVERIFY(run.out.isEmpty());
    QVERIFY2(run.err.contains("at offset 10"), run.err.constData());

    QCOMPARE(runTool({u"json"_s, u"strip-nulls"_s, directory.filePath(u"missing.json"_s)}).exitCode, 1);
    QCOMPARE(runTool({u"json"_s, u"strip-nulls"_s, u"--sorted"_s}).exitCode, 2);
    QCOMPARE(runTool({u"json"_s, u"strip-nulls"_s, path, path}).exitCode, 2);
    QCOMPARE(runTool({u"json"_s, u"format"_s}).exitCode, 2);
}

void tst_QXJSON::toolQueryStrings()
{
    ToolRun run = runTool({u"query"_s, u"parse"_s, u"x=1&y=a%20b&z&=5&&w=p=q&x=2"_s});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, "=5\nw=p=q\nx=1\ny=a b\nz=\n");

    run = runTool({u"query"_s, u"build"_s, u"name=a b&c"_s, u"flag"_s, u"n=1"_s, u"n=2"_s});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, "flag=&n=2&name=a%20b%26c\n");

    QCOMPARE(runTool({u"query"_s, u"build"_s}).exitCode, 2);
    QCOMPARE(runTool({u"query"_s, u"parse"_s}).exitCode, 2);
}

QTEST_GUILESS_MAIN(tst_QXJSON)
#include "tst_qxjson.moc"
