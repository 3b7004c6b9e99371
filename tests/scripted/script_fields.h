// The fields of the records that a script holds, described once for both sides: the test's record that is
// written and the platform library's that is read have members of the same names. VISIT is called with each.
#pragma once

template <class Disk, class Visit>
void disk_fields(Disk &disk, const Visit &visit)
{
    visit("path", disk.path);
    visit("vendor", disk.vendor);
    visit("model", disk.model);
    visit("sectors", disk.sectors);
    visit("state", disk.state);
}

template <class Partition, class Visit>
void partition_fields(Partition &partition, const Visit &visit)
{
    visit("guid", partition.guid);
    visit("fs", partition.fs);
    visit("size", partition.size);
    visit("used", partition.used);
}

template <class Relationship, class Visit>
void relationship_fields(Relationship &relationship, const Visit &visit)
{
    visit("percent", relationship.percent);
    visit("sync_state", relationship.sync_state);
    visit("status", relationship.status);
    visit("src_link", relationship.src_link);
    visit("src_path", relationship.src_path);
    visit("src_guid", relationship.src_guid);
    visit("dest_link", relationship.dest_link);
    visit("dest_path", relationship.dest_path);
    visit("dest_guid", relationship.dest_guid);
}

template <class App, class Visit>
void app_fields(App &app, const Visit &visit)
{
    visit("db_type", app.db_type);
    visit("archive_log", app.archive_log);
    visit("db_name", app.db_name);
    visit("db_user", app.db_user);
    visit("db_passwd", app.db_passwd);
    visit("oracle_home", app.oracle_home);
    visit("host", app.host);
    visit("port", app.port);
}
