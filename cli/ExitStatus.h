#pragma once

/// What `tavimora-cli` tells the shell.
enum class ExitStatus : int {
    Success = 0,
    Failure = 1,
    Usage = 2,
    NoDevice = 3,
    /// 128 and the number of SIGINT, as shells have it.
    Stopped = 130,
};
