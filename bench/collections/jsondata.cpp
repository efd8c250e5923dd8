// Helpers of the strip-nulls benchmark: writes the test document and
// compares two JSON files by value.
//
//   bench_collections_jsondata generate MEBIBYTES FILE
//   bench_collections_jsondata same FILE1 FILE2

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QRandomGenerator>

#include <cstdio>

namespace {

// Any JSON value, nulls included, nested at most a few levels deep.
void appendValue(QByteArray &out, QRandomGenerator &random, int depth)
{
    switch (random.bounded(depth > 2 ? 6 : 8)) {
    case 0: out += "null"; break;
    case 1: out += QByteArray::number(random.bounded(1000000)); break;
    case 2: out += QByteArray::number(random.bounded(100000) / 100.0); break;
    case 3: out += random.bounded(2) ? "true" : "false"; break;
    case 4:
        out += "\"text ";
        out += QByteArray::number(random.bounded(100000));
        out += " caf\\u00e9 \\\"quoted\\\"\"";
        break;
    case 5: out += "\"plain\""; break;
    case 6: {
        out += '[';
        const int count = int(random.bounded(6));
        for (int i = 0; i < count; ++i) {
            if (i)
                out += ", ";
            appendValue(out, random, depth + 1);
        }
        out += ']';
        break;
    }
    default: {
        out += '{';
        const int count = int(random.bounded(6));
        for (int i = 0; i < count; ++i) {
            if (i)
                out += ", ";
            out += "\"key";
            out += QByteArray::number(i);
            out += "\": ";
            appendValue(out, random, depth + 1);
        }
        out += '}';
        break;
    }
    }
}

// An array of records as a web service might return them: fixed fields,
// some always null, and free-form nested values.
int generate(double mebibytes, const QString &path)
{
    const qint64 target = qint64(mebibytes * 1024 * 1024);
    QRandomGenerator random(42);
    QByteArray out;
    out.reserve(target + 4096);
    out += "[\n";
    for (qint64 id = 1; out.size() < target; ++id) {
        if (id > 1)
            out += ",\n";
        out += " {\"id\": ";
        out += QByteArray::number(id);
        out += ", \"name\": \"record ";
        out += QByteArray::number(id);
        out += "\", \"deleted\": null, \"tags\": [\"a\", null, \"b\"], \"meta\": ";
        appendValue(out, random, 0);
        out += ", \"extra\": ";
        appendValue(out, random, 1);
        out += '}';
    }
    out += "\n]\n";
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(out) != out.size()) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
        return 1;
    }
    return 0;
}

bool load(const QString &path, QJsonDocument *document)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
        return false;
    }
    QJsonParseError error;
    *document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError) {
        std::fprintf(stderr, "%s: %s at offset %d\n", qPrintable(path), qPrintable(error.errorString()), error.offset);
        return false;
    }
    return true;
}

int same(const QString &first, const QString &second)
{
    QJsonDocument a;
    QJsonDocument b;
    if (!load(first, &a) || !load(second, &b))
        return 2;
    if (a != b) {
        std::printf("DIFFERENT values\n");
        return 1;
    }
    std::printf("same value\n");
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const QByteArray mode = argc > 1 ? QByteArray(argv[1]) : QByteArray();
    if (mode == "generate" && argc == 4)
        return generate(QByteArray(argv[2]).toDouble(), QString::fromLocal8Bit(argv[3]));
    if (mode == "same" && argc == 4)
        return same(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]));
    std::fprintf(stderr, "usage: %s generate MEBIBYTES FILE | same FILE1 FILE2\n", argv[0]);
    return 2;
}
