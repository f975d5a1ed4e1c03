#include "cli/RecordFile.h"

#include <QFileInfo>
#include <QLockFile>

#include <cerrno>
#include <chrono>
#include <system_error>

#include <fcntl.h>

#ifdef Q_OS_WIN
#include <io.h>
#else
#include <unistd.h>
#endif

namespace
{

/// Another writer holds the lock for the time of one write to the disk.
constexpr std::chrono::milliseconds lockLimit{10000};

QString systemReason(int error)
{
    return QString::fromStdString(std::generic_category().message(error));
}

QString lock(QLockFile& lockFile)
{
    // A lock is stale when its owner is gone, never because of its age.
    lockFile.setStaleLockTime(0);
    return lockFile.tryLock(static_cast<int>(lockLimit.count()))
               ? QString()
               : QStringLiteral("the lock file %1 cannot be had").arg(lockFile.fileName());
}

/// Waits until the content of the file is on the disk.
bool synchronise([[maybe_unused]] const QFile& file)
{
#ifdef Q_OS_WIN
    // A QFile has no descriptor there. Flushing goes by file, whatever the handle (Windows documentation,
    // FlushFileBuffers).
    const int descriptor = ::_wopen(reinterpret_cast<const wchar_t*>(file.fileName().utf16()), _O_RDWR | _O_BINARY);
    const bool done = descriptor >= 0 && ::_commit(descriptor) == 0;
    if (descriptor >= 0) {
        ::_close(descriptor);
    }
    return done;
#else
    return ::fsync(file.handle()) == 0;
#endif
}

} // namespace

QString RecordFile::open()
{
    const QFileInfo info(file.fileName());
    if (info.exists() && !info.isFile()) {
        return QStringLiteral("it is no regular file");
    }
    if (!file.open(QIODevice::ReadWrite | QIODevice::Append | QIODevice::Unbuffered)) {
        return file.errorString();
    }
    QLockFile lockFile(file.fileName() + QStringLiteral(".lock"));
    return lock(lockFile);
}

QString RecordFile::reserve([[maybe_unused]] qint64 bytes) const
{
#ifdef Q_OS_LINUX
    if (::fallocate(file.handle(), FALLOC_FL_KEEP_SIZE, file.size(), bytes) != 0 &&
        (errno == ENOSPC || errno == EDQUOT || errno == EFBIG)) {
        return systemReason(errno);
    }
#endif
    return {};
}

QString RecordFile::append(const QByteArray& line)
{
    QLockFile lockFile(file.fileName() + QStringLiteral(".lock"));
    if (QString problem = lock(lockFile); !problem.isEmpty()) {
        return problem;
    }
    const qint64 before = file.size();
    QByteArray text = line + '\n';
    if (before > 0 && file.seek(before - 1) && file.peek(1) != "\n") {
        text.prepend('\n');
    }
    // Windows writes where the last reading left off, even to a file that was opened for appending.
    const qint64 written = file.seek(before) ? file.write(text) : -1;
    if (written != text.size()) {
        // A write that ends early sets no error.
        QString problem = written < 0 ? file.errorString() : QStringLiteral("there is no room for the whole line");
        file.resize(before);
        return problem;
    }
    return synchronise(file) ? QString() : systemReason(errno);
}
