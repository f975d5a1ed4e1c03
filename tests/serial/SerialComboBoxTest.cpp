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
        ports = {row(L"/dev/ttyACM0", L"Board 100% %1 %2 uSb"), row(L"COM4", L"UART"), row(L"COM5", L"")};
        const QStringList texts = {"Board 100% %1 %2 uSb (/dev/ttyACM0)", "UART (COM4)", " (COM5)"};
        for (int click = 0; click < 2; ++click) {
            QTest::mouseClick(button, Qt::LeftButton);
            QCOMPARE(list->count(), int(ports.size()));
            for (int i = 0; i < list->count(); ++i) {
                QCOMPARE(list->itemText(i), texts[i]);
            }
            QCOMPARE(selector.currentPort(), QString("/dev/ttyACM0"));
            list->setCurrentIndex(1);
            QCOMPARE(selector.currentPort(), QString("COM4"));
        }
    }
};

QTEST_MAIN(SerialComboBoxTest)
#include "SerialComboBoxTest.moc"
