#pragma once

#include <utility>

#include <unistd.h>

/// Owns a file descriptor; -1 means none.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor)
        : fd(descriptor)
    {
    }
    FileDescriptor(FileDescriptor&& other) noexcept
        : fd(std::exchange(other.fd, -1))
    {
    }
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(fd, other.fd);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    ~FileDescriptor() { reset(); }

    /// Closes the descriptor, if there is one.
    void reset()
    {
        // Not repeated on EINTR: Linux has released the descriptor by then (close(2)).
        if (isValid()) {
            ::close(std::exchange(fd, -1));
        }
    }

    bool isValid() const { return fd >= 0; }

    /// @return the descriptor, still owned; -1 if there is none.
    int get() const { return fd; }

private:
    int fd = -1;
};
