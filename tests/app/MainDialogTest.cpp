#include "app/MainDialog.h"

#include "burn/BurnMessageEvent.h"
#include "burn/BurnProgressEvent.h"
#include "tests/burn/ScriptedDevice.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QDropEvent>
#include <QFileDialog>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTest>
#include <QTextEdit>
#include <QTimer>
#include <QUrl>

namespace
{

/// The dialog as its user sees it: found by the names of its widgets, driven by keys and clicks.
struct Window {
    explicit Window(const QString& faults = {})
        : device(faults)
    {
        device.pingMs = 20;
        dialog = std::make_unique<MainDialog>(nullptr, device.clientFactory());
        dialog->show();
    }

    template <typename Widget>
    Widget* find(const char* name) const
    {
        return dialog->findChild<Widget*>(name);
    }
    QPushButton* close() const { return find<QDialogButtonBox>("bb")->button(QDialogButtonBox::Close); }
    QPushButton* start() const
    {
        const auto buttons = find<QDialogButtonBox>("bb")->findChildren<QPushButton*>();
        return buttons[0] == close() ? buttons[1] : buttons[0];
    }
    QTextEdit* log() const { return find<QTextEdit>("textLog"); }
    QProgressBar* bar() const { return find<QProgressBar>("pb"); }
    QString state() const { return bar()->isVisible() ? find<QLabel>("lblState")->text() : "hidden"; }

    /// Whether the widgets look as they do with or without a burn.
    bool looks(bool idle) const
    {
        const auto enabled = [this](const char* name) { return find<QWidget>(name)->isEnabled(); };
        return enabled("cbSerial") == idle && enabled("eFilename") == idle && enabled("btnBrowse") == idle &&
               close()->isEnabled() == idle && start()->text() == (idle ? "&Start programming" : "&Break");
    }

    void type(const QString& file) const
    {
        find<QLineEdit>("eFilename")->clear();
        QTest::keyClicks(find<QWidget>("eFilename"), file);
    }
    void burn(const QString& file) const
    {
        type(file);
        QTest::mouseClick(start(), Qt::LeftButton);
    }
    void send(MessageKind kind, const QString& text) const { send(BurnMessageEvent(kind, text)); }
    void send(ProgressKind kind, int value) const { send(BurnProgressEvent(kind, value)); }
    void send(QEvent&& event) const { QCoreApplication::sendEvent(dialog.get(), &event); }

    ScriptedDevice device;
    std::unique_ptr<MainDialog> dialog;
};

/// Presses a button of the question that comes up meanwhile, and counts the questions.
void answerWith(QMessageBox::StandardButton button, int& asked)
{
    QTimer::singleShot(0, [button, &asked] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            asked += box->windowTitle() + box->text() == "CloseAn operation is still in progress.\nAre you to exit?";
            QTest::mouseClick(box->button(button), Qt::LeftButton);
        }
    });
}

} // namespace

class MainDialogTest : public QObject
{
    Q_OBJECT

    QTemporaryDir folder;
    QString file = writeFirmware(folder.path(), {{0x3100, QByteArray(700, 'x')}});

private Q_SLOTS:
    void form()
    {
        QCoreApplication::setApplicationName("Tavimora");
        QCoreApplication::setApplicationVersion("1.1");
        QIcon::setThemeName("hicolor");
        QIcon::setThemeSearchPaths({folder.path()});
        const Window window;
        QCOMPARE(QIcon::themeSearchPaths(), QStringList(folder.path()));
        QCOMPARE(window.dialog->windowTitle(), "Tavimora v1.1");
        QVERIFY(window.looks(true) && window.start()->isEnabled() && window.state() == "hidden");
        QVERIFY(window.log()->isReadOnly());

        QVERIFY(QTest::qWaitForWindowActive(window.dialog.get()));
        QTest::keyClick(window.dialog.get(), Qt::Key_F, Qt::AltModifier);
        QStringList order;
        for (int i = 0; i < 7; ++i) {
            const QWidget* widget = QApplication::focusWidget();
            order += widget->objectName().isEmpty() ? widget->metaObject()->className() : widget->objectName();
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        }
        QCOMPARE(order.join(' '), "eFilename btnBrowse QComboBox QToolButton textLog QPushButton QPushButton");
        QTest::keyClick(window.dialog.get(), Qt::Key_S, Qt::AltModifier);
        QCOMPARE(QApplication::focusWidget()->metaObject()->className(), "QComboBox");
    }

