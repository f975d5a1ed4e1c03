#pragma once

#include "serial/PortEnumerator.h"

#include <QString>
#include <QWidget>

#include <functional>
#include <vector>

class QComboBox;
class QToolButton;

/// A drop-down list of the machine's serial ports with an icon for each, and a button that fills it again. Ports that
/// come or go between two presses of the button are not noticed.
class SerialComboBox : public QWidget
{
public:
    /// Returns the rows of the list; called each time it is filled.
    using PortSource = std::function<std::vector<PortInfo>()>;

    explicit SerialComboBox(QWidget* parent, PortSource portSource = availablePorts);
    ~SerialComboBox() override = default;

    Q_DISABLE_COPY_MOVE(SerialComboBox)

    /// @return the system name of the selected port; empty without one.
    QString currentPort() const;

private:
    void refresh();

    PortSource listPorts;
    QComboBox* comboBox = nullptr;
    QToolButton* refreshButton = nullptr;
};
