#include "app/MainDialog.h"

#include "app/PaletteInfo.h"
#include "burn/BurnMessageEvent.h"
#include "burn/BurnProgressEvent.h"
#include "serial/SerialComboBox.h"
#include "ui_MainDialog.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QDropEvent>
#include <QFileDialog>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QScrollBar>
#include <QTextCursor>
#include <QUrl>

#include <utility>

namespace
{

constexpr QRgb errorOnDark = 0xEF5350;
constexpr QRgb errorOnLight = 0xC62828;

/// An event filter for a `QLineEdit`: a file dropped there puts its path in. By itself the field would insert its URL.
class FileDropFilter : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* field, QEvent* event) override
    {
        if (event->type() != QEvent::DragEnter && event->type() != QEvent::DragMove && event->type() != QEvent::Drop) {
            return false;
        }
        auto* drop = static_cast<QDropEvent*>(event);
        const QUrl file = drop->mimeData()->urls().value(0);
        if (!file.isLocalFile()) {
            return false;
        }
        if (event->type() == QEvent::Drop) {
            static_cast<QLineEdit*>(field)->setText(file.toLocalFile());
        }
        // The source of a move may delete the file.
        drop->setDropAction(Qt::CopyAction);
        drop->accept();
        return true;
    }
};

} // namespace

MainDialog::MainDialog(QWidget* parent, BurnThread::ClientFactory clientFactory)
    : QDialog(parent)
    , ui(std::make_unique<MainDialogUi>())
    , btnStart(nullptr)
    , burnThread(nullptr)
{
    ui->setupUi(this);
    ui->pb->setRange(0, 1);
    ui->pb->setValue(0);
    ui->pb->setTextVisible(false);
    ui->lblState->hide();
    ui->pb->hide();
    ui->textLog->setReadOnly(true);
    ui->eFilename->installEventFilter(new FileDropFilter(ui->eFilename));
    connect(ui->btnBrowse, &QPushButton::clicked, this, &MainDialog::onBrowse);
    btnStart = ui->bb->addButton(tr("&Start programming"), QDialogButtonBox::ActionRole);
    btnStart->setDefault(true);
    connect(btnStart, &QPushButton::clicked, this, &MainDialog::onStartClicked);
    connect(ui->bb, &QDialogButtonBox::rejected, this, &QDialog::reject);
    burnThread = new BurnThread(this, std::move(clientFactory));
    connect(burnThread, &QThread::finished, this, &MainDialog::onThreadFinished);
    setWindowTitle(tr("%1 v%2").arg(QCoreApplication::applicationName(), QCoreApplication::applicationVersion()));
}

MainDialog::~MainDialog()
{
    if (burnThread->isRunning()) {
        burnThread->stopBurn();
    }
    delete burnThread;
}

void MainDialog::onBrowse()
{
    const QString fileName = QFileDialog::getOpenFileName(
        this, tr("Open File"), ui->eFilename->text(), tr("Firmware files (*.txt);;All files (*.*)"));
    if (!fileName.isEmpty()) {
        ui->eFilename->setText(fileName);
    }
}

void MainDialog::onStartClicked()
{
    if (burnThread->isRunning()) {
        burnThread->stopBurn();
        return;
    }
    setIdle(false);
    burnThread->startBurn(ui->cbSerial->currentPort(), ui->eFilename->text());
}

void MainDialog::onThreadFinished()
{
    ui->pb->setValue(0);
    setIdle(true);
}

/// Enables and labels the widgets: for a new burn if `idle`, otherwise for a running one.
void MainDialog::setIdle(bool idle)
{
    ui->cbSerial->setEnabled(idle);
    ui->eFilename->setEnabled(idle);
    ui->btnBrowse->setEnabled(idle);
    btnStart->setEnabled(idle);
    btnStart->setText(idle ? tr("&Start programming") : tr("&Break"));
    QPushButton* btnClose = ui->bb->button(QDialogButtonBox::Close);
    btnClose->setEnabled(idle);
    // The Return key starts a burn and does not stop one: a default button that is disabled takes it.
    (idle ? btnStart : btnClose)->setDefault(true);
}

void MainDialog::customEvent(QEvent* event)
{
    if (event->type() == BurnMessageEvent::eventType) {
        showMessage(static_cast<const BurnMessageEvent&>(*event));
    } else if (event->type() == BurnProgressEvent::eventType) {
        showProgress(static_cast<const BurnProgressEvent&>(*event));
    }
    event->accept();
}

void MainDialog::showMessage(const BurnMessageEvent& message)
{
    switch (message.kind) {
    case MessageKind::Log:
        appendToLog(message.text);
        break;
    case MessageKind::Error: {
        const QColor color(paletteInfo().dark ? errorOnDark : errorOnLight);
        appendToLog(QStringLiteral("<font color=\"%1\">%2</font>").arg(color.name(), message.text));
        break;
    }
    case MessageKind::Status:
        ui->lblState->setText(message.text);
        ui->lblState->setVisible(!message.text.isEmpty());
        ui->pb->setVisible(!message.text.isEmpty());
        break;
    }
}

void MainDialog::showProgress(const BurnProgressEvent& progress)
{
    switch (progress.kind) {
    case ProgressKind::Value:
        ui->pb->setValue(progress.value);
        break;
    case ProgressKind::Minimum:
        ui->pb->setMinimum(progress.value);
        break;
    case ProgressKind::Maximum:
        ui->pb->setMaximum(progress.value);
        break;
    case ProgressKind::Enabled:
        btnStart->setEnabled(progress.value != 0);
        break;
    }
}

/// Appends a line of plain or rich text and shows it. `QTextEdit::append` takes the format at the text cursor, which is
/// wherever the reader has clicked.
void MainDialog::appendToLog(const QString& line)
{
    QTextEdit& log = *ui->textLog;
    QTextCursor reader = log.textCursor();
    // A selection up to the end of the log would grow with it.
    reader.setKeepPositionOnInsert(reader.hasSelection());
    log.moveCursor(QTextCursor::End);
    log.setCurrentCharFormat({});
    log.append(line);
    reader.setKeepPositionOnInsert(false);
    log.setTextCursor(reader);
    log.verticalScrollBar()->setValue(log.verticalScrollBar()->maximum());
}

void MainDialog::closeEvent(QCloseEvent* event)
{
    if (!burnThread->isRunning()) {
        event->accept();
        return;
    }
    const auto answer = QMessageBox::question(this, tr("Close"),
        tr("An operation is still in progress.\nAre you to exit?"), QMessageBox::Yes | QMessageBox::No);
    event->setAccepted(answer == QMessageBox::Yes);
}

void MainDialog::reject()
{
    close();
}

void MainDialog::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::ThemeChange) {
        paletteInfo().refresh();
    }
}
