// The help of qelc.
#pragma once

#include <CLI/App.hpp>
#include <memory>

// Options of this group are left out: the footer says more about them than a list could.
constexpr char body_group[] = "Body";

// For the app, before its verbs are added.
std::shared_ptr<CLI::FormatterBase> help_format();
