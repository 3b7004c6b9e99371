// A configuration file: what was read from it and written is read back as the same.
#include "config/config.h"

#include "base/xml.h"
#include "tests/fuzz/fuzz.h"
#include "tests/unit/fake_clock.h"
#include "tests/unit/shown.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool is_ready = (xml_init(), fake_clock_set_wall(2'000'000'000), true);
    static const memory_file file;
    static_cast<void>(is_ready);
    file.set(std::string(reinterpret_cast<const char *>(data), size));
    std::unique_ptr<qel_t> first = qelcfg_read(file.path());
    if (!first)
        return 0;
    qelcfg_write(file.path(), first.get());
    const std::string written = file.content();
    const std::unique_ptr<qel_t> second = qelcfg_read(file.path());
    require(second != nullptr, "what was written can be read");
    // An empty element is read as an absent text.
    for (optional_text *text : {&first->guid, &first->alias}) {
        if (text->has_value() && text->value().empty())
            text->reset();
    }
    require(shown(*first) == shown(*second), "what was written is read back");
    qelcfg_write(file.path(), second.get());
    require(file.content() == written, "what was read is written back");
    return 0;
}
