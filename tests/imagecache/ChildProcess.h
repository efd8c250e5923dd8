#pragma once

// Child processes for the image cache suites, started with fork() and
// execve() rather than QProcess: QProcess starts children with vfork, whose
// child runs in the parent's memory and changes ThreadSanitizer's state of
// the starting thread behind its back (afterwards it reports races that are
// none). ThreadSanitizer understands fork().

#include <QByteArray>
#include <QFile>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QStringList>

#include <vector>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

class ChildProcess
{
public:
    ChildProcess() = default;
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;
    ~ChildProcess()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            waitForExit();
        }
        if (m_output >= 0)
            ::close(m_output);
    }

    // Starts `program` with `arguments` and the environment changed by
    // `overrides` ("NAME=value"); standard output and error both go to a pipe.
    bool start(const QString &program, const QStringList &arguments, const QStringList &overrides = {})
    {
        const QString executable = QStandardPaths::findExecutable(program);
        if (executable.isEmpty())
            return false;
        std::vector<QByteArray> argumentBytes{QFile::encodeName(executable)};
        for (const QString &argument : arguments)
            argumentBytes.push_back(argument.toLocal8Bit());
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const QString &override : overrides)
            environment.insert(override.section(QLatin1Char('='), 0, 0), override.section(QLatin1Char('='), 1));
        std::vector<QByteArray> environmentBytes;
        for (const QString &entry : environment.toStringList())
            environmentBytes.push_back(entry.toLocal8Bit());
        std::vector<char *> argv, envp;
        for (QByteArray &bytes : argumentBytes)
            argv.push_back(bytes.data());
        argv.push_back(nullptr);
        for (QByteArray &bytes : environmentBytes)
            envp.push_back(bytes.data());
        envp.push_back(nullptr);

        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0)
            return false;
        m_pid = ::fork();
        if (m_pid == 0) {
            ::dup2(fds[1], STDOUT_FILENO);
            ::dup2(fds[1], STDERR_FILENO);
            ::execve(argv[0], argv.data(), envp.data());
            ::_exit(127);
        }
        ::close(fds[1]);
        m_output = fds[0];
        return m_pid > 0;
    }

    // Reads what the child wrote until `marker` appears, the pipe closes or
    // `msecs` pass without data; returns everything read so far.
    QByteArray readUntil(const QByteArray &marker, int msecs)
    {
        while (m_output >= 0 && (marker.isEmpty() || !m_read.contains(marker))) {
            pollfd poller{m_output, POLLIN, 0};
            if (::poll(&poller, 1, msecs) <= 0)
                break;
            char buffer[4096];
            const ssize_t got = ::read(m_output, buffer, sizeof buffer);
            if (got <= 0)
                break;
            m_read.append(buffer, got);
        }
        return m_read;
    }

    void kill(int signal) { ::kill(m_pid, signal); }

    // The exit status, or -1 when the child did not exit normally.
    int waitForExit()
    {
        int status = 0;
        while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t m_pid = -1;
    int m_output = -1;
    QByteArray m_read;
};

struct ChildRun
{
    int exitCode = -1;
    QString output;
};

// Runs a program to its end and collects its output.
inline ChildRun runChild(const QString &program, const QStringList &arguments, const QStringList &overrides = {})
{
    ChildRun run;
    ChildProcess child;
    if (!child.start(program, arguments, overrides))
        return run;
    run.output = QString::fromLocal8Bit(child.readUntil(QByteArray(), 30000));
    run.exitCode = child.waitForExit();
    return run;
}
