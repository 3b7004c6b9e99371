// What the manual page and the completions of the shells have to say of verbs and options: told by the
// program itself, from the tables that it parses its command line with.
#pragma once

#include <optional>
#include <string>

namespace CLI {
class App;
}

// WHAT is "man", for two sections of the page in the language of man(7), or "completion", for lines of four
// fields with tabs between them: the verb that is given already ("" for none), a kind (verb, option, or value
// for an option that takes one), the word, and what it is. None for anything else.
std::optional<std::string> verb_page(const CLI::App &app, const std::string &what);
