#include "serial/SerialComboBox.h"

#include <QComboBox>
#include <QTest>
#include <QToolButton>

class SerialComboBoxTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listsAndLeavesTheFirstCurrent()
    {
        std::vector<PortInfo> ports;
        SerialComboBox selector(nullptr, [&ports] { return ports; });
        auto* list = selector.findChild<QComboBox*>();
        auto* button = selector.findChild<QToolButton*>();
        QVERIFY(list && button && list->count() == 0);
        QCOMPARE(selector.currentPort(), QString());

        const auto row = [](const wchar_t* name, const wchar_t* text) { return PortInfo{name, text, L"", L"", 0, 0}; };
        ports = {row(L"/dev/ttyACM0", L"Board 100% %1 %2 uSb"), row(L"COM3", L"Bluetooth over USB"),
            row(L"COM4", L"bLuetooth link"), row(L"COM5", L"UART"), row(L"/dev/ttyUSB7", L"")};
        const QStringList texts = {"Board 100% %1 %2 uSb (/dev/ttyACM0)", "Bluetooth over USB (COM3)",
            "bLuetooth link (COM4)", "UART (COM5)", " (/dev/ttyUSB7)"};
        const QStringList icons = {"dev_usb", "dev_usb", "dev_bluetooth", "dev_card", "dev_usb"};
        for (int click = 0; click < 2; ++click) {
            QTest::mouseClick(button, Qt::LeftButton);
            QCOMPARE(list->count(), int(ports.size()));
            for (int i = 0; i < list->count(); ++i) {
                QCOMPARE(list->itemText(i), texts[i]);
                const QIcon icon(":icons/" + icons[i] + ".png");
                QCOMPARE(list->itemIcon(i).pixmap(16).toImage(), icon.pixmap(16).toImage());
            }
            QCOMPARE(selector.currentPort(), QString("/dev/ttyACM0"));
            list->setCurrentIndex(2);
            QCOMPARE(selector.currentPort(), QString("COM4"));
        }
    }
};

QTEST_MAIN(SerialComboBoxTest)
#include "SerialComboBoxTest.moc"
