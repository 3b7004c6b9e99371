// The compiled tracking program, as the build embeds it.
#pragma once

#include <string_view>

std::string_view program_bytes();
