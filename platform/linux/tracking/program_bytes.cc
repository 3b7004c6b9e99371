#include "platform/linux/tracking/program_bytes.h"

// TRACKING_PROGRAM is the path of the compiled program, given by the build.
asm(".section .rodata\n"
    ".balign 8\n"
    "tracking_program_begin:\n"
    ".incbin \"" TRACKING_PROGRAM "\"\n"
    "tracking_program_end:\n"
    ".byte 0\n"
    ".text\n");

extern "C" {
extern const char tracking_program_begin[] __attribute__((visibility("hidden")));
extern const char tracking_program_end[] __attribute__((visibility("hidden")));
}

std::string_view program_bytes()
{
    return {tracking_program_begin, static_cast<size_t>(tracking_program_end - tracking_program_begin)};
}
