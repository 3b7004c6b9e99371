#include "base/xml_memory.h"

#include "base/xml.h"

#include <libxml/globals.h>
#include <libxml/parser.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace {
thread_local bool memory_ran_out = false;

void *marking(void *memory)
{
    if (!memory)
        memory_ran_out = true;
    return memory;
}

void *mark_malloc(size_t size)
{
    return marking(malloc(size));
}

// While it is true, all that libxml2 gives back in this thread is wiped.
thread_local bool is_secret = false;

void free_memory(void *memory)
{
    if (is_secret && memory)
        explicit_bzero(memory, malloc_usable_size(memory));
    free(memory);
}

void *mark_realloc(void *old, size_t size)
{
    if (!is_secret || !old)
        return marking(realloc(old, size));
    void *grown = marking(malloc(size));
    if (grown) {
        memcpy(grown, old, std::min(size, malloc_usable_size(old)));
        free_memory(old);
    }
    return grown;
}

char *mark_strdup(const char *text)
{
    return static_cast<char *>(marking(strdup(text)));
}

// In each thread libxml2 makes a state when it is first called there. Without memory it reports that through
// the very state, and so calls itself until the stack is full. So its memory is tried first: what was just
// freed is what it gets, unless another thread takes it in between. A larger piece, since calloc does not
// look into the thread's own cache.
void prepare_thread()
{
    thread_local bool is_prepared = false;
    if (is_prepared)
        return;
    void *volatile state = malloc(2 * sizeof(xmlGlobalState));
    if (!state)
        throw std::bad_alloc();
    free(state);
    if (!xmlGetGlobalState())
        throw std::bad_alloc();
    is_prepared = true;
}

} // namespace

void xml_memory_init()
{
    xmlMemSetup(free_memory, mark_malloc, mark_realloc, mark_strdup);
}

void xml_memory_begin()
{
    prepare_thread();
    memory_ran_out = false;
}

bool xml_memory_ran_out()
{
    return std::exchange(memory_ran_out, false);
}

void throw_if_xml_memory_ran_out()
{
    if (xml_memory_ran_out())
        throw std::bad_alloc();
}

bool xml_memory_is_secret()
{
    return is_secret;
}

xml_secrets::xml_secrets()
{
    is_secret = true;
}

xml_secrets::~xml_secrets()
{
    is_secret = false;
}
