#include "tools/devicesim/PortLink.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <cerrno>
#include <string>
#include <system_error>

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

bool isYounger(const timespec& left, const timespec& right)
{
    return left.tv_sec != right.tv_sec ? left.tv_sec > right.tv_sec : left.tv_nsec > right.tv_nsec;
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
    return ::stat(name.constData(), &terminal) != 0 || isYounger(terminal.st_ctim, link.st_ctim);
}

/// The runtime folder of the user; empty if there is none. Qt's warning about an environment without one would be
/// no news to somebody who reads the path in the next line.
QString runtimeFolder()
{
    const QtMessageHandler before = qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    qInstallMessageHandler(before);
    return folder;
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
        const QString reason = errno == EEXIST ? QStringLiteral("it exists and is in use") : reasonOf(errno);
        return QStringLiteral("cannot make the link '%1': %2").arg(absolute, reason);
    }
    linkPath = absolute;
    target = terminal;
    return {};
}

QString PortLink::makeListed(const QString& terminal)
{
    const QString runtime = runtimeFolder();
    if (runtime.isEmpty()) {
        return QStringLiteral("there is no runtime folder for the link (see XDG_RUNTIME_DIR); name one with --link");
    }
    const QString folder = runtime + QStringLiteral("/serial");
    if (::mkdir(QFile::encodeName(folder).constData(), S_IRWXU) != 0 && errno != EEXIST) {
        return QStringLiteral("cannot make the folder '%1': %2").arg(folder, reasonOf(errno));
    }
    QString problem;
    for (int number = 1; number <= mostListedLinks; ++number) {
        const QString path =
            folder + (number == 1 ? QStringLiteral("/devicesim") : QStringLiteral("/devicesim-%1").arg(number));
        problem = make(path, terminal);
        const QFileInfo taken(path);
        if (problem.isEmpty() || !(taken.exists() || taken.isSymLink())) {
            break;
        }
    }
    return problem;
}

} // namespace devicesim
