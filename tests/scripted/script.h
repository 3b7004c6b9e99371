// The test's side of a script (see script_folder.h): the world that the scripted platform libraries show to
// the daemon, or to the unit under test when they are linked into it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

using scripted_text = std::optional<std::string>; // none: a null text

struct scripted_partition {
    scripted_text name;
    scripted_text guid;
    scripted_text fs;
    uint64_t size = 0; // bytes
    uint64_t used = 0; // bytes
};

struct scripted_disk {
    scripted_text name;
    scripted_text path;
    scripted_text vendor;
    scripted_text model;
    uint64_t sectors = 0;
    unsigned state = 1;
    std::vector<scripted_partition> parts;
};

struct scripted_relationship {
    std::string src_path;
    std::string src_guid;
    std::string dest_guid;
    std::string sync_state = "Sync Finished";
    std::string status = "Running";
    std::string src_link = "Up";
    std::string dest_link = "Up";
    std::string dest_path;
    unsigned percent = 100;
};

struct scripted_app {
    scripted_text instance_name;
    unsigned db_type = 1;
    int archive_log = 0;
    scripted_text db_name;
    scripted_text db_user;
    scripted_text db_passwd;
    scripted_text oracle_home;
    scripted_text host;
    scripted_text port;
};

class script {
public:
    // An empty world in a folder of its own, which QELCD_SCRIPT names until the script goes.
    script();
    // Fails the test for what happened unforeseen, and for a result that was to be used once and was not.
    ~script();
    script(const script &) = delete;
    script &operator=(const script &) = delete;

    // Each replaces what was there; a call that has begun to read sees the one or the other as a whole.
    void disks(const std::vector<scripted_disk> &disks);
    void relationships(const std::vector<scripted_relationship> &relationships);
    void apps(const std::vector<scripted_app> &apps);

    void scsi_guid(const std::string &path, const std::string &guid)
    {
        append("scsi-guids", path + " " + guid);
    }
    void part_type(const std::string &path, unsigned type);

    // What calls of FUNCTION, with these arguments when there are some, return: the next one, or all. RESULT
    // is a number, several with bars between them of which one is drawn, or exit:N. Without a result queries
    // have natural answers, and an action fails the test.
    void once(const std::string &function, const std::string &result,
              const std::vector<std::string> &arguments = {});
    void always(const std::string &function, const std::string &result,
                const std::vector<std::string> &arguments = {});

    // Makes each call of FUNCTION take that long, or only those from the FROMth on.
    void delay(const std::string &function, double seconds, int from = 1);

    // The calls so far, in their order: all, or those of FUNCTION.
    std::vector<std::string> calls(const std::string &function = "") const;

private:
    // LINES become the file, or are added to it.
    void replace(const char *file, const std::string &lines) const;
    void append(const char *file, const std::string &line) const;

    std::string folder_;
};
