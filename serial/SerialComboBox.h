#pragma once

#include "serial/PortEnumerator.h"

#include <QString>
#include <QWidget>

#include <functional>
#include <vector>

class QComboBox;
class QToolButton;

/// Where the user picks the serial port: a list of the machine's ports with an icon for each, and beside it a button
/// that lists them again. The list is filled at construction and at each press of the button, and at no other time.
class SerialComboBox : public QWidget
{
public:
    /// Gives the rows of the list, called at each filling.
    using PortSource = std::function<std::vector<PortInfo>()>;

    explicit SerialComboBox(QWidget* parent, PortSource portSource = availablePorts);
    ~SerialComboBox() override = default;

    Q_DISABLE_COPY_MOVE(SerialComboBox)

    /// @return the name by which the chosen port is opened; empty when there is no port to choose.
    QString currentPort() const;

private:
    void refresh();

    PortSource listPorts;
    QComboBox* comboBox = nullptr;
    QToolButton* refreshButton = nullptr;
};
