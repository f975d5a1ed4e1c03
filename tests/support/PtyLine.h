#pragma once

#include "tests/support/SerialPortContract.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

#include <cstdlib>

#include <fcntl.h>

/// A pseudo-terminal: the port under test opens the terminal, the test holds the master.
class PtyLine : public TestLine
{
public:
    PtyLine()
    {
        const int descriptor = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
        char path[64] = {};
        if (::grantpt(descriptor) || ::unlockpt(descriptor) || ::ptsname_r(descriptor, path, sizeof path)) {
            qFatal("No pseudo-terminal to be had");
        }
        name = path;
        master.open(descriptor, QIODevice::ReadWrite | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle);
    }
    std::string portName() const override { return name; }
    void send(const QByteArray& data) override { master.write(data); }
    QByteArray receive(qsizetype size, int limitMs) override
    {
        QByteArray data;
        for (const QDeadlineTimer limit(limitMs); data.size() < size && !limit.hasExpired(); QThread::msleep(1)) {
            data += master.read(size - data.size());
        }
        return data;
    }
    void hangUp() override { master.close(); }

private:
    std::string name;
    QFile master;
};
