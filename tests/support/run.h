// How tests that need a private host start.
#pragma once

// Runs the tests that the command line asks for, or only lists them. Returns what main does; 2 after a
// complaint outside a private host, where nothing is run.
int run_in_private_host(int argc, char **argv);
