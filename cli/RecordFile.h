#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

/// A text file to which several threads and programs append lines at the same time. A line is written whole or not at
/// all, and is on the disk when `append` returns. A lock file beside it (FILE.lock) keeps the writers apart.
///
/// Each object is used by one thread.
class RecordFile
{
public:
    explicit RecordFile(const QString& path)
        : file(path)
    {
    }

    /// Opens the regular file, or makes it.
    /// @return why lines cannot be appended; empty on success.
    QString open();

    /// Reserves room on the disk for lines that are to come, where the file system can.
    /// @return why there is none; empty on success, and where that cannot be known.
    QString reserve(qint64 bytes) const;

    /// Appends `line` and a line feed. A last line in the file that has no line feed, as a crash may leave it, gets one
    /// first.
    /// @return why that failed, with the file as it was before; empty on success.
    QString append(const QByteArray& line);

private:
    QFile file;
};
