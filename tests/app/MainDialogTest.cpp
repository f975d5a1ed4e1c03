#include "app/MainDialog.h"

#include "burn/BurnMessageEvent.h"
#include "tests/burn/ScriptedDevice.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QDropEvent>
#include <QFileDialog>
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
    void send(MessageKind kind, const QString& text) const
    {
        BurnMessageEvent event(kind, text);
        QCoreApplication::sendEvent(dialog.get(), &event);
    }

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
    void goodBurn()
    {
        const Window window;
        QVERIFY(window.looks(true) && window.start()->isEnabled() && window.state() == "hidden");
        window.burn(file);
        QVERIFY(window.looks(false) && !window.start()->isEnabled());
        QTRY_COMPARE(window.state(), "Delay");
        QVERIFY(window.start()->isEnabled());
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

    /// Lines stand at the end in formats of their own, whatever the reader has selected.
    void log()
    {
        const Window window;
        QTextEdit& log = *window.log();
        for (const int lightness : {127, 128}) {
            QPalette palette;
            palette.setColor(QPalette::Base, QColor(lightness, lightness, lightness));
            QApplication::setPalette(palette);
            QEvent themeChange(QEvent::ThemeChange);
            QApplication::sendEvent(window.dialog.get(), &themeChange);
            log.clear();
            window.send(MessageKind::Log, QString("<p>%1</p>").repeated(40));
            window.send(MessageKind::Error, "<b>%1 wrong</b>");
            QVERIFY(log.find("wrong", QTextDocument::FindBackward));
            log.verticalScrollBar()->setValue(0);
            window.send(MessageKind::Log, "plain");
            QCOMPARE(log.verticalScrollBar()->value(), log.verticalScrollBar()->maximum());
            QCOMPARE(log.textCursor().selectedText(), "wrong");
            QTextCursor end(log.document());
            end.movePosition(QTextCursor::End);
            QCOMPARE(end.charFormat().foreground(), QBrush());
            QVERIFY(log.toHtml().contains(lightness < 128 ? "color:#ef5350" : "color:#c62828"));
            QVERIFY(log.toPlainText().endsWith("\n%1\n%1 wrong\nplain"));
        }
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
