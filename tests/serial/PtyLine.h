#pragma once

#include "serial/FileDescriptor.h"
#include "tests/serial/SerialPortContract.h"

#include <QDeadlineTimer>

#include <array>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>

/// A pseudo-terminal: the port under test opens the terminal, the test holds the master and a terminal of its own.
class PtyLine : public TestLine
{
public:
    PtyLine()
        : master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK))
    {
        if (::grantpt(master.get()) == 0 && ::unlockpt(master.get()) == 0)
            terminal = FileDescriptor(::open(portName().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
        if (!terminal.isValid())
            qFatal("No pseudo-terminal to be had");
    }
    std::string portName() const override
    {
        std::array<char, 64> name{};
        ::ptsname_r(master.get(), name.data(), name.size());
        return name.data();
    }
    void send(const QByteArray& data) override
    {
        if (::write(master.get(), data.data(), static_cast<std::size_t>(data.size())) != data.size())
            qFatal("The pseudo-terminal is full");
    }
    QByteArray receive(qsizetype size, int limitMs) override
    {
        QByteArray received;
        pollfd entry{master.get(), POLLIN, 0};
        for (const QDeadlineTimer deadline(limitMs); received.size() < size;) {
            std::array<char, 4096> part{};
            if (::poll(&entry, 1, static_cast<int>(deadline.remainingTime())) <= 0)
                break;
            const auto wanted = std::min(part.size(), static_cast<std::size_t>(size - received.size()));
            received.append(part.data(), std::max<qsizetype>(0, ::read(master.get(), part.data(), wanted)));
        }
        return received;
    }
    void hangUp() override { master = FileDescriptor(); }

    FileDescriptor master;
    FileDescriptor terminal;
};
