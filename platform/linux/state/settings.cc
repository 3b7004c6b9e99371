#include "platform/linux/state/settings.h"

#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"

#include <algorithm>
#include <string>

embedded_settings read_settings()
{
    embedded_settings settings;
    const std::string text = read_bytes("/etc/kavtessaron/embedded.conf").value_or("");
    for (const std::string_view line : split(text, '\n')) {
        const auto words = split(line, ' ');
        if (words.size() != 3 || words[1] != "=")
            continue;
        const auto number = parse_number(words[2]);
        if (words[0] == "freeze")
            settings.freeze = words[2] == "yes";
        else if (words[0] == "freeze_after" && number)
            settings.freeze_after = std::chrono::seconds(*number);
        else if (words[0] == "freeze_deadline" && number)
            settings.freeze_deadline = std::chrono::milliseconds(std::clamp<uint64_t>(*number, 500, 5000));
    }
    return settings;
}