    void goodBurn()
    {
        const Window window;
        window.burn(file);
        QVERIFY(window.looks(false) && !window.start()->isEnabled());
        QTRY_COMPARE(window.state(), "Delay");
        QVERIFY(window.start()->isEnabled());
        QCOMPARE(window.bar()->maximum(), 3000);
        QTRY_VERIFY(window.bar()->value() > 1000);
        QTRY_VERIFY_WITH_TIMEOUT(window.looks(true), 30000);
        const QString log = window.log()->toPlainText();
        QVERIFY(log.startsWith("Uploading firmware: 'Board %2' 1.2%1\nWaiting for device on '"));
        QVERIFY(log.endsWith("\nVerification successful\nReset device\nComplete"));
        QCOMPARE(window.state(), "hidden");
        QVERIFY(window.start()->isEnabled());
        QCOMPARE(std::ranges::count(window.device.memory(), 'x'), 700);
    }

    void breakButton()
    {
        const Window window("ignore@version");
        QVERIFY(QTest::qWaitForWindowActive(window.dialog.get()));
        window.type(file);
        QTimer::singleShot(0, window.dialog.get(), [] {
            if (QWidget* fileDialog = QApplication::activeModalWidget()) {
                fileDialog->close();
            }
        });
        QTest::keyClick(window.find<QWidget>("eFilename"), Qt::Key_Return);
        QVERIFY2(window.looks(false), "the key starts no burn");
        QTRY_VERIFY(window.start()->isEnabled());
        window.start()->setFocus();
        window.log()->setFocus();
        QTest::keyClick(window.log(), Qt::Key_Return);
        QCoreApplication::processEvents();
        QVERIFY2(window.looks(false), "the key that starts a burn also stops it");
        QTest::keyClick(window.dialog.get(), Qt::Key_B, Qt::AltModifier);
        QTRY_VERIFY(window.looks(true));
        QVERIFY(window.log()->toPlainText().endsWith("\nOperation cancelled by user"));
        QCOMPARE(window.state(), "Waiting for device");
    }

    void closingAsks()
    {
        Window window("hangup@erase.1");
        std::atomic<bool> eraseRequested = false;
        window.device.requestStop = [&] { eraseRequested = true; };
        window.burn(file);
        QTRY_VERIFY_WITH_TIMEOUT(eraseRequested && window.state() == "Erasing", 30000);
        QVERIFY(window.looks(false) && !window.start()->isEnabled());
        int asked = 0;
        answerWith(QMessageBox::No, asked);
        window.dialog->close();
        answerWith(QMessageBox::No, asked);
        QTest::keyClick(window.dialog.get(), Qt::Key_Escape);
        QVERIFY(window.dialog->isVisible() && window.looks(false));
        answerWith(QMessageBox::Yes, asked);
        window.dialog->close();
        QCOMPARE(asked, 3);
        QVERIFY(!window.dialog->isVisible());
        window.dialog.reset();
        QVERIFY(window.device.client.expired());
        QCOMPARE(window.device.requests, "vpe");
    }

    void errorColour()
    {
        const Window window;
        for (const int lightness : {255, 128, 127, 20}) {
            QPalette palette;
            palette.setColor(QPalette::Base, QColor(lightness, lightness, lightness));
            QApplication::setPalette(palette);
            QEvent themeChange(QEvent::ThemeChange);
            QApplication::sendEvent(window.dialog.get(), &themeChange);
            window.log()->clear();
            window.burn(file + ".none");
            QTRY_VERIFY(window.looks(true));
            QCOMPARE(window.log()->toPlainText(), "Can't open input file. No such file or directory");
            QVERIFY2(window.log()->toHtml().contains(lightness < 128 ? "color:#ef5350" : "color:#c62828"),
                qPrintable(QString::number(lightness)));
            QCOMPARE(window.state(), "hidden");
        }
    }

