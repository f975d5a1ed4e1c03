#include "tools/devicesim/PortLink.h"

#include "support/VirtualPortFolder.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace devicesim
{

namespace
{

constexpr int mostListedLinks = 99;

QString reasonOf(int error)
{
    return QString::fromStdString(std::generic_category().message(error));
}

/// @return whether `path` is a link to a pseudo-terminal that is gone, or whose name a younger one has got since.
bool isStaleLink(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat link = {};
    if (::lstat(name.constData(), &link) != 0 || !S_ISLNK(link.st_mode) ||
        !QFile::symLinkTarget(path).startsWith(QLatin1String("/dev/pts/"))) {
        return false;
    }
    struct stat terminal = {};
    const auto changedAt = [](const struct stat& status) {
        return std::pair(status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
    };
    return ::stat(name.constData(), &terminal) != 0 || changedAt(terminal) > changedAt(link);
}

} // namespace

PortLink::~PortLink()
{
    if (!linkPath.isEmpty() && QFile::symLinkTarget(linkPath) == target) {
        QFile::remove(linkPath);
    }
}

QString PortLink::make(const QString& path, const QString& terminal)
{
    const QString absolute = QFileInfo(path).absoluteFilePath();
    if (isStaleLink(absolute)) {
        QFile::remove(absolute);
    }
    if (::symlink(QFile::encodeName(terminal).constData(), QFile::encodeName(absolute).constData()) != 0) {
        const QString reason = errno == EEXIST ? "it exists and is in use" : reasonOf(errno);
        return QString("cannot make the link '%1': %2").arg(absolute, reason);
    }
    linkPath = absolute;
    target = terminal;
    return {};
}

QString PortLink::makeListed(const QString& terminal)
{
    const QString folder = makeVirtualPortFolder();
    if (folder.isEmpty()) {
        return QString("there is no folder for the link (see XDG_RUNTIME_DIR): %1; name a link with --link")
            .arg(reasonOf(errno));
    }
    QString problem;
    for (int number = 1; number <= mostListedLinks; ++number) {
        const QString suffix = number == 1 ? QString() : QString("-%1").arg(number);
        const QString path = folder + "/devicesim" + suffix;
        problem = make(path, terminal);
        const QFileInfo taken(path);
        if (problem.isEmpty() || !(taken.exists() || taken.isSymLink())) {
            break;
        }
    }
    return problem;
}

} // namespace devicesim
