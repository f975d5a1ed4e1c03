#pragma once

#include <QtGlobal>

#include <atomic>
#include <memory>
#include <utility>

class BootloaderClient;

/// One reference to the client of the running burn, laid out by the worker for the thread that may want to cancel it.
///
/// Whoever takes the reference has it whole and alone, by one atomic exchange: the client lives at least as long as
/// the taker holds on to it, and neither side ever waits for the other. The pointer to a reference on the heap stands
/// in for `std::atomic<std::shared_ptr>`, whose `load` in the library of GCC 12 unlocks without release order.
class CancelHandle
{
public:
    CancelHandle() = default;
    ~CancelHandle() { take(); }
    Q_DISABLE_COPY_MOVE(CancelHandle)

    /// Lays out a reference, in place of the one that may still lie there.
    void offer(std::shared_ptr<BootloaderClient> client) { exchange(std::make_unique<Reference>(std::move(client))); }

    /// Takes the reference away; null when none lies there.
    std::shared_ptr<BootloaderClient> take()
    {
        const std::unique_ptr<Reference> taken = exchange(nullptr);
        return taken ? std::move(*taken) : nullptr;
    }

private:
    using Reference = std::shared_ptr<BootloaderClient>;

    std::unique_ptr<Reference> exchange(std::unique_ptr<Reference> next)
    {
        return std::unique_ptr<Reference>(offered.exchange(next.release()));
    }

    std::atomic<Reference*> offered = nullptr;
};
