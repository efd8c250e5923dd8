#include "QxCommand.h"

#include <QDir>
#include <QFile>
#include <QTextStream>

#include <cstdio>

QxTour::QxTour(QTextStream &out, const QString &galleryDirectory)
    : m_out(out)
    , m_galleryDirectory(galleryDirectory)
{
}

void QxTour::heading(const QString &title)
{
    m_out << '\n' << title << '\n' << QString(title.size(), QLatin1Char('-')) << '\n';
    m_out.flush();
}

void QxTour::line(const QString &text)
{
    m_out << text << '\n';
    m_out.flush();
}

void QxTour::example(const QString &expression, const QString &result)
{
    m_out << "  " << expression << '\n' << "    → " << result << '\n';
    m_out.flush();
}

QString QxTour::galleryDirectory()
{
    QDir().mkpath(m_galleryDirectory);
    return m_galleryDirectory;
}

int Qx::usageError(const QxCommand &command, const QString &message)
{
    QTextStream err(stderr);
    err << "qx " << command.name << ": " << message << '\n' << "Usage:\n";
    for (const QString &form : command.synopsis.split(QLatin1Char('\n')))
        err << "  qx " << form << '\n';
    err << "Try 'qx " << command.name << " --help' for more information.\n";
    return QxUsage;
}

int Qx::failure(const QString &command, const QString &message)
{
    QTextStream(stderr) << "qx " << command << ": " << message << '\n';
    return QxFailure;
}

bool Qx::wantsHelp(const QStringList &arguments)
{
    return arguments.contains(QLatin1String("--help")) || arguments.contains(QLatin1String("-h"));
}

int Qx::printHelp(const QxCommand &command)
{
    QTextStream out(stdout);
    out << "Usage:\n";
    for (const QString &form : command.synopsis.split(QLatin1Char('\n')))
        out << "  qx " << form << '\n';
    out << '\n' << command.help << '\n';
    return QxSuccess;
}

bool Qx::readInput(const QString &path, QByteArray *data, QString *error)
{
    QFile file;
    const bool fromStdin = path.isEmpty() || path == QLatin1String("-");
    const bool opened = fromStdin ? file.open(stdin, QIODevice::ReadOnly) : (file.setFileName(path), file.open(QIODevice::ReadOnly));
    if (!opened) {
        *error = QStringLiteral("cannot read %1: %2").arg(fromStdin ? QStringLiteral("standard input") : path, file.errorString());
        return false;
    }
    *data = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        *error = QStringLiteral("cannot read %1: %2").arg(fromStdin ? QStringLiteral("standard input") : path, file.errorString());
        return false;
    }
    return true;
}

void Qx::writeStdout(const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

void Qx::printLine(const QString &text)
{
    writeStdout(text.toUtf8() + '\n');
}

bool Qx::InputBytes::open(const QString &path, QString *error)
{
    if (!path.isEmpty() && path != QLatin1String("-")) {
        m_file.setFileName(path);
        if (m_file.open(QIODevice::ReadOnly) && m_file.size() > 0) {
            if (uchar *mapped = m_file.map(0, m_file.size())) {
                m_bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(mapped), qsizetype(m_file.size()));
                return true;
            }
        }
        m_file.close();
    }
    return readInput(path, &m_bytes, error);
}
