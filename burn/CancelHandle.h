#pragma once

#include <QtGlobal>

#include <atomic>
#include <memory>
#include <utility>

class BootloaderClient;

/// Atomic slot from which another thread takes the client of the running burn, in order to cancel it.
///
/// Each published reference is taken once, by one atomic exchange: the client lives at least as long as the taker keeps
/// the reference, and neither side waits for the other. The slot holds a pointer to a `std::shared_ptr` rather than a
/// `std::atomic<std::shared_ptr>`, whose `load` in the library of GCC 12 unlocks without release order.
class CancelHandle
{
public:
    CancelHandle() = default;
    ~CancelHandle() { take(); }
    Q_DISABLE_COPY_MOVE(CancelHandle)

    /// Publishes a reference; replaces the previous one.
    void publish(std::shared_ptr<BootloaderClient> client) { exchange(std::make_unique<Reference>(std::move(client))); }

    /// @return the published reference, which leaves the slot empty; null when it is empty already.
    std::shared_ptr<BootloaderClient> take()
    {
        const std::unique_ptr<Reference> taken = exchange(nullptr);
        return taken ? std::move(*taken) : nullptr;
    }

private:
    using Reference = std::shared_ptr<BootloaderClient>;

    std::unique_ptr<Reference> exchange(std::unique_ptr<Reference> next)
    {
        return std::unique_ptr<Reference>(published.exchange(next.release()));
    }

    std::atomic<Reference*> published = nullptr;
};
