/* libkavagt.so.1: the CDP agent of this host: snapshots of mirrors, and the databases it knows. */
#ifndef KAVAGT_H
#define KAVAGT_H

#include "kav_list.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A group of devices of which one snapshot is taken. Built and freed by the daemon. */
struct Kavdevgrp {
    unsigned char unused_0[16]; /* 0 */
    struct kav_list devices;    /* of struct Kavdev */
    char *name;
};

static_assert(sizeof(struct Kavdevgrp) == 40, "Kavdevgrp: size");
static_assert(offsetof(struct Kavdevgrp, devices) == 16, "Kavdevgrp: devices");
static_assert(offsetof(struct Kavdevgrp, name) == 32, "Kavdevgrp: name");

/* A device of such a group, or of Kav_list_dev. */
struct Kavdev {
    unsigned char unused_0[16]; /* 0 */
    struct kav_list link;
    unsigned char unused_32[8]; /* 0 */
    char guid[39];              /* "{" GUID "}" */
    uint8_t flag;
    char *path;
    unsigned char unused_88[8]; /* 0 */
};

static_assert(sizeof(struct Kavdev) == 96, "Kavdev: size");
static_assert(offsetof(struct Kavdev, link) == 16, "Kavdev: link");
static_assert(offsetof(struct Kavdev, guid) == 40, "Kavdev: guid");
static_assert(offsetof(struct Kavdev, flag) == 79, "Kavdev: flag");
static_assert(offsetof(struct Kavdev, path) == 80, "Kavdev: path");

#define KAVAPP_DB_ORACLE 1u

/* A database ("application") that the agent can quiesce during a snapshot. */
struct Kavapp {
    struct kav_list link;
    char *instance_name;
    uint32_t db_type; /* KAVAPP_DB_ORACLE */
    int32_t archive_log;
    char *db_name;
    char *db_user;
    char *db_passwd;
    char *oracle_home;
    char *host;
    char *port;
};

static_assert(sizeof(struct Kavapp) == 80, "Kavapp: size");
static_assert(offsetof(struct Kavapp, link) == 0, "Kavapp: link");
static_assert(offsetof(struct Kavapp, instance_name) == 16, "Kavapp: instance_name");
static_assert(offsetof(struct Kavapp, db_type) == 24, "Kavapp: db_type");
static_assert(offsetof(struct Kavapp, archive_log) == 28, "Kavapp: archive_log");
static_assert(offsetof(struct Kavapp, db_name) == 32, "Kavapp: db_name");
static_assert(offsetof(struct Kavapp, db_user) == 40, "Kavapp: db_user");
static_assert(offsetof(struct Kavapp, db_passwd) == 48, "Kavapp: db_passwd");
static_assert(offsetof(struct Kavapp, oracle_home) == 56, "Kavapp: oracle_home");
static_assert(offsetof(struct Kavapp, host) == 64, "Kavapp: host");
static_assert(offsetof(struct Kavapp, port) == 72, "Kavapp: port");

/* Takes a snapshot of the mirror "{GUID}"; negative on failure. */
int kav_call_disk_markcdp(const char *mirror);

/* Takes one snapshot of all devices of the group; negative on failure. */
int kav_call_grp_markcdp(struct Kavdevgrp *group);

/* Connects to the database and stores a copy of the record; -1 on failure. */
int Kav_connect_db_flush_cfg(struct Kavapp *app);

/* Above 0 on success. */
int Kav_delete_app(const char *instance_name);

/* Appends a struct Kavapp per stored application; 0, or -1. The caller owns them: every text and
 * every record is freed with free(). */
int Kav_list_app(struct kav_list *apps);

/* Appends a struct Kavdev per known device, which the caller frees in the same way; 0, or -1. The
 * daemon does not call it; it is part of the interface for a site's own tools. */
int Kav_list_dev(struct kav_list *devs);

/* Removes a device. FLAG is always 0. Above 0 on success. */
int Kav_delete_dev(int flag, const char *mirror_guid);

#ifdef __cplusplus
}
#endif

#endif
