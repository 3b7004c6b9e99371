// How a tool or a hook starts, for posix_spawn(3).
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <csignal>

// No blocked signals, and /dev/null as standard input and output. A setting that needs memory may fail: the
// program must then not be started.
class spawn_settings {
public:
    spawn_settings()
    {
        posix_spawn_file_actions_init(&files);
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes, &none);
        set_flags(0);
        open_null(STDIN_FILENO, O_RDONLY);
        open_null(STDOUT_FILENO, O_WRONLY);
    }
    ~spawn_settings()
    {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&files);
    }
    spawn_settings(const spawn_settings &) = delete;
    spawn_settings &operator=(const spawn_settings &) = delete;

    void open_null(int fd, int flags)
    {
        keep(posix_spawn_file_actions_addopen(&files, fd, "/dev/null", flags, 0));
    }
    void close_from(int fd) { keep(posix_spawn_file_actions_addclosefrom_np(&files, fd)); }
    void set_flags(int more)
    {
        posix_spawnattr_setflags(&attributes, static_cast<short>(POSIX_SPAWN_SETSIGMASK | more));
    }

    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    int error = 0; // of the first setting that failed

private:
    void keep(int result)
    {
        if (error == 0)
            error = result;
    }
};
