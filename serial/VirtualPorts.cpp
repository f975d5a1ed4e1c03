#include "serial/VirtualPorts.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

#include <array>

#include <pwd.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace
{

// The terminals of devpts, as the kernel's list of device numbers has them; they are not in sysfs.
constexpr unsigned firstPtsMajor = 136;
constexpr unsigned lastPtsMajor = 143;

QString userName()
{
    std::array<char, 4096> buffer = {};
    passwd record = {};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &record, buffer.data(), buffer.size(), &found) != 0 || !found) {
        return QString();
    }
    return QString::fromLocal8Bit(found->pw_name);
}

/// A folder of this user that nobody else can look into, as the XDG Base Directory rules want a runtime folder.
bool isPrivateFolder(const QString& path)
{
    struct stat status = {};
    return lstat(QFile::encodeName(path).constData(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && (status.st_mode & ACCESSPERMS) == S_IRWXU;
}

/// Where QStandardPaths::RuntimeLocation is, found by the same steps. QStandardPaths itself would make the folder, and
/// print a warning at every call where XDG_RUNTIME_DIR is not set or not private.
QString runtimeFolder()
{
    for (const QString& folder :
        {qEnvironmentVariable("XDG_RUNTIME_DIR"), QDir::tempPath() + QLatin1String("/runtime-") + userName()}) {
        if (isPrivateFolder(folder)) {
            return folder;
        }
    }
    return QString();
}

bool isTerminal(const QString& path)
{
    struct stat status = {};
    if (stat(QFile::encodeName(path).constData(), &status) != 0 || !S_ISCHR(status.st_mode)) {
        return false;
    }
    const unsigned majorNumber = major(status.st_rdev);
    if (majorNumber >= firstPtsMajor && majorNumber <= lastPtsMajor) {
        return true;
    }
    const QString subsystem =
        QStringLiteral("/sys/dev/char/%1:%2/subsystem").arg(majorNumber).arg(minor(status.st_rdev));
    return QFileInfo(QFile::symLinkTarget(subsystem)).fileName() == QLatin1String("tty");
}

} // namespace

std::vector<std::wstring> virtualPortNames()
{
    std::vector<std::wstring> names;
    const QString runtime = runtimeFolder();
    if (runtime.isEmpty()) {
        return names;
    }
    const QDir folder(runtime + QLatin1String("/serial"));
    const QDir::Filters everything = QDir::Files | QDir::System;
    for (const QFileInfo& entry : folder.entryInfoList(everything, QDir::Name)) {
        if (entry.isSymLink() && isTerminal(entry.filePath())) {
            names.push_back(entry.filePath().toStdWString());
        }
    }
    return names;
}
