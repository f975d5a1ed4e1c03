#pragma once

#include <utility>

#include <unistd.h>

namespace devicesim
{

/// Owns a file descriptor, or none.
class UniqueFd
{
public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor)
        : fd(descriptor)
    {
    }
    UniqueFd(UniqueFd&& other) noexcept
        : fd(std::exchange(other.fd, -1))
    {
    }
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        std::swap(fd, other.fd);
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    void reset()
    {
        if (fd >= 0) {
            ::close(std::exchange(fd, -1));
        }
    }

    bool isValid() const { return fd >= 0; }

    /// @return the descriptor, still owned; -1 if there is none.
    int get() const { return fd; }

private:
    int fd = -1;
};

} // namespace devicesim