    void events()
    {
        const Window window;
        using Kind = ProgressKind;
        window.send(MessageKind::Log, "<b>bold</b> %1");
        window.send(MessageKind::Error, "<u>100%1</u>");
        window.send(MessageKind(9), "nothing");
        window.send(MessageKind::Status, "State");
        for (const auto& [kind, value] : {std::pair{Kind::Maximum, 20}, {Kind::Minimum, 10}, {Kind::Value, 15},
                 {Kind::Value, 21}, {Kind(9), 16}, {Kind::Enabled, 0}}) {
            window.send(kind, value);
        }
        QCOMPARE(window.log()->toPlainText(), "bold %1\n100%1");
        QVERIFY(window.log()->toHtml().contains("underline"));
        QCOMPARE(window.bar()->value(), 15);
        QCOMPARE(window.state(), "State");
        QVERIFY(!window.start()->isEnabled() && window.close()->isEnabled());
        window.send(MessageKind::Status, "");
        window.send(Kind::Enabled, -1);
        QVERIFY(window.state() == "hidden" && window.start()->isEnabled());
    }

    void logOfAReader()
    {
        const Window window;
        for (int i = 0; i < 40; ++i) {
            window.send(MessageKind::Log, QString::number(i));
        }
        window.send(MessageKind::Error, "<b>wrong</b>");
        QTextEdit& log = *window.log();
        QVERIFY(log.find("wrong", QTextDocument::FindBackward));
        for (const QString text : {"plain", "<i>rich</i> text"}) {
            log.verticalScrollBar()->setValue(0);
            window.send(MessageKind::Log, text);
            QCOMPARE(log.verticalScrollBar()->value(), log.verticalScrollBar()->maximum());
            QCOMPARE(log.textCursor().selectedText(), "wrong");
            QTextCursor end(log.document());
            end.movePosition(QTextCursor::End);
            QCOMPARE(end.charFormat().foreground(), QBrush());
            QCOMPARE(end.charFormat().fontWeight(), QTextCharFormat().fontWeight());
        }
        QVERIFY(log.toPlainText().endsWith("\n39\nwrong\nplain\nrich text"));
    }

    void browsing()
    {
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        const Window window;
        for (const bool accept : {false, true}) {
            QTimer::singleShot(200, this, [&] {
                auto* browser = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
                browser->findChild<QLineEdit*>("fileNameEdit")->setText(file);
                static_cast<QDialog*>(browser)->done(accept);
            });
            QTest::mouseClick(window.find<QWidget>("btnBrowse"), Qt::LeftButton);
            QCOMPARE(window.find<QLineEdit>("eFilename")->text(), accept ? file : QString());
        }
    }

    void dropping()
    {
        const Window window;
        window.type("earlier.txt");
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile("/tmp/new board/100%20.txt"), QUrl::fromLocalFile("/tmp/second")});
        const Qt::DropActions actions = Qt::CopyAction | Qt::MoveAction;
        QDragEnterEvent enter({}, actions, &data, Qt::LeftButton, {});
        QVERIFY(QCoreApplication::sendEvent(window.find<QWidget>("eFilename"), &enter) && enter.isAccepted());
        QDropEvent drop({}, actions, &data, Qt::LeftButton, {});
        drop.setDropAction(Qt::MoveAction);
        QCoreApplication::sendEvent(window.find<QWidget>("eFilename"), &drop);
        QCOMPARE(window.find<QLineEdit>("eFilename")->text(), "/tmp/new board/100%20.txt");
        QVERIFY2(drop.isAccepted() && drop.dropAction() == Qt::CopyAction, "the file manager would delete the file");
    }
};

QTEST_MAIN(MainDialogTest)
#include "MainDialogTest.moc"
