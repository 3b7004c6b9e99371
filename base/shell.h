// Running tools of the host. All command lines go through the shell, which finds the tool on PATH.
#pragma once

#include "base/deleter.h"

#include <cstdio>
#include <memory>
#include <string>

// The standard output of a running command line; closing it waits for the command's end.
using shell_pipe = std::unique_ptr<FILE, deleter<pclose>>;

// Starts COMMAND and returns its standard output; null with errno if that fails. If the shell does not find
// the tool, the output is empty.
shell_pipe shell_read(const char *command);

// True if the shell takes TEXT unchanged as one word: not empty, and without characters that separate, quote,
// expand, redirect or comment. Bytes beyond ASCII are plain.
bool is_plain_word(const std::string &text);

// Runs COMMAND, which must consist of plain words and single blanks, and waits until it ends. Any other
// command line is refused: a word from outside might have a meaning to the shell. Returns 0 if the command
// exits with status 0, else -1; errno then says why it could not be run, or is 0 if it ran and failed.
int shell_run(const std::string &command);
