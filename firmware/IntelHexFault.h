#pragma once

#include <QStringList>

#include <cstdint>
#include <vector>

/// Something in an Intel HEX text that is wrong or cannot be meant.
struct IntelHexFault {
    enum Kind : std::uint8_t {
        // The line is rejected.
        NoRecord,
        TooShort,
        InvalidChecksum,
        // Data is left out, or lands where it cannot be meant.
        SurplusBytes,
        MalformedAddress,
        CrossesTop,
        // All data is read, but the text may be damaged.
        UnsupportedType,
        BehindEndOfFile,
        NoEndOfFile,
    };

    Kind kind = NoEndOfFile;
    /// Counted from 1; 0 for the text as a whole.
    int line = 0;
    /// The record type, or the number of surplus bytes.
    int value = 0;

    /// For instance "line:0012 too short".
    QString text() const;

    /// Whether the reader stops at the line.
    bool rejectsLine() const { return kind <= InvalidChecksum; }

    /// Whether the reader passes over part of the text, or puts it where it cannot be meant.
    bool losesData() const { return kind >= SurplusBytes && kind <= CrossesTop; }
};

using IntelHexFaults = std::vector<IntelHexFault>;

/// The texts of the first twenty, and the number of the others: every line of a bad file may have a fault.
QStringList describeFaults(const IntelHexFaults& faults);

/// Writes the lines that are rejected and the record types that are not supported to Qt's log, at critical level.
void logFaults(const IntelHexFaults& faults);
