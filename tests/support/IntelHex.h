#pragma once

#include <QByteArray>

#include <numeric>

/// An Intel HEX record with its checksum and line end. `count` may differ from the length of `data`.
inline QByteArray hexRecord(int type, unsigned offset, const QByteArray& data, qsizetype count = -1)
{
    const qsizetype length = count < 0 ? data.size() : count;
    QByteArray record = QByteArray(1, char(length)) + char(offset >> 8) + char(offset) + char(type) + data;
    record += char(-std::accumulate(record.cbegin(), record.cend(), 0));
    return ':' + record.toHex().toUpper() + '\n';
}

/// Intel HEX of an image: pairs of an address, which may lie above 0xFFFF, and the bytes there.
template <typename Image>
QByteArray hexText(const Image& image)
{
    QByteArray text;
    unsigned base = 0;
    for (const auto& [address, data] : image) {
        for (qsizetype at = 0; at < data.size(); at += 16) {
            const auto from = address + static_cast<unsigned>(at);
            if (from >> 16 != base) {
                base = from >> 16;
                text += hexRecord(4, 0, QByteArray(1, char(base >> 8)) + char(base));
            }
            text += hexRecord(0, from & 0xFFFF, data.mid(at, 16));
        }
    }
    return text + hexRecord(1, 0, {});
}
