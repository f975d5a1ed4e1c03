#pragma once

#include <QString>

namespace devicesim
{

/// A symbolic link by which hosts find a terminal; removed with the object.
class PortLink
{
public:
    PortLink() = default;
    PortLink(const PortLink&) = delete;
    PortLink& operator=(const PortLink&) = delete;
    ~PortLink();

    /// Makes the link `path` to `terminal`. What a device that is gone left at `path` is replaced, and nothing else.
    /// @return an empty text, or why there is no link.
    QString make(const QString& path, const QString& terminal);

    /// Makes a link in the folder of virtual ports, which the list of ports shows. The link is named "devicesim", or
    /// "devicesim-2" and so on beside other devices.
    /// @return an empty text, or why there is no link.
    QString makeListed(const QString& terminal);

    /// Where the link is; empty without one.
    QString path() const { return linkPath; }

private:
    QString linkPath;
    QString target;
};

} // namespace devicesim
