#include "serial/SerialComboBox.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QHBoxLayout>
#include <QIcon>
#include <QToolButton>
#include <QVariant>

#include <utility>

namespace
{

QIcon iconFor(const QString& text)
{
    if (text.contains(QLatin1String("usb"), Qt::CaseInsensitive)) {
        return QIcon(QStringLiteral(":icons/dev_usb.png"));
    }
    if (text.contains(QLatin1String("bluetooth"), Qt::CaseInsensitive)) {
        return QIcon(QStringLiteral(":icons/dev_bluetooth.png"));
    }
    return QIcon(QStringLiteral(":icons/dev_card.png"));
}

} // namespace

SerialComboBox::SerialComboBox(QWidget* parent, PortSource portSource)
    : QWidget(parent)
    , listPorts(std::move(portSource))
{
    refreshButton = new QToolButton(this);
    refreshButton->setIcon(QIcon(QStringLiteral(":icons/refresh.png")));
    refreshButton->setAccessibleName(QCoreApplication::translate("SerialComboBox", "Refresh serial ports"));

    comboBox = new QComboBox(this);
    comboBox->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    comboBox->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);

    setSizePolicy(QSizePolicy::MinimumExpanding, QSizePolicy::Preferred);
    // A label gives the focus only to a buddy with a focus policy.
    setFocusPolicy(Qt::StrongFocus);
    setFocusProxy(comboBox);
    setTabOrder(comboBox, refreshButton);

    auto* layout = new QHBoxLayout(this);
    layout->setSpacing(0);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(comboBox, 1);
    layout->addWidget(refreshButton, 0);

    connect(refreshButton, &QAbstractButton::clicked, this, &SerialComboBox::refresh);

    refresh();
}

QString SerialComboBox::currentPort() const
{
    return comboBox->currentData(Qt::UserRole).toString();
}

void SerialComboBox::refresh()
{
    comboBox->clear();
    for (const PortInfo& port : listPorts()) {
        const QString portName = QString::fromStdWString(port.portName);
        const QString text = QStringLiteral("%1 (%2)").arg(QString::fromStdWString(port.description), portName);
        comboBox->insertItem(comboBox->count(), iconFor(text), text, portName);
    }
}
