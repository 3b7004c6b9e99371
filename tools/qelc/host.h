// The host that a verb is about, as its daemon tells of it. Every function that asks throws verb_end if there
// is no answer, or if nobody has adopted the host. Used by one thread.
#pragma once

#include "tools/common/disks.h"
#include "tools/qelc/disk_names.h"
#include "tools/qelc/manager_view.h"
#include "tools/qelc/outcome.h"
#include "tools/qelc/views/groups.h"
#include "tools/qelc/views/mirrors.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

struct host_view {
    std::vector<disk_view> disks; // without those that are mirrors
    std::vector<mirror_view> mirrors;
    std::vector<std::string> databases; // instances
};

class host {
public:
    explicit host(const peer_options &peer) : peer_(peer) {}

    bool is_local() const { return peer_.host.empty(); }

    // Sends one command, whatever is known of the host.
    std::unique_ptr<request> ask(uint32_t code, const optional_text &body = std::nullopt,
                                 const waiting_call &waiting = nullptr) const;

    // A daemon answers these at once.
    std::optional<manager_view> manager() const; // none: nobody has adopted the host
    void require_adopted() const;
    std::vector<group_view> groups() const;
    std::optional<snapshot_times>
    group_schedule(const std::string &name) const; // none: there is no such group

    // The report, which takes the daemon more than a second. It is asked for once, and anew by look_again.
    const host_view &view();
    const host_view &look_again();

    // The disk that a person means with TEXT; throws verb_end if there is none, or more than one. The GUID of
    // a disk that is not there yet is taken if it MAY_COME.
    named_disk disk(const std::string &text, bool may_come = false);

    // The disks meant, each as an item, refused if there is no such disk or if it was named before.
    std::vector<verb_item> disk_items(const std::vector<std::string> &texts);

    // None: there is no such group, or the disk is not protected. That of a disk is as old as the report.
    std::optional<snapshot_times> schedule_of(const snapshot_source &source);

    // Null if it has no mirror.
    const mirror_view *mirror_of(const std::string &guid);

    // True if the host has a disk with that GUID.
    bool is_known(const std::string &guid);

    // The name of the disk with that GUID; the GUID if it has none that is known.
    std::string name_of(const std::string &guid);

private:
    const std::vector<named_disk> &names();

    peer_options peer_;
    std::optional<host_view> view_;
    std::optional<std::vector<named_disk>> names_;
};

// The group of that name; throws verb_end if there is none.
const group_view &require_group(const std::vector<group_view> &groups, const std::string &name);
const group_view *find_group(const std::vector<group_view> &groups, const std::string &name);

// The manager in the answer of local_list; throws verb_end for another text. None: nobody has adopted the
// host.
std::optional<manager_view> manager_in(const request &reply);

// Throws verb_end for an answer that is no success.
void require_success(const request &reply, const std::string &hint = "");

// Where the reason of a refusal stands that the daemon does not tell.
extern const char see_log[];
