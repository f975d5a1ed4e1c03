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

    ~FileDescriptor()
    {
        // Never repeated on EINTR: Linux has let go of the descriptor by then.
        if (isValid())
            ::close(fd);
    }

    bool isValid() const { return fd >= 0; }
    int get() const { return fd; }

private:
    int fd = -1;
};
