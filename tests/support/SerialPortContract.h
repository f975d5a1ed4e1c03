#pragma once

#include "serial/SerialPort.h"

#include <QByteArray>

#include <functional>

/// A line between two ends. The port under test is opened on one of them, the test holds the other.
class TestLine
{
public:
    virtual ~TestLine() = default;
    /// Name under which the port under test opens its end.
    virtual std::string portName() const = 0;
    /// Sends from the far end; may come from a second thread while the port is in a call.
    virtual void send(const QByteArray& data) = 0;
    /// What comes to the far end, until it is `size` bytes or `limitMs` have passed.
    virtual QByteArray receive(qsizetype size, int limitMs) = 0;
    /// Takes the far end away for good; may come from a second thread.
    virtual void hangUp() {}
    /// Sets the rate of the far end, where it has one.
    virtual void setBaudRate(std::uint32_t) {}
};

/// An implementation of `SerialPort` and the lines to try it on.
struct ContractSubject {
    std::function<std::unique_ptr<SerialPort>(const PortSettings&)> makePort;
    /// Makes a new line each time.
    std::function<std::unique_ptr<TestLine>()> makeLine;
    /// Name of something that exists and is no port.
    std::string notAPort;
    /// `write` lasts as long as the bytes take on the line.
    bool writeTakesLineTime = true;
    /// On Wine an open port can be opened again, and a read may take a moment although the bytes are there.
    bool onWine = false;
};

/// The `main` of an executable that finds out whether the subject does what every `SerialPort` has to do.
///
/// With TAVIMORA_TEST_PORTS=NAME,NAME the tests run on these two connected ports instead of the lines of the subject,
/// leaving out what needs a far end that can be pulled out or that takes no bytes.
int runSerialPortContract(int argc, char** argv, ContractSubject subject);
