#include "tools/qelc/overwrite.h"

#include "tools/common/text_table.h"
#include "tools/common/visible.h"
#include "tools/qelc/confirm.h"

#include <cstdio>

namespace {
// In so many words, as it is the one slip that nothing brings back.
void warn_of_swap(const disk_contents &source, const disk_contents &mirror)
{
    if (mirror.has_file_systems && source.is_blank)
        fputs(visible(mirror.name + " holds file systems, and " + source.name +
                          ", which would be copied over it, is blank: are the two swapped? The other way "
                          "round is " +
                          mirror.name + "=" + source.name + "\n",
                      line_ends::kept)
                  .c_str(),
              stderr);
}

void show_pair(const disk_contents &source, const disk_contents &mirror)
{
    const std::string table = align({{source.name, source.description}, {mirror.name, mirror.description}});
    fprintf(stderr, "%sEverything on %s will be overwritten with the content of %s.\n", table.c_str(),
            visible(mirror.name).c_str(), visible(source.name).c_str());
    warn_of_swap(source, mirror);
}
} // namespace

disk_contents contents_of(host &at, const std::string &guid)
{
    const std::string name = at.name_of(guid);
    auto here = at.is_local() ? contents_here(name) : std::nullopt;
    if (here)
        return *std::move(here);
    for (const disk_view &disk : at.view().disks) {
        if (disk.guid == guid)
            return reported_contents(disk);
    }
    return {name, "what is on it is not known here"};
}

void confirm_overwriting(host &at, const std::vector<mirror_pair> &pairs, const verb_options &given)
{
    const bool asks = !pairs.empty() && has_to_ask(given, "it overwrites disks");
    for (const mirror_pair &pair : pairs) {
        const disk_contents source = contents_of(at, pair.source), mirror = contents_of(at, pair.mirror);
        show_pair(source, mirror);
        if (asks)
            require_typed("disk to overwrite", mirror.name);
    }
}
