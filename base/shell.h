// Tools of the host: the one door through which they are run. Command lines go through the shell, which
// finds a tool on PATH.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

struct shell_pipe_close {
    void operator()(FILE *pipe) const noexcept;
};

// The standard output of a running command line; closing it waits for the command's end.
using shell_pipe = std::unique_ptr<FILE, shell_pipe_close>;

// Starts COMMAND for reading its standard output. Null when it could not be started (errno is set); a tool
// that the shell does not find is started all the same and simply prints nothing.
shell_pipe shell_read(const char *command);

// True for a text that the shell takes as one word just as it stands: not empty, and nothing in it that
// separates, quotes, expands, redirects or comments. Bytes beyond ASCII are plain.
bool is_plain_word(const std::string &text);

// Runs COMMAND, which must be made of plain words and single blanks, and waits for its end. Any other command
// line is refused without running it: a word of it came from outside and would mean something to the shell.
// Returns 0 when the command exits with status 0; else -1, with errno telling why it could not be run, or 0
// when it ran and failed.
int shell_run(const std::string &command);
