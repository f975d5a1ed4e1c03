#pragma once

#include "cli/DeviceRun.h"
#include "cli/RecordFile.h"

#include <QString>

/// Keeps a record of burns: one JSON object a line for each, with the fields started, finished, label, port,
/// adapterSerial, file, sha256, target, version, program, and those of a result.
class BurnRecord
{
public:
    /// @param recordPath of the file that records are appended to
    /// @param firmwarePath of the file that is burned
    BurnRecord(const QString& recordPath, const QString& firmwarePath);

    /// Opens the record.
    /// @return why it cannot be written; empty on success.
    QString open();

    /// To be called before burns: makes sure that there is room for their records, and takes note of the content of the
    /// firmware file, which may be exchanged between two burns.
    /// @return why the records could not be written; empty on success.
    QString prepare(std::size_t burns);

    /// Appends the record of a burn. Where that fails, the record goes to standard error, so that it is not lost.
    /// @param command stands in front of what goes to standard error
    void add(const QString& command, const QString& label, const RunReport& report);

    /// Whether every record has been written.
    bool isComplete() const { return complete; }

private:
    QString problemWith(const QString& problem) const;

    const QString recordFileName;
    const QString firmwareFileName;
    QString firmwareHash;
    RecordFile file;
    bool complete = true;
};

/// What is wrong with a text as the label of a burn; empty when nothing is. A label has at most 200 characters, none of
/// them a control character.
QString labelProblem(const QString& label);
