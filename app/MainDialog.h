#pragma once

#include "burn/BurnThread.h"

#include <QDialog>

#include <memory>

class BurnMessageEvent;
class BurnProgressEvent;
class QPushButton;

namespace Ui
{

class MainDialog;

}

/// The widgets of the window, made by uic from MainDialog.ui.
using MainDialogUi = Ui::MainDialog;

/// The window of the program: port, firmware file and one button; a log, a label and a bar show what the burn reports.
class MainDialog : public QDialog
{
    Q_OBJECT

public:
    /// @param clientFactory as for `BurnThread`.
    explicit MainDialog(QWidget* parent = nullptr, BurnThread::ClientFactory clientFactory = {});

    /// Stops a burn that is running and waits for its end.
    ~MainDialog() override;
    Q_DISABLE_COPY_MOVE(MainDialog)

    /// Closes the window by way of `closeEvent`, so that Escape asks too. `QDialog::reject` only hides it.
    void reject() override;

protected:
    /// Receives the events of the burn.
    void customEvent(QEvent* event) override;
    /// Asks the user while a burn runs.
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void onBrowse();
    void onStartClicked();
    void onThreadFinished();

    void setIdle(bool idle);
    void showMessage(const BurnMessageEvent& message);
    void showProgress(const BurnProgressEvent& progress);
    void appendToLog(const QString& line);

    std::unique_ptr<MainDialogUi> ui;
    QPushButton* btnStart;
    BurnThread* burnThread;
};
