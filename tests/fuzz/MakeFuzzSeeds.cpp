// Writes the texts from which the fuzz targets start into the folder given: Intel HEX with records of all types, and
// that as a firmware file, whole and with parts of the header.
#include "tests/firmware/Samples.h"

#include <QFile>

int main(int, char* argv[])
{
    const auto write = [argv](const char* name, const QByteArray& content) {
        QFile file(QString("%1/%2").arg(argv[1], name));
        return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
    };
    QByteArray text = hexRecord(4, 0, "12") + hexRecord(0, 0xFFF0, "0123456789ABCDEF0123") + hexRecord(2, 0, "34");
    text += hexRecord(0, 1, "56").toLower() + hexRecord(3, 0, "7") + hexRecord(5, 0, "8") + hexRecord(1, 0, {});
    const QByteArray padded = text + '\x80' + QByteArray(15 - text.size() % 16, '\0');
    const QByteArray image = encrypted("AES-128-ECB", "v9!Tq#Lz4$Ym7^Bx", {}, padded).toBase64();
    const QByteArray header = R"({"device": 768, "version": "1.2", "target": "board", "baudrate": 57600, "link": 1})";
    const bool written = write("text", text) && write("padded", padded) &&
                         write("file", R"({"header": )" + header + R"(, "image": ")" + image + "\"}") &&
                         write("headless", R"({"header": 0, "image": "\n)" + image + "\"}") &&
                         write("array", "[" + header + "]");
    return written ? 0 : 1;
}
