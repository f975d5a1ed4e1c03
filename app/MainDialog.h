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

/// The widgets of the window, as the form describes them.
using MainDialogUi = Ui::MainDialog;

/// The window of the program: takes the port and the firmware file, starts a burn, shows what it reports, stops it.
class MainDialog : public QDialog
{
    Q_OBJECT

public:
    /// `clientFactory` makes the clients of the burns, as `BurnThread` tells.
    explicit MainDialog(QWidget* parent = nullptr, BurnThread::ClientFactory clientFactory = {});

    /// Stops a burn that is running and waits for its end.
    ~MainDialog() override;
    Q_DISABLE_COPY_MOVE(MainDialog)

    /// Closes the window. What a dialog does of itself on Escape is to hide without a close event, and so without the
    /// question whether to give up a running burn.
    void reject() override;

protected:
    /// Shows what the burn reports.
    void customEvent(QEvent* event) override;
    /// Asks before a running burn is given up.
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
