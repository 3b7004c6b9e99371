// libkavdev as a script has it.
#include "tests/scripted/script_folder.h"

#include <kavdev.h>

#pragma GCC visibility push(default)

int kav_device_probe_all(int flag)
{
    return script_action("kav_device_probe_all", {std::to_string(flag)}, -1);
}
