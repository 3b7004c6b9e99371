/* The doubly linked list that crosses the boundary to the platform libraries.
 *
 * Circular: an empty head points at itself; elements are added at the tail; the link of an
 * element that is on no list holds two nulls. The list does not own its elements and takes no
 * lock; the functions that use a list say who frees its elements.
 * Layouts of this folder are for x86-64 Linux (LP64, little-endian). */
#ifndef KAV_LIST_H
#define KAV_LIST_H

#include <assert.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

struct kav_list {
    struct kav_list *next, *prev;
};

static_assert(sizeof(struct kav_list) == 16, "kav_list: size");

/* The record of TYPE whose member MEMBER is the link LINK. */
#define kav_list_entry(link, type, member) ((type *)(void *)((char *)(link)-offsetof(type, member)))

static inline void kav_list_init(struct kav_list *head)
{
    head->next = head;
    head->prev = head;
}

static inline int kav_list_empty(const struct kav_list *head)
{
    return head->next == head;
}

static inline void kav_list_append(struct kav_list *head, struct kav_list *link)
{
    link->next = head;
    link->prev = head->prev;
    head->prev->next = link;
    head->prev = link;
}

static inline void kav_list_unlink(struct kav_list *link)
{
    link->prev->next = link->next;
    link->next->prev = link->prev;
    link->next = NULL;
    link->prev = NULL;
}

#ifdef __cplusplus
}
#endif

#endif
