#pragma once

#include "bootloader/BootVersion.h"
#include "bootloader/Clock.h"
#include "burn/CancelHandle.h"

#include <QDeadlineTimer>
#include <QString>
#include <QThread>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

class BootloaderClient;
class FirmwareFile;

/// What a run does with a device.
enum class BurnTask {
    /// Burns the firmware.
    Burn,
    /// Compares first, and burns only a device that differs.
    BurnIfNeeded,
    /// Compares, and changes nothing.
    Verify,
    /// Asks for versions and identity, and changes nothing. Needs no firmware file.
    Identify,
};

struct BurnJob {
    BurnTask task = BurnTask::Burn;
    QString portName;
    QString fileName;
    /// For `Identify`, in bits per second; the others take it from the firmware file.
    std::int32_t baudrate = 57600;
    /// For `Verify` and `Identify`: resets the device at the end. Otherwise its bootloader stays in charge.
    bool resetAtEnd = false;
    /// Ends the burn when the memory is not blank after so many erases; nothing for no limit.
    std::optional<int> maxErases = {};
};

/// What a run found out.
struct BurnResult {
    enum class Reason {
        /// The run reached its end.
        None,
        /// The firmware file could not be read, or must not be burned.
        File,
        /// The port could not be opened.
        Port,
        /// The device is not the one that the firmware is for.
        OtherDevice,
        /// The memory is not blank after as many erases as the job allows.
        NotBlank,
        /// Blocks differ.
        Verification,
        /// `stopBurn` was called.
        Stopped,
    };

    /// What the memory of the device holds, as far as the device has confirmed it.
    enum class Content {
        Before,
        /// Nothing, or a part of the image.
        Erased,
        /// The image, not compared.
        Written,
        Verified,
    };

    struct Identity {
        BootVersion bootloaderVersion;
        BootVersion firmwareVersion;
        std::uint16_t deviceId = 0;

        bool operator==(const Identity&) const = default;
    };

    Reason reason = Reason::None;
    /// What the firmware file says of itself; empty when it could not be read.
    QString target;
    QString version;
    /// What the device answered at the beginning; nothing without an answer.
    std::optional<Identity> identity;
    /// Blocks compared in the last pass, and how many of them differ.
    int blocks = 0;
    int badBlocks = 0;
    /// How often the device confirmed an erase.
    int erases = 0;
    Content content = Content::Before;
};

/// Runs burns, one at a time, each on a thread of its own: reads the firmware file, opens the port, and walks the
/// device through erase, blank check, programming, verification and reset; or through a part of these.
///
/// All output goes as `BurnMessageEvent` and `BurnProgressEvent` to the parent, in order and before `finished`. The
/// object serves any number of burns, one after the other, with a new client each. Its own operations are for the
/// thread that it was made on.
class BurnThread : public QThread
{
    Q_OBJECT

public:
    /// Makes a closed client for one burn; called on the worker thread.
    using ClientFactory = std::function<std::shared_ptr<BootloaderClient>()>;

    enum class Outcome {
        /// Every block was read back and compared equal, and the device was told to reset if the job says so. After
        /// `Identify`: the device has answered.
        Succeeded,
        /// The run ended by itself without that.
        Failed,
        /// A stop came first.
        Cancelled,
    };

    /// `parent` receives the events and outlives every burn. By default the clients have a port of this platform.
    explicit BurnThread(QObject* parent, ClientFactory clientFactory = {}, Clock clock = systemClock);
    ~BurnThread() override;
    Q_DISABLE_COPY_MOVE(BurnThread)

    /// The text of the `Status` event with which a device is about to be erased.
    static QString erasingStatus();

    /// Starts a burn; only while none runs. The file is read, and the port opened by its system name, on the worker
    /// thread.
    void startBurn(const QString& port, const QString& file);

    /// The same with another task.
    void startJob(const BurnJob& newJob);

    /// Asks the running burn to stop and returns at once; the rest as `stopBurn`. For whoever stops several together.
    void requestStop();

    /// Stops the running burn and blocks until its thread has ended and its port is closed: a running exchange ends at
    /// its reply deadline (300 ms), reading the file is not cut short. No reset is sent.
    void stopBurn();

    /// How the last burn ended; valid once its thread has finished.
    Outcome outcome() const { return lastOutcome; }

    /// What the last run found out; valid once its thread has finished.
    const BurnResult& result() const;

protected:
    void run() override;

private:
    enum class State : std::int32_t {
        Finished = 0,
        WaitDevice = 1,
        PowerupDelay = 2,
        Erase = 3,
        BlankCheck = 4,
        Program = 5,
        Verify = 7,
        Reset = 8,
    };
    struct StateRow;

    static const StateRow& rowOf(State wanted);
    void setState(State newState);

    bool loadFirmware();
    bool fail(BurnResult::Reason reason, const QString& text);
    QString validateFirmware() const;
    bool openPort();
    Outcome walkStates();

    void finishedStep();
    void waitDeviceStep();
    void refuseDevice();
    void powerupDelayStep();
    void eraseStep();
    void blankCheckStep();
    void programStep();
    void verifyStep();
    void resetStep();

    bool takeBlock();
    QString withBlock(const QString& text) const;
    void recordVerifyResult(bool matches);
    void closeVerification();
    void endWithoutBurn();

    void postLog(const QString& text);
    void postError(const QString& text);
    void postStatus(const QString& text);
    void postValue(std::int32_t value);
    void postRange(std::int32_t minimum, std::int32_t maximum);
    void postEnabled(bool enabled);

    BurnJob job;
    /// The state that the next pass works in.
    State state = State::Finished;
    /// The end of the current state, where it has one.
    QDeadlineTimer deadline;
    /// The worker's reference; null outside a run.
    std::shared_ptr<BootloaderClient> client;
    /// Null outside a run.
    std::unique_ptr<FirmwareFile> firmware;
    /// The next pass of a block state takes a new block; otherwise it repeats the current one.
    bool advance = true;

    /// The current block of `Verify` differed once and is being read again.
    bool secondLook = false;
    /// What the job asks for has been found out or done.
    bool accomplished = false;
    BurnResult lastResult;
    /// The last thing that a run writes, so that a thread that has read it sees all that the run wrote.
    std::atomic<Outcome> lastOutcome = Outcome::Failed;
    ClientFactory makeClient;
    Clock now;
    CancelHandle cancelHandle;
};
