// Running command lines through the shell, which finds the tool on the PATH of base/tool.h.
#pragma once

#include "base/file.h"

#include <sys/types.h>

#include <string>
#include <utility>

// The standard output of a running command line; waits at the end of its life for the command's end.
class shell_pipe {
public:
    shell_pipe() = default;
    shell_pipe(file_stream output, pid_t child) : output_(std::move(output)), child_(child) {}
    ~shell_pipe();
    shell_pipe(const shell_pipe &) = delete;
    shell_pipe &operator=(const shell_pipe &) = delete;

    explicit operator bool() const { return output_ != nullptr; }
    FILE *get() const { return output_.get(); }

private:
    file_stream output_;
    pid_t child_ = -1;
};

// Starts COMMAND and returns its standard output; none if that fails. If the shell does not find
// the tool, the output is empty.
shell_pipe shell_read(const char *command);

// True if the shell takes TEXT unchanged as one word: not empty, and without characters that separate, quote,
// expand, redirect or comment. Bytes beyond ASCII are plain.
bool is_plain_word(const std::string &text);

// Runs COMMAND, which must consist of plain words and single blanks, and waits until it ends. Any other
// command line is refused: a word from outside might have a meaning to the shell. Returns 0 if the command
// exits with status 0, else -1; errno then says why it could not be run, or is 0 if it ran and failed.
int shell_run(const std::string &command);
