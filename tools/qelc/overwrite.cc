#include "tools/qelc/overwrite.h"

#include "tools/common/text_table.h"
#include "tools/common/visible.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

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

void ask_for(const std::string &name)
{
    fprintf(stderr,
            "Type the name of the disk to overwrite (%s), or anything else to stop: ", visible(name).c_str());
    std::string typed;
    std::getline(std::cin, typed);
    if (typed != name)
        throw verb_end{exit_refused, "you did not confirm it; nothing is changed", ""};
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
    const bool asks = !given.yes && !given.dry_run && !pairs.empty();
    if (asks && isatty(STDIN_FILENO) == 0)
        throw verb_end{exit_refused, "it overwrites disks, and there is no terminal to ask at",
                       "look with --dry-run; --yes does it without a question"};
    for (const mirror_pair &pair : pairs) {
        const disk_contents source = contents_of(at, pair.source), mirror = contents_of(at, pair.mirror);
        show_pair(source, mirror);
        if (asks)
            ask_for(mirror.name);
    }
}
