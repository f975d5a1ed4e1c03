#pragma once

#include <QFile>
#include <QProcess>
#include <QStringList>

/// @return the content of a file; empty when it cannot be read.
inline QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline bool write(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

/// What a program did. The status is -1 if it did not end by itself within `programLimitMs`.
struct Answer {
    int status = -1;
    QByteArray out;
    QByteArray error;
};

constexpr int programLimitMs = 60000;

inline Answer answerOf(QProcess& program)
{
    const bool ended = program.waitForFinished(programLimitMs) && program.exitStatus() == QProcess::NormalExit;
    return {ended ? program.exitCode() : -1, program.readAllStandardOutput(), program.readAllStandardError()};
}

/// Runs a program to its end, with `input` on its standard input.
inline Answer run(const QString& path, const QStringList& arguments, const QByteArray& input = {})
{
    QProcess program;
    program.start(path, arguments);
    program.write(input);
    program.closeWriteChannel();
    return answerOf(program);
}
