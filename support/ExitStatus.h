#pragma once

/// What the console programs report to the shell.
enum class ExitStatus : int {
    Success = 0,
    Failure = 1,
    Usage = 2,
    NoDevice = 3,
    /// 128 and the number of SIGINT, as shells report it.
    Stopped = 130,
};
