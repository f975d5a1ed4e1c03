#pragma once

#include "firmware/MemoryImage.h"

#include <QByteArray>
#include <QStringList>

namespace fwpack
{

/// An Intel HEX file that is to become the image of a firmware file.
class HexInput
{
public:
    /// Reads the file at `path`, brings its text into the form that firmware files hold (lines end in one line feed, no
    /// blank lines at the end), and reads that with the reader that the burn uses.
    /// @return false, with the reason in `errorText`, for what that reader rejects, for a record of which it would
    /// leave something out in silence, and for a text that places no data, or data where a burn does not reach.
    bool load(const QString& path);

    /// The text as it goes into the firmware file.
    QByteArray text;
    MemoryImage image;
    /// What looks wrong with an input that was taken.
    QStringList warnings;
    /// One line.
    QString errorText;

private:
    bool readFile(const QString& path);
    void normalise();
    bool readImage();
    bool fail(const QString& reason);
};

} // namespace fwpack
