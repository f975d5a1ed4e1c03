#include "support/VirtualPortFolder.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <array>
#include <cerrno>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

QString userName()
{
    std::array<char, 4096> buffer = {};
    passwd record = {};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &record, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        return {};
    }
    return QString::fromLocal8Bit(found->pw_name);
}

QString fallbackRuntimeFolder()
{
    return QDir::tempPath() + QLatin1String("/runtime-") + userName();
}

bool isPrivateFolder(const QString& path)
{
    struct stat status = {};
    return lstat(QFile::encodeName(path).constData(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && (status.st_mode & ACCESSPERMS) == S_IRWXU;
}

bool makePrivateFolder(const QString& path)
{
    return mkdir(QFile::encodeName(path).constData(), S_IRWXU) == 0 || errno == EEXIST;
}

} // namespace

QString virtualPortFolder()
{
    for (const QString& folder : {qEnvironmentVariable("XDG_RUNTIME_DIR"), fallbackRuntimeFolder()}) {
        if (isPrivateFolder(folder)) {
            return folder + QLatin1String("/serial");
        }
    }
    errno = ENOENT;
    return {};
}

QString makeVirtualPortFolder()
{
    if (virtualPortFolder().isEmpty() && !makePrivateFolder(fallbackRuntimeFolder())) {
        return {};
    }
    const QString folder = virtualPortFolder();
    return !folder.isEmpty() && makePrivateFolder(folder) ? folder : QString();
}
